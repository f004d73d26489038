#pragma once

#include <QLoggingCategory>

namespace taskrack {
Q_DECLARE_LOGGING_CATEGORY(lcVoice)
}
