#pragma once

#include <QByteArrayView>
#include <QJsonObject>
#include <optional>

namespace taskrack {

// The JSON object that `bytes` hold, or nothing when they are not valid JSON or hold another
// kind of value. Parses in place, without copying the bytes.
std::optional<QJsonObject> parseJsonObject(QByteArrayView bytes);

} // namespace taskrack
