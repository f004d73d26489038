#pragma once

// The JSON document type for files of other programs that Taskrack reads and rewrites (Claude
// Code's settings, Codex's hooks file). It keeps what it read without loss: a 64-bit integer stays
// an integer, a number with a fraction stays a number, every string and key survives byte for byte.
// Reading is strict: anything a careful writer could not reproduce exactly (duplicate keys, invalid
// UTF-8, lone surrogates, numbers out of range) is refused rather than silently changed.

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QtGlobal>
#include <cstddef>
#include <map>
#include <optional>
#include <variant>
#include <vector>

namespace taskrack {

class JSONValue
{
public:
    enum class Kind { null, boolean, integer, number, string, array, object };
    using Array = std::vector<JSONValue>;
    // Keys are held sorted; writing in this order is what makes the output stable.
    using Object = std::map<QString, JSONValue>;

    JSONValue() = default;
    JSONValue(std::nullptr_t) {}
    JSONValue(bool value) : m_value(value) {}
    JSONValue(int value) : m_value(qint64(value)) {}
    JSONValue(qint64 value) : m_value(value) {}
    JSONValue(double value) : m_value(value) {}
    JSONValue(QString value) : m_value(std::move(value)) {}
    JSONValue(const char *utf8) : m_value(QString::fromUtf8(utf8)) {}
    JSONValue(Array value) : m_value(std::move(value)) {}
    JSONValue(Object value) : m_value(std::move(value)) {}

    Kind kind() const { return Kind(m_value.index()); }
    bool isNull() const { return kind() == Kind::null; }

    // Each accessor gives the value when the kind matches, otherwise nullptr.
    const bool *boolean() const { return std::get_if<bool>(&m_value); }
    const qint64 *integer() const { return std::get_if<qint64>(&m_value); }
    const double *number() const { return std::get_if<double>(&m_value); }
    const QString *string() const { return std::get_if<QString>(&m_value); }
    const Array *array() const { return std::get_if<Array>(&m_value); }
    const Object *object() const { return std::get_if<Object>(&m_value); }
    Array *array() { return std::get_if<Array>(&m_value); }
    Object *object() { return std::get_if<Object>(&m_value); }

    // Integers and numbers are different kinds: 1 and 1.0 are not equal.
    bool operator==(const JSONValue &other) const = default;

    // Parses one JSON text (RFC 8259) and nothing after it but whitespace. Nesting deeper than
    // `maxDepth` is refused so that the recursion stays bounded whatever the caller checked.
    static std::optional<JSONValue> parse(QByteArrayView utf8, int maxDepth = 512);

    // Pretty UTF-8 with two-space indentation, keys in sorted order, slashes and non-ASCII
    // left unescaped, and a final newline. Numbers always keep a fraction or an exponent so
    // that reading the output gives back the same kinds.
    QByteArray toPrettyJSON() const;

private:
    std::variant<std::nullptr_t, bool, qint64, double, QString, Array, Object> m_value;
};

} // namespace taskrack
