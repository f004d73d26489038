#pragma once

// Presses Return in one process and no other. All or nothing: when the key cannot be made for
// that process alone, nothing is posted.

#include <QtGlobal>

namespace taskrack {

class ProcessKeyPoster
{
public:
    virtual ~ProcessKeyPoster() = default;
    // Key down, then key up, without modifiers; false when nothing was posted.
    virtual bool postReturn(qint64 processId) = 0;
};

} // namespace taskrack
