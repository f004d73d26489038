#pragma once

// XTest types into whatever has the focus and many applications ignore XSendEvent: a key for one
// process alone cannot be made here, so none is ever posted.

#include "platform/processkeyposter.h"

namespace taskrack {

class UnavailableProcessKeyPoster : public ProcessKeyPoster
{
public:
    bool postReturn(qint64) override { return false; }
};

} // namespace taskrack
