#include <QCoreApplication>
#include <QLoggingCategory>
#include <gtest/gtest.h>

// Every test runs with a Qt application so that queued work and coroutine resumptions have an
// event loop to run on.
int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    // Informational logs would drown the test output; warnings and errors still show.
    QLoggingCategory::setFilterRules(QStringLiteral("com.quillon.Taskrack.*.info=false"));
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
