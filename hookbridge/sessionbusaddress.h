#pragma once

// Where the hook helper finds the session bus, without any framework.

#include <optional>
#include <string>

namespace taskrack {

// The session bus address from DBUS_SESSION_BUS_ADDRESS (`busAddress`), or else the per-user
// bus socket of systemd under XDG_RUNTIME_DIR (`runtimeDirectory`) when that socket exists.
// Either may be null. Never an autolaunch address: looking for a bus must not start one.
std::optional<std::string> sessionBusAddressFromEnvironment(const char *busAddress,
                                                            const char *runtimeDirectory);

} // namespace taskrack
