#pragma once

// X11 can read a focused field through AT-SPI2 but cannot deliver a key to one process only, and
// neither provider has a desktop application here: the reader reports itself unavailable, so
// auto-send on the deep-link route fails closed and the task stays prefilled.

#include "platform/focusedcomposerreader.h"

namespace taskrack {

class UnavailableFocusedComposerReader : public FocusedComposerReader
{
public:
    bool isTrusted() const override { return false; }
    bool requestTrust() override { return false; }
    bool openSettings() override { return false; }
    QString settingsError() const override
    {
        return QStringLiteral("Automatic sending isn't available on this desktop.");
    }
    std::optional<FrontmostApplication> frontmostApplication() const override { return {}; }
    bool prepare(qint64) override { return false; }
    std::optional<FocusedElement> focusedElement(qint64) const override { return {}; }
};

} // namespace taskrack
