#include "quicktask/quicktasklog.h"

namespace taskrack {
Q_LOGGING_CATEGORY(lcQuickTask, "com.quillon.Taskrack.quicktask", QtInfoMsg)
}
