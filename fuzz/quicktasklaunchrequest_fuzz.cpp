// The launch helper reads its request from a FIFO; whatever arrives there must decode safely,
// and a request it accepts must survive another round trip unchanged.

#include "quicktask/quicktasklaunchrequest.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    if (const auto request = taskrack::QuickTaskLaunchRequest::decode(bytes)) {
        if (request->argv.isEmpty() ||
            taskrack::QuickTaskLaunchRequest::decode(request->encode()) != request)
            __builtin_trap();
    }
    return 0;
}
