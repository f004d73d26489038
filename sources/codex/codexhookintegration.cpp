#include "sources/codex/codexhookintegration.h"

namespace taskrack {

CodexHookIntegration::CodexHookIntegration(QString codexHome, CodexHookHelperFiles files,
                                           QString runningHelper, FileSystem &fileSystem)
    : m_installer(std::move(codexHome), fileSystem), m_files(std::move(files)),
      m_runningHelper(std::move(runningHelper))
{
}

QString CodexHookIntegration::helperCommand() const
{
    return codexHookCommand(m_files.helperPath());
}

CodexHookInstallationStatus CodexHookIntegration::enable()
{
    // The hooks file is checked first: a refusal there must leave no new files behind either.
    (void)m_installer.statusNow(m_files.helperPath());
    if (const std::optional<QString> problem = m_files.refreshHelper(m_runningHelper))
        throw TaskrackError(*problem);
    if (!m_files.ensureToken())
        throw TaskrackError(QStringLiteral("Taskrack could not write its Codex hook token to ") +
                            m_files.tokenPath() + QStringLiteral("."));
    return m_installer.installNow(m_files.helperPath());
}

CodexHookInstallationStatus CodexHookIntegration::disable()
{
    return m_installer.removeNow();
}

CodexHookInstallationStatus CodexHookIntegration::remove()
{
    const CodexHookInstallationStatus status = m_installer.removeNow();
    m_files.removeToken();
    m_files.removeHelper();
    return status;
}

CodexHookInstallationStatus CodexHookIntegration::status() const
{
    const CodexHookInstallationStatus status = m_installer.statusNow(m_files.helperPath());
    if (status == CodexHookInstallationStatus::enabled && !m_files.token())
        return CodexHookInstallationStatus::needsRepair;
    return status;
}

QString CodexHookIntegration::summary(CodexHookInstallationStatus status)
{
    switch (status) {
    case CodexHookInstallationStatus::notInstalled:
        return QStringLiteral("Live Codex status is off.");
    case CodexHookInstallationStatus::enabled:
        return QStringLiteral("Live Codex status is on.");
    case CodexHookInstallationStatus::needsRepair:
        return QStringLiteral("Live Codex status needs repair: some of Taskrack’s Codex hooks "
                              "are missing or changed. Enable it again.");
    case CodexHookInstallationStatus::helperMissing:
        return QStringLiteral("Live Codex status needs repair: Taskrack’s hook helper is "
                              "missing. Enable it again.");
    }
    return {};
}

} // namespace taskrack
