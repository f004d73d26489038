#include "app/terminaloutput.h"

#include <gtest/gtest.h>

using namespace taskrack;

TEST(TerminalOutputTest, ControlCharactersAreShownNotObeyed)
{
    const struct
    {
        QString in;
        QString out;
    } cases[] = {
        {"plain \u00e9t\u00e9 \u2026 text\n\twith tab",
         "plain \u00e9t\u00e9 \u2026 text\n\twith tab"},
        {"\x1b]0;owned\x07title", "\\x1b]0;owned\\x07title"}, // OSC window title, BEL
        {"\x1b[2J\x1b[31mred", "\\x1b[2J\\x1b[31mred"},       // CSI clear screen, colour
        {QString::fromUtf16(u"\u009b31m \u009d0;x\u009c"),
         "\\u009b31m \\u009d0;x\\u009c"}, // C1 CSI, OSC, ST
        {"cr\rback\bdel\x7f", "cr\\x0dback\\x08del\\x7f"},
        {QString(QChar(0)) + "nul", "\\x00nul"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(visibleControls(c.in), c.out) << c.out.toStdString();
        EXPECT_EQ(visibleControls(c.out), c.out) << "made visible once only";
    }
}
