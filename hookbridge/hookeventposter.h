#pragma once

// Posts one hook event on a D-Bus bus with libdbus alone: the signal the application's
// listener subscribes to, (s token, a{ss} fields) at the hook event path and interface.

#include <map>
#include <string>

namespace taskrack {

// Connects to `busAddress`, says Hello, sends the signal, then waits (at most `timeoutMs`) for
// the answer to a Ping to the bus. The bus handles one connection's messages in order, so once
// that answer is back the signal has been routed and can't be lost when the process exits.
// False when the bus can't be reached, refuses us, or a string is not valid UTF-8 without NUL
// (libdbus treats such a string as a programming error and aborts).
bool postHookEvent(const std::string &busAddress, const std::string &token,
                   const std::map<std::string, std::string> &fields, int timeoutMs);

} // namespace taskrack
