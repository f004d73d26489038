#include "app/openfilelimit.h"

#include "core/taskracklog.h"

#include <algorithm>
#include <cerrno>
#include <sys/resource.h>

namespace taskrack {

OpenFileLimit OpenFileLimit::system()
{
    OpenFileLimit limit;
    limit.read = [](int &error) -> std::optional<FileLimit> {
        rlimit current{};
        if (getrlimit(RLIMIT_NOFILE, &current) != 0) {
            error = errno;
            return std::nullopt;
        }
        return FileLimit{uint64_t(current.rlim_cur), uint64_t(current.rlim_max)};
    };
    limit.write = [](const FileLimit &wanted, int &error) {
        const rlimit next{rlim_t(wanted.soft), rlim_t(wanted.hard)};
        if (setrlimit(RLIMIT_NOFILE, &next) != 0) {
            error = errno;
            return false;
        }
        return true;
    };
    return limit;
}

std::optional<uint64_t> OpenFileLimit::raise() const
{
    int error = 0;
    const std::optional<FileLimit> current = read(error);
    if (!current) {
        qCWarning(lcApp, "getrlimit(RLIMIT_NOFILE) failed: %d", error);
        return std::nullopt;
    }
    const uint64_t wanted = std::min(target, current->hard);
    if (current->soft >= wanted)
        return std::nullopt;
    if (!write(FileLimit{wanted, current->hard}, error)) {
        qCWarning(lcApp, "setrlimit(RLIMIT_NOFILE) to %llu failed: %d",
                  static_cast<unsigned long long>(wanted), error);
        return std::nullopt;
    }
    qCInfo(lcApp, "RLIMIT_NOFILE raised from %llu to %llu",
           static_cast<unsigned long long>(current->soft), static_cast<unsigned long long>(wanted));
    return wanted;
}

} // namespace taskrack
