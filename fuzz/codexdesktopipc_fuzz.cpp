// The Codex desktop application's socket answers in length-prefixed JSON frames; whatever a peer
// sends, the decoder and the answer check either accept it or throw the client's own error.

#include "quicktask/codexdesktopipcclient.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 5)
        return 0;
    try {
        const quint32 length = taskrack::codexDesktopIPCFrameLength(data);
        if (length == 0 || length > taskrack::codexDesktopIPCMaximumFrameBytes)
            __builtin_trap();
    } catch (const taskrack::CodexDesktopIPCError &) {
    }
    // The first byte after the prefix picks the method the answer is checked against.
    const QString method = data[4] % 2 ? QStringLiteral("initialize")
                                       : QStringLiteral("thread-follower-update-thread-settings");
    const QByteArray body(reinterpret_cast<const char *>(data) + 5, qsizetype(size - 5));
    try {
        const std::optional<QString> clientId =
            taskrack::checkCodexDesktopIPCResponse(body, method);
        if (method == QLatin1String("initialize") && (!clientId || clientId->isEmpty()))
            __builtin_trap();
    } catch (const taskrack::CodexDesktopIPCError &) {
    }
    return 0;
}
