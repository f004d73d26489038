#include "core/jsonvalue.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <system_error>

namespace taskrack {

namespace {

class Parser
{
public:
    Parser(QByteArrayView text, int maxDepth)
        : m_pos(text.data()), m_end(text.data() + text.size()), m_maxDepth(maxDepth)
    {
    }

    std::optional<JSONValue> document()
    {
        skipWhitespace();
        std::optional<JSONValue> value = parseValue(0);
        if (!value)
            return std::nullopt;
        skipWhitespace();
        if (m_pos != m_end)
            return std::nullopt;
        return value;
    }

private:
    void skipWhitespace()
    {
        while (m_pos != m_end &&
               (*m_pos == ' ' || *m_pos == '\t' || *m_pos == '\n' || *m_pos == '\r'))
            ++m_pos;
    }

    bool consumeLiteral(const char *literal)
    {
        const size_t length = std::strlen(literal);
        if (size_t(m_end - m_pos) < length || std::memcmp(m_pos, literal, length) != 0)
            return false;
        m_pos += length;
        return true;
    }

    std::optional<JSONValue> parseValue(int depth)
    {
        if (m_pos == m_end)
            return std::nullopt;
        switch (*m_pos) {
        case '{':
            return parseObject(depth + 1);
        case '[':
            return parseArray(depth + 1);
        case '"': {
            std::optional<QString> text = parseString();
            if (!text)
                return std::nullopt;
            return JSONValue(std::move(*text));
        }
        case 't':
            return consumeLiteral("true") ? std::optional<JSONValue>(JSONValue(true))
                                          : std::nullopt;
        case 'f':
            return consumeLiteral("false") ? std::optional<JSONValue>(JSONValue(false))
                                           : std::nullopt;
        case 'n':
            return consumeLiteral("null") ? std::optional<JSONValue>(JSONValue()) : std::nullopt;
        default:
            return parseNumber();
        }
    }

    std::optional<JSONValue> parseObject(int depth)
    {
        if (depth > m_maxDepth)
            return std::nullopt;
        ++m_pos; // '{'
        JSONValue::Object members;
        skipWhitespace();
        if (m_pos != m_end && *m_pos == '}') {
            ++m_pos;
            return JSONValue(std::move(members));
        }
        while (true) {
            skipWhitespace();
            if (m_pos == m_end || *m_pos != '"')
                return std::nullopt;
            std::optional<QString> key = parseString();
            if (!key)
                return std::nullopt;
            skipWhitespace();
            if (m_pos == m_end || *m_pos != ':')
                return std::nullopt;
            ++m_pos;
            skipWhitespace();
            std::optional<JSONValue> value = parseValue(depth);
            if (!value)
                return std::nullopt;
            // A repeated key would make one of the two values vanish on rewrite.
            if (!members.emplace(std::move(*key), std::move(*value)).second)
                return std::nullopt;
            skipWhitespace();
            if (m_pos == m_end)
                return std::nullopt;
            if (*m_pos == ',') {
                ++m_pos;
                continue;
            }
            if (*m_pos == '}') {
                ++m_pos;
                return JSONValue(std::move(members));
            }
            return std::nullopt;
        }
    }

    std::optional<JSONValue> parseArray(int depth)
    {
        if (depth > m_maxDepth)
            return std::nullopt;
        ++m_pos; // '['
        JSONValue::Array elements;
        skipWhitespace();
        if (m_pos != m_end && *m_pos == ']') {
            ++m_pos;
            return JSONValue(std::move(elements));
        }
        while (true) {
            skipWhitespace();
            std::optional<JSONValue> value = parseValue(depth);
            if (!value)
                return std::nullopt;
            elements.push_back(std::move(*value));
            skipWhitespace();
            if (m_pos == m_end)
                return std::nullopt;
            if (*m_pos == ',') {
                ++m_pos;
                continue;
            }
            if (*m_pos == ']') {
                ++m_pos;
                return JSONValue(std::move(elements));
            }
            return std::nullopt;
        }
    }

    static bool isDigit(char c) { return c >= '0' && c <= '9'; }

    std::optional<JSONValue> parseNumber()
    {
        const char *start = m_pos;
        if (m_pos != m_end && *m_pos == '-')
            ++m_pos;
        if (m_pos == m_end || !isDigit(*m_pos))
            return std::nullopt;
        if (*m_pos == '0') {
            ++m_pos;
        } else {
            while (m_pos != m_end && isDigit(*m_pos))
                ++m_pos;
        }
        bool integral = true;
        if (m_pos != m_end && *m_pos == '.') {
            integral = false;
            ++m_pos;
            if (m_pos == m_end || !isDigit(*m_pos))
                return std::nullopt;
            while (m_pos != m_end && isDigit(*m_pos))
                ++m_pos;
        }
        if (m_pos != m_end && (*m_pos == 'e' || *m_pos == 'E')) {
            integral = false;
            ++m_pos;
            if (m_pos != m_end && (*m_pos == '+' || *m_pos == '-'))
                ++m_pos;
            if (m_pos == m_end || !isDigit(*m_pos))
                return std::nullopt;
            while (m_pos != m_end && isDigit(*m_pos))
                ++m_pos;
        }
        if (integral) {
            qint64 value = 0;
            const auto [end, error] = std::from_chars(start, m_pos, value);
            if (error == std::errc() && end == m_pos)
                return JSONValue(value);
            // Too large for 64 bits: kept as a number, as any JSON reader would.
        }
        double value = 0;
        const auto [end, error] = std::from_chars(start, m_pos, value);
        if (error != std::errc() || end != m_pos || !std::isfinite(value))
            return std::nullopt;
        return JSONValue(value);
    }

    static int hexValue(char c)
    {
        if (c >= '0' && c <= '9')
            return c - '0';
        if (c >= 'a' && c <= 'f')
            return c - 'a' + 10;
        if (c >= 'A' && c <= 'F')
            return c - 'A' + 10;
        return -1;
    }

    std::optional<char16_t> parseHex4()
    {
        if (m_end - m_pos < 4)
            return std::nullopt;
        unsigned value = 0;
        for (int i = 0; i < 4; ++i) {
            const int digit = hexValue(m_pos[i]);
            if (digit < 0)
                return std::nullopt;
            value = value * 16 + unsigned(digit);
        }
        m_pos += 4;
        return char16_t(value);
    }

    // Appends the UTF-8 sequence at m_pos as UTF-16, refusing anything that is not well-formed
    // UTF-8 (overlong forms, surrogates, values past U+10FFFF, truncated sequences).
    bool appendUtf8Sequence(QString &out)
    {
        const auto byte = [](const char *p) { return static_cast<unsigned char>(*p); };
        const unsigned lead = byte(m_pos);
        int length = 0;
        char32_t codePoint = 0;
        char32_t minimum = 0;
        if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2;
            codePoint = lead & 0x1F;
            minimum = 0x80;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            codePoint = lead & 0x0F;
            minimum = 0x800;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4;
            codePoint = lead & 0x07;
            minimum = 0x10000;
        } else {
            return false;
        }
        if (m_end - m_pos < length)
            return false;
        for (int i = 1; i < length; ++i) {
            const unsigned next = byte(m_pos + i);
            if ((next & 0xC0) != 0x80)
                return false;
            codePoint = (codePoint << 6) | (next & 0x3F);
        }
        if (codePoint < minimum || codePoint > 0x10FFFF ||
            (codePoint >= 0xD800 && codePoint <= 0xDFFF))
            return false;
        m_pos += length;
        if (codePoint >= 0x10000) {
            out.append(QChar(QChar::highSurrogate(codePoint)));
            out.append(QChar(QChar::lowSurrogate(codePoint)));
        } else {
            out.append(QChar(char16_t(codePoint)));
        }
        return true;
    }

    std::optional<QString> parseString()
    {
        ++m_pos; // opening quote
        QString out;
        const char *runStart = m_pos;
        const auto flushAscii = [&] {
            if (m_pos != runStart)
                out.append(QLatin1StringView(runStart, m_pos - runStart));
        };
        while (true) {
            if (m_pos == m_end)
                return std::nullopt;
            const unsigned char c = static_cast<unsigned char>(*m_pos);
            if (c >= 0x20 && c < 0x80 && c != '"' && c != '\\') {
                ++m_pos;
                continue;
            }
            flushAscii();
            if (c == '"') {
                ++m_pos;
                return out;
            }
            if (c < 0x20)
                return std::nullopt;
            if (c >= 0x80) {
                if (!appendUtf8Sequence(out))
                    return std::nullopt;
                runStart = m_pos;
                continue;
            }
            // Backslash.
            ++m_pos;
            if (m_pos == m_end)
                return std::nullopt;
            const char escape = *m_pos++;
            switch (escape) {
            case '"':
                out.append(u'"');
                break;
            case '\\':
                out.append(u'\\');
                break;
            case '/':
                out.append(u'/');
                break;
            case 'b':
                out.append(u'\b');
                break;
            case 'f':
                out.append(u'\f');
                break;
            case 'n':
                out.append(u'\n');
                break;
            case 'r':
                out.append(u'\r');
                break;
            case 't':
                out.append(u'\t');
                break;
            case 'u': {
                std::optional<char16_t> unit = parseHex4();
                if (!unit)
                    return std::nullopt;
                if (QChar::isLowSurrogate(*unit))
                    return std::nullopt;
                if (QChar::isHighSurrogate(*unit)) {
                    if (m_end - m_pos < 2 || m_pos[0] != '\\' || m_pos[1] != 'u')
                        return std::nullopt;
                    m_pos += 2;
                    std::optional<char16_t> low = parseHex4();
                    if (!low || !QChar::isLowSurrogate(*low))
                        return std::nullopt;
                    out.append(QChar(*unit));
                    out.append(QChar(*low));
                } else {
                    out.append(QChar(*unit));
                }
                break;
            }
            default:
                return std::nullopt;
            }
            runStart = m_pos;
        }
    }

    const char *m_pos;
    const char *m_end;
    const int m_maxDepth;
};

void writeString(QByteArray &out, const QString &text)
{
    out.append('"');
    const QByteArray utf8 = text.toUtf8();
    for (const char ch : utf8) {
        const unsigned char c = static_cast<unsigned char>(ch);
        switch (c) {
        case '"':
            out.append("\\\"");
            break;
        case '\\':
            out.append("\\\\");
            break;
        case '\b':
            out.append("\\b");
            break;
        case '\f':
            out.append("\\f");
            break;
        case '\n':
            out.append("\\n");
            break;
        case '\r':
            out.append("\\r");
            break;
        case '\t':
            out.append("\\t");
            break;
        default:
            if (c < 0x20) {
                static const char hex[] = "0123456789abcdef";
                out.append("\\u00");
                out.append(hex[c >> 4]);
                out.append(hex[c & 0xF]);
            } else {
                out.append(ch);
            }
        }
    }
    out.append('"');
}

void writeNumber(QByteArray &out, double value)
{
    char buffer[64];
    const auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value);
    if (error != std::errc()) {
        out.append("0.0");
        return;
    }
    const QByteArrayView text(buffer, end - buffer);
    out.append(text);
    // "1" would read back as an integer; a number must stay a number.
    if (!text.contains('.') && !text.contains('e') && !text.contains('E'))
        out.append(".0");
}

void indent(QByteArray &out, int level)
{
    out.append('\n');
    out.append(QByteArray(level * 2, ' '));
}

void writeValue(QByteArray &out, const JSONValue &value, int level)
{
    switch (value.kind()) {
    case JSONValue::Kind::null:
        out.append("null");
        return;
    case JSONValue::Kind::boolean:
        out.append(*value.boolean() ? "true" : "false");
        return;
    case JSONValue::Kind::integer:
        out.append(QByteArray::number(*value.integer()));
        return;
    case JSONValue::Kind::number:
        writeNumber(out, *value.number());
        return;
    case JSONValue::Kind::string:
        writeString(out, *value.string());
        return;
    case JSONValue::Kind::array: {
        const JSONValue::Array &elements = *value.array();
        if (elements.empty()) {
            out.append("[]");
            return;
        }
        out.append('[');
        bool first = true;
        for (const JSONValue &element : elements) {
            if (!first)
                out.append(',');
            first = false;
            indent(out, level + 1);
            writeValue(out, element, level + 1);
        }
        indent(out, level);
        out.append(']');
        return;
    }
    case JSONValue::Kind::object: {
        const JSONValue::Object &members = *value.object();
        if (members.empty()) {
            out.append("{}");
            return;
        }
        out.append('{');
        bool first = true;
        for (const auto &[key, member] : members) {
            if (!first)
                out.append(',');
            first = false;
            indent(out, level + 1);
            writeString(out, key);
            out.append(": ");
            writeValue(out, member, level + 1);
        }
        indent(out, level);
        out.append('}');
        return;
    }
    }
}

} // namespace

std::optional<JSONValue> JSONValue::parse(QByteArrayView utf8, int maxDepth)
{
    return Parser(utf8, maxDepth).document();
}

QByteArray JSONValue::toPrettyJSON() const
{
    QByteArray out;
    writeValue(out, *this, 0);
    out.append('\n');
    return out;
}

} // namespace taskrack
