#include "hookbridge/strictjsonreader.h"

#include <algorithm>
#include <cstdint>

namespace taskrack {

namespace {

class Reader
{
public:
    explicit Reader(std::string_view text) : m_at(text.data()), m_end(text.data() + text.size()) {}

    bool atEnd() const { return m_at == m_end; }

    void skipWhitespace()
    {
        while (m_at != m_end && (*m_at == ' ' || *m_at == '\t' || *m_at == '\n' || *m_at == '\r'))
            ++m_at;
    }

    bool consume(char expected)
    {
        if (m_at == m_end || *m_at != expected)
            return false;
        ++m_at;
        return true;
    }

    char peek() const { return m_at == m_end ? '\0' : *m_at; }

    // A string, decoded into `out` when it is given, only validated otherwise.
    bool string(std::string *out)
    {
        if (!consume('"'))
            return false;
        while (true) {
            // Plain ASCII runs are copied in one go: prompts and paths are mostly that.
            const char *run = m_at;
            while (m_at != m_end) {
                const auto byte = static_cast<unsigned char>(*m_at);
                if (byte == '"' || byte == '\\' || byte < 0x20 || byte >= 0x80)
                    break;
                ++m_at;
            }
            if (out)
                out->append(run, m_at);
            if (m_at == m_end)
                return false;
            const auto byte = static_cast<unsigned char>(*m_at);
            if (byte == '"') {
                ++m_at;
                return true;
            }
            if (byte < 0x20)
                return false;
            if (byte == '\\') {
                if (!escape(out))
                    return false;
            } else if (!multiByteCharacter(out)) {
                return false;
            }
        }
    }

    bool value(int depth, JsonMember *out)
    {
        switch (peek()) {
        case '{':
            if (out)
                out->kind = JsonKind::object;
            return object(depth + 1);
        case '[':
            if (out)
                out->kind = JsonKind::array;
            return array(depth + 1, out);
        case '"':
            if (out)
                out->kind = JsonKind::string;
            return string(out ? &out->text : nullptr);
        case 't':
            if (out)
                out->kind = JsonKind::boolean;
            return literal("true");
        case 'f':
            if (out)
                out->kind = JsonKind::boolean;
            return literal("false");
        case 'n':
            if (out)
                out->kind = JsonKind::null;
            return literal("null");
        default:
            if (out)
                out->kind = JsonKind::number;
            return number();
        }
    }

    bool object(int depth, std::span<const std::string_view> keysToKeep = {},
                std::vector<JsonMember> *kept = nullptr)
    {
        if (depth > strictJsonMaximumDepth || !consume('{'))
            return false;
        skipWhitespace();
        if (consume('}'))
            return true;
        std::string key;
        while (true) {
            key.clear();
            if (!string(&key))
                return false;
            skipWhitespace();
            if (!consume(':'))
                return false;
            skipWhitespace();
            const bool keep =
                kept && std::find(keysToKeep.begin(), keysToKeep.end(), key) != keysToKeep.end();
            if (keep) {
                JsonMember member;
                member.key = key;
                if (!value(depth, &member))
                    return false;
                kept->push_back(std::move(member));
            } else if (!value(depth, nullptr)) {
                return false;
            }
            skipWhitespace();
            if (consume('}'))
                return true;
            if (!consume(','))
                return false;
            skipWhitespace();
        }
    }

private:
    bool array(int depth, JsonMember *out)
    {
        if (depth > strictJsonMaximumDepth || !consume('['))
            return false;
        skipWhitespace();
        if (consume(']'))
            return true;
        while (true) {
            if (out) {
                ++out->arrayLength;
                if (peek() != '{')
                    out->arrayHoldsOnlyObjects = false;
            }
            if (!value(depth, nullptr))
                return false;
            skipWhitespace();
            if (consume(']'))
                return true;
            if (!consume(','))
                return false;
            skipWhitespace();
        }
    }

    bool literal(std::string_view word)
    {
        if (std::size_t(m_end - m_at) < word.size() || std::string_view(m_at, word.size()) != word)
            return false;
        m_at += word.size();
        return true;
    }

    bool digits()
    {
        const char *start = m_at;
        while (m_at != m_end && *m_at >= '0' && *m_at <= '9')
            ++m_at;
        return m_at != start;
    }

    // -?(0|[1-9][0-9]*)(\.[0-9]+)?([eE][+-]?[0-9]+)? ; the value itself is never needed.
    bool number()
    {
        consume('-');
        if (consume('0')) {
            if (peek() >= '0' && peek() <= '9')
                return false;
        } else if (!digits()) {
            return false;
        }
        if (consume('.') && !digits())
            return false;
        if (peek() == 'e' || peek() == 'E') {
            ++m_at;
            if (!consume('+'))
                consume('-');
            if (!digits())
                return false;
        }
        return true;
    }

    std::optional<std::uint32_t> hexQuad()
    {
        if (m_end - m_at < 4)
            return std::nullopt;
        std::uint32_t unit = 0;
        for (int i = 0; i < 4; ++i) {
            const char c = *m_at++;
            unit <<= 4;
            if (c >= '0' && c <= '9')
                unit |= std::uint32_t(c - '0');
            else if (c >= 'a' && c <= 'f')
                unit |= std::uint32_t(c - 'a' + 10);
            else if (c >= 'A' && c <= 'F')
                unit |= std::uint32_t(c - 'A' + 10);
            else
                return std::nullopt;
        }
        return unit;
    }

    bool escape(std::string *out)
    {
        ++m_at; // the backslash
        if (m_at == m_end)
            return false;
        const char kind = *m_at++;
        char plain = 0;
        switch (kind) {
        case '"':
            plain = '"';
            break;
        case '\\':
            plain = '\\';
            break;
        case '/':
            plain = '/';
            break;
        case 'b':
            plain = '\b';
            break;
        case 'f':
            plain = '\f';
            break;
        case 'n':
            plain = '\n';
            break;
        case 'r':
            plain = '\r';
            break;
        case 't':
            plain = '\t';
            break;
        case 'u':
            return unicodeEscape(out);
        default:
            return false;
        }
        if (out)
            out->push_back(plain);
        return true;
    }

    // \uXXXX, where a high surrogate must be followed at once by an escaped low one.
    bool unicodeEscape(std::string *out)
    {
        std::optional<std::uint32_t> unit = hexQuad();
        if (!unit || (*unit >= 0xDC00 && *unit <= 0xDFFF))
            return false;
        std::uint32_t codePoint = *unit;
        if (*unit >= 0xD800 && *unit <= 0xDBFF) {
            if (!consume('\\') || !consume('u'))
                return false;
            const std::optional<std::uint32_t> low = hexQuad();
            if (!low || *low < 0xDC00 || *low > 0xDFFF)
                return false;
            codePoint = 0x10000 + ((*unit - 0xD800) << 10) + (*low - 0xDC00);
        }
        if (out)
            appendUtf8(*out, codePoint);
        return true;
    }

    static void appendUtf8(std::string &out, std::uint32_t codePoint)
    {
        if (codePoint < 0x80) {
            out.push_back(char(codePoint));
        } else if (codePoint < 0x800) {
            out.push_back(char(0xC0 | (codePoint >> 6)));
            out.push_back(char(0x80 | (codePoint & 0x3F)));
        } else if (codePoint < 0x10000) {
            out.push_back(char(0xE0 | (codePoint >> 12)));
            out.push_back(char(0x80 | ((codePoint >> 6) & 0x3F)));
            out.push_back(char(0x80 | (codePoint & 0x3F)));
        } else {
            out.push_back(char(0xF0 | (codePoint >> 18)));
            out.push_back(char(0x80 | ((codePoint >> 12) & 0x3F)));
            out.push_back(char(0x80 | ((codePoint >> 6) & 0x3F)));
            out.push_back(char(0x80 | (codePoint & 0x3F)));
        }
    }

    // One raw UTF-8 sequence of two to four bytes: shortest form, no surrogates, at most
    // U+10FFFF (the well-formed byte sequences of Unicode's table 3-7).
    bool multiByteCharacter(std::string *out)
    {
        const auto lead = static_cast<unsigned char>(*m_at);
        int length = 0;
        unsigned char low = 0x80;
        unsigned char high = 0xBF;
        if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            if (lead == 0xE0)
                low = 0xA0;
            else if (lead == 0xED)
                high = 0x9F;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4;
            if (lead == 0xF0)
                low = 0x90;
            else if (lead == 0xF4)
                high = 0x8F;
        } else {
            return false;
        }
        if (m_end - m_at < length)
            return false;
        for (int i = 1; i < length; ++i) {
            const auto byte = static_cast<unsigned char>(m_at[i]);
            const unsigned char min = i == 1 ? low : 0x80;
            const unsigned char max = i == 1 ? high : 0xBF;
            if (byte < min || byte > max)
                return false;
        }
        if (out)
            out->append(m_at, m_at + length);
        m_at += length;
        return true;
    }

    const char *m_at;
    const char *m_end;
};

} // namespace

std::optional<std::vector<JsonMember>>
readTopLevelMembers(std::string_view document, std::span<const std::string_view> keysToKeep)
{
    Reader reader(document);
    std::vector<JsonMember> kept;
    reader.skipWhitespace();
    if (!reader.object(1, keysToKeep, &kept))
        return std::nullopt;
    reader.skipWhitespace();
    if (!reader.atEnd())
        return std::nullopt;
    return kept;
}

} // namespace taskrack
