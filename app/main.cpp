#include <QCoreApplication>
#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    std::fputs("taskrack: starting\n", stderr);
    return 0;
}
