#pragma once

// The pinned Codex CLI run for real and offline: installed from the npm registry into a cache
// folder, a mock Responses API on 127.0.0.1, a temporary HOME and CODEX_HOME, and this
// process's environment pointed at them (children inherit it, as they would the user's) for as
// long as the object lives.

#include <QProcess>
#include <QString>
#include <QTemporaryDir>
#include <utility>
#include <vector>

namespace taskrack::testing {

class RealCodex
{
public:
    enum class Outcome { ready, unavailable, failed };

    RealCodex() = default;
    ~RealCodex();
    RealCodex(const RealCodex &) = delete;
    RealCodex &operator=(const RealCodex &) = delete;

    // `unavailable`: the registry cannot be reached (a test skips, unless CI is set).
    Outcome start(QString &why);

    qint64 mockProcessId() const { return m_mock.processId(); }

    QString codex;
    QString home;
    QString codexHome;
    QString root;

private:
    QTemporaryDir m_root;
    QProcess m_mock;
    std::vector<std::pair<const char *, QByteArray>> m_saved;
};

} // namespace taskrack::testing
