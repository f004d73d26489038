// Feeds arbitrary bytes to the mount table reader of the install location check.

#include "app/appinstalllocation.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    const std::vector<taskrack::MountEntry> mounts =
        taskrack::AppInstallLocation::parseMountInfo(bytes);
    for (const taskrack::MountEntry &mount : mounts) {
        if (!mount.mountPoint.startsWith(QLatin1Char('/')))
            std::abort();
    }
    const auto mount =
        taskrack::AppInstallLocation::mountOf(QStringLiteral("/tmp/x/taskrack"), mounts);
    if (mount && !QStringLiteral("/tmp/x/taskrack").startsWith(mount->mountPoint))
        std::abort();
    return 0;
}
