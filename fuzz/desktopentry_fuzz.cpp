// Desktop entries and mimeapps.list files belong to whoever installed them: their parsing
// must hold up against anything.

#include "platform/linux/xdgworkspacerouting.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    if (const std::optional<QStringList> arguments =
            taskrack::XdgWorkspaceRouting::execArguments(bytes)) {
        if (arguments->isEmpty())
            __builtin_trap(); // an Exec line always names a program
    }
    taskrack::XdgWorkspaceRouting::handlersFor(bytes, QStringLiteral("x-scheme-handler/codex"));
    return 0;
}
