#include "hookbridge/bridgecommandline.h"

#include <string_view>

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

} // namespace taskrack
