#pragma once

// Events that reach the sources from outside them, such as Claude Code's hooks over the session
// bus. The runtime starts them after the sources' loops and stops them before the sources.

namespace taskrack {

class SourceEventFeed
{
public:
    virtual ~SourceEventFeed() = default;
    virtual void start() = 0;
    virtual void stop() = 0;
    // Reads again what may have changed meanwhile: after a wake, or when another process
    // changed the preferences.
    virtual void refresh() = 0;
};

} // namespace taskrack
