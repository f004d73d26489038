#include "hookbridge/sessionbusaddress.h"

#include <string_view>
#include <sys/stat.h>

namespace taskrack {

namespace {

// D-Bus address values escape every byte outside a small safe set as %XX.
std::string escapedAddressValue(std::string_view value)
{
    static constexpr char hex[] = "0123456789abcdef";
    std::string escaped;
    for (const char c : value) {
        const auto byte = static_cast<unsigned char>(c);
        const bool safe = (byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'z') ||
                          (byte >= 'A' && byte <= 'Z') || c == '-' || c == '_' || c == '/' ||
                          c == '.' || c == '\\' || c == '*';
        if (safe) {
            escaped.push_back(c);
        } else {
            escaped.push_back('%');
            escaped.push_back(hex[byte >> 4]);
            escaped.push_back(hex[byte & 0xF]);
        }
    }
    return escaped;
}

} // namespace

std::optional<std::string> sessionBusAddressFromEnvironment(const char *busAddress,
                                                            const char *runtimeDirectory)
{
    if (busAddress && *busAddress) {
        const std::string_view address(busAddress);
        if (address.starts_with("autolaunch:"))
            return std::nullopt;
        return std::string(address);
    }
    if (!runtimeDirectory || !*runtimeDirectory)
        return std::nullopt;
    const std::string socket = std::string(runtimeDirectory) + "/bus";
    struct stat status
    {
    };
    if (::stat(socket.c_str(), &status) != 0)
        return std::nullopt;
    return "unix:path=" + escapedAddressValue(socket);
}

} // namespace taskrack
