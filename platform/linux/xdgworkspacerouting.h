#pragma once

#include "platform/workspacerouting.h"

#include <QProcessEnvironment>

namespace taskrack {

// Freedesktop routing: x-scheme-handler/<scheme> defaults from mimeapps.list, desktop entries
// from the XDG data folders, the program from the entry's Exec line.
class XdgWorkspaceRouting : public WorkspaceRouting
{
public:
    explicit XdgWorkspaceRouting(
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment());

    std::optional<QString> applicationForURL(const QUrl &url) const override;
    std::optional<QString> findApplication(const QStringList &names,
                                           const QStringList &searchRoots) const override;
    std::optional<QString> applicationIdentifier(const QString &application) const override;
    bool isTrusted(const QString &application, const QString &expectedIdentifier) const override;
    QCoro::Task<OpenOutcome> open(QUrl url, QString application) override;
    QCoro::Task<bool> activate(QString application) override;

    // The folders holding mimeapps.list, most important first.
    QStringList mimeAppsFiles() const;
    // The folders holding desktop entries, most important first.
    QStringList applicationFolders() const;
    // The arguments of a desktop entry's Exec line, unquoted; nothing when the entry has none
    // or it is malformed. Works on the entry's bytes so it can be fuzzed without files.
    static std::optional<QStringList> execArguments(const QByteArray &desktopEntry);
    // The desktop ids a mimeapps.list (or mimeinfo.cache) names for a MIME type, in order.
    static QStringList handlersFor(const QByteArray &mimeApps, const QString &mimeType);
    // The command line of a desktop entry with the link in place of its field codes.
    static std::optional<QStringList> commandLine(const QString &desktopEntry, const QUrl &url);
    // The program an Exec line starts, looked up on PATH.
    std::optional<QString> programOf(const QString &desktopEntry) const;

private:
    QString home() const;
    QProcessEnvironment m_environment;
};

} // namespace taskrack
