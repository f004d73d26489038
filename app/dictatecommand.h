#pragma once

// `taskrack dictate [--from FILE.wav] [--json]`: dictation from the shell through the same
// transcriber and speech gate as the Quick Task panel. The growing text goes to standard error,
// the final text to standard output at the end of the recording or when Enter is pressed.

#include <QCoro/QCoroTask>
#include <QStringList>

namespace taskrack {

QCoro::Task<int> runDictateCommand(QStringList arguments);

} // namespace taskrack
