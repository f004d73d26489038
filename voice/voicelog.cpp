#include "voice/voicelog.h"

namespace taskrack {
Q_LOGGING_CATEGORY(lcVoice, "com.quillon.Taskrack.voice", QtInfoMsg)
}
