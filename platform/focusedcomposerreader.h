#pragma once

// What another application shows in its focused text field, read through the desktop's
// accessibility interface, and the permission that reading needs. Auto-send proves with it that
// the genuine provider application holds exactly the prompt before anything is sent.

#include <QString>
#include <QtGlobal>
#include <optional>

namespace taskrack {

struct FrontmostApplication
{
    // The identifier the application is known by, and where it is installed (for the identity
    // check of WorkspaceRouting::isTrusted).
    QString identifier;
    QString application;
    qint64 processId = 0;

    bool operator==(const FrontmostApplication &) const = default;
};

struct FocusedElement
{
    // Mapped onto "AXTextArea" or "AXTextField" where the platform names its roles otherwise.
    QString role;
    QString value;
    // A platform that doesn't report it counts the element as enabled.
    bool isEnabled = true;

    bool operator==(const FocusedElement &) const = default;
};

class FocusedComposerReader
{
public:
    virtual ~FocusedComposerReader() = default;

    virtual bool isTrusted() const = 0;
    // Asks the person for the permission; whether it is granted now.
    virtual bool requestTrust() = 0;
    // Opens the desktop's settings for the permission; false with settingsError() when there are
    // none to open.
    virtual bool openSettings() = 0;
    virtual QString settingsError() const = 0;

    virtual std::optional<FrontmostApplication> frontmostApplication() const = 0;
    // Asks the application to build its accessibility tree (some only do when asked).
    virtual bool prepare(qint64 processId) = 0;
    virtual std::optional<FocusedElement> focusedElement(qint64 processId) const = 0;
};

} // namespace taskrack
