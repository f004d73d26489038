#include "hookbridge/bridgecommandline.h"

#include <climits>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace taskrack {

std::optional<std::string> hookBridgeToken(int argc, const char *const *argv)
{
    std::optional<std::string_view> owner;
    std::optional<std::string_view> token;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string_view option(argv[i]);
        if (option == "--taskrack-owner")
            owner = argv[i + 1];
        else if (option == "--token")
            token = argv[i + 1];
        else
            return std::nullopt;
    }
    if (owner != "com.quillon.Taskrack" || !token || token->empty())
        return std::nullopt;
    return std::string(*token);
}

bool isCodexInvocation(int argc, const char *const *argv)
{
    return argc == 2 && std::string_view(argv[1]) == "--codex";
}

std::optional<std::string> codexHookToken(const std::string &executablePath)
{
    const std::size_t binSlash = executablePath.rfind('/');
    if (binSlash == std::string::npos || binSlash == 0)
        return std::nullopt;
    const std::size_t dataSlash = executablePath.rfind('/', binSlash - 1);
    if (dataSlash == std::string::npos)
        return std::nullopt;
    const std::string path = executablePath.substr(0, dataSlash) + "/codex-hook-token";
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0)
        return std::nullopt;
    struct stat info
    {
    };
    std::string token;
    if (::fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == ::geteuid() &&
        (info.st_mode & 077) == 0 && info.st_size >= 16 && info.st_size <= 256) {
        token.resize(std::size_t(info.st_size));
        if (::read(descriptor, token.data(), token.size()) != info.st_size)
            token.clear();
    }
    ::close(descriptor);
    if (token.empty())
        return std::nullopt;
    return token;
}

std::string currentExecutablePath()
{
    char buffer[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", buffer, sizeof buffer);
    if (length <= 0 || std::size_t(length) >= sizeof buffer)
        return {};
    return std::string(buffer, std::size_t(length));
}

} // namespace taskrack
