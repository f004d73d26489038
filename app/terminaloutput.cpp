#include "app/terminaloutput.h"

#include <cstdio>

namespace taskrack {

namespace {

bool needsEscape(char16_t c)
{
    if (c == u'\n' || c == u'\t')
        return false;
    return c < 0x20 || c == 0x7f || (c >= 0x80 && c <= 0x9f);
}

void write(std::FILE *stream, const QString &text)
{
    const QByteArray bytes = visibleControls(text).toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    std::fflush(stream);
}

} // namespace

QString visibleControls(const QString &text)
{
    qsizetype first = 0;
    while (first < text.size() && !needsEscape(text.at(first).unicode()))
        ++first;
    if (first == text.size())
        return text;
    QString out = text.left(first);
    for (qsizetype i = first; i < text.size(); ++i) {
        const char16_t c = text.at(i).unicode();
        if (!needsEscape(c))
            out += QChar(c);
        else if (c < 0x80)
            out += QStringLiteral("\\x%1").arg(int(c), 2, 16, QLatin1Char('0'));
        else
            out += QStringLiteral("\\u%1").arg(int(c), 4, 16, QLatin1Char('0'));
    }
    return out;
}

void writeOut(const QString &text)
{
    write(stdout, text);
}

void writeError(const QString &text)
{
    write(stderr, QStringLiteral("taskrack: ") + text + QLatin1Char('\n'));
}

void writeNotice(const QString &text)
{
    write(stderr, text + QLatin1Char('\n'));
}

} // namespace taskrack
