#include "core/searchfolding.h"

#include <gtest/gtest.h>

using namespace taskrack;

TEST(SearchQueryTest, EveryTokenMustBeContainedIgnoringCaseAndDiacritics)
{
    const QString text = QStringLiteral("Réparer le café /src/Über-App Primary checkout");
    EXPECT_TRUE(SearchQuery("CAFE").matches(text));
    EXPECT_TRUE(SearchQuery("reparer uber").matches(text));
    EXPECT_TRUE(SearchQuery("  über\tapp ").matches(text));
    EXPECT_FALSE(SearchQuery("cafe tea").matches(text));
    EXPECT_TRUE(SearchQuery("   ").isEmpty());
    EXPECT_FALSE(SearchQuery("   ").matches(text)) << "no tokens is no search";
    EXPECT_TRUE(SearchQuery(QStringLiteral("ΣΟΦΙΑ")).matches(QStringLiteral("σοφία")))
        << "case folding beyond ASCII";
}
