#include "core/jsonvalue.h"

#include <gtest/gtest.h>
#include <limits>

namespace taskrack {

static void PrintTo(const JSONValue &value, std::ostream *out)
{
    *out << value.toPrettyJSON().toStdString();
}

namespace {

using Kind = JSONValue::Kind;

JSONValue parseOrFail(const QByteArray &text)
{
    std::optional<JSONValue> value = JSONValue::parse(text);
    EXPECT_TRUE(value.has_value()) << text.constData();
    return value.value_or(JSONValue());
}

// Values that other JSON libraries quietly change, and what must come back.
struct Exact
{
    const char *text;
    JSONValue value;
};

void PrintTo(const Exact &c, std::ostream *os)
{
    *os << c.text;
}

class JSONValueExactTest : public ::testing::TestWithParam<Exact>
{
};

TEST_P(JSONValueExactTest, ReadsExactlyAndWritesBackTheSame)
{
    const JSONValue read = parseOrFail(GetParam().text);
    EXPECT_EQ(read, GetParam().value);
    EXPECT_EQ(read.kind(), GetParam().value.kind());
    const QByteArray written = read.toPrettyJSON();
    EXPECT_EQ(parseOrFail(written), read) << written.constData();
    EXPECT_EQ(parseOrFail(written).toPrettyJSON(), written) << "writing is stable";
}

INSTANTIATE_TEST_SUITE_P(
    Values, JSONValueExactTest,
    ::testing::Values(
        Exact{"9223372036854775807", JSONValue(std::numeric_limits<qint64>::max())},
        Exact{"-9223372036854775808", JSONValue(std::numeric_limits<qint64>::min())},
        Exact{"9007199254740993", JSONValue(qint64(9007199254740993))}, Exact{"-0", JSONValue(0)},
        Exact{"1.0", JSONValue(1.0)}, Exact{"-0.0", JSONValue(-0.0)}, Exact{"0.1", JSONValue(0.1)},
        Exact{"1E2", JSONValue(100.0)}, Exact{"2.5e-308", JSONValue(2.5e-308)},
        Exact{"18446744073709551616", JSONValue(18446744073709551616.0)},
        Exact{"[true, false, null]", JSONValue(JSONValue::Array{true, false, nullptr})},
        Exact{R"("a\"b\\c\/d\b\f\n\r\t\u0000")",
              JSONValue(QString::fromUtf8("a\"b\\c/d\b\f\n\r\t") + QChar(0))},
        Exact{R"("\u00e9\ud83d\ude00€")", JSONValue(QString::fromUtf8("é😀€"))},
        Exact{R"({"b": {}, "a": [], "": ""})",
              JSONValue(JSONValue::Object{
                  {"b", JSONValue::Object{}}, {"a", JSONValue::Array{}}, {"", ""}})}));

TEST(JSONValueTest, IntegersAndNumbersAreDifferentKinds)
{
    EXPECT_NE(JSONValue(1), JSONValue(1.0));
    EXPECT_EQ(parseOrFail("1").kind(), Kind::integer);
    EXPECT_EQ(parseOrFail("1.0").kind(), Kind::number);
    EXPECT_EQ(JSONValue(1.0).toPrettyJSON(), QByteArray("1.0\n"));
    EXPECT_EQ(JSONValue(1e300).toPrettyJSON(), QByteArray("1e+300\n"));
}

TEST(JSONValueTest, RefusesWhatCouldNotBeWrittenBackUnchanged)
{
    const QByteArray refused[] = {
        "",
        " ",
        "{\"a\": 1, \"a\": 2}", // one of the two would vanish
        "\"\xff\"",             // not UTF-8
        "\"\xc0\xaf\"",         // overlong
        "\"\xed\xa0\x80\"",     // an encoded surrogate
        "\"\xf4\x90\x80\x80\"", // past U+10FFFF
        "\"\xe2\x82\"",         // cut short
        R"("\ud800")",          // lone high surrogate
        R"("\udc00")",          // lone low surrogate
        R"("\ud800\u0041")",    // high surrogate without its pair
        "1e400",                // not a finite double
        "\xef\xbb\xbf{}",       // byte order mark
        "{} {}",
        "[1,]",
        "{\"a\":1,}",
        "01",
        "+1",
        ".5",
        "1.",
        "1e",
        "-",
        "tru",
        "nul",
        "\"a\nb\"", // raw control character
        R"("\x")",
        R"("\u12")",
        "{'a': 1}",
        "{\"a\" 1}",
        "[1 2]",
        "\"open",
        "NaN",
    };
    for (const QByteArray &text : refused)
        EXPECT_FALSE(JSONValue::parse(text).has_value()) << text.toPercentEncoding().constData();
}

TEST(JSONValueTest, BoundsNestingWhateverTheCallerChecked)
{
    const QByteArray deep = QByteArray(600, '[') + QByteArray(600, ']');
    EXPECT_FALSE(JSONValue::parse(deep).has_value());
    EXPECT_TRUE(JSONValue::parse(deep, 600).has_value());
    EXPECT_FALSE(JSONValue::parse("[[1]]", 1).has_value());
}

TEST(JSONValueTest, WritesSortedPrettyOutputWithoutEscapingSlashes)
{
    const JSONValue value = parseOrFail(
        R"({"zeta": 1, "alpha": {"path": "/usr/bin/x", "list": [1, "é"]}, "ctl": "\u0001"})");
    EXPECT_EQ(value.toPrettyJSON(), QByteArray("{\n"
                                               "  \"alpha\": {\n"
                                               "    \"list\": [\n"
                                               "      1,\n"
                                               "      \"é\"\n"
                                               "    ],\n"
                                               "    \"path\": \"/usr/bin/x\"\n"
                                               "  },\n"
                                               "  \"ctl\": \"\\u0001\",\n"
                                               "  \"zeta\": 1\n"
                                               "}\n"));
}

} // namespace
} // namespace taskrack
