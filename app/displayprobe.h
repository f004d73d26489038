#pragma once

namespace taskrack {

// Whether an X display answers (an X server, or XWayland under a Wayland session). Windows
// need one; without it the application runs as `watch` in the terminal.
bool isDisplayReachable();

} // namespace taskrack
