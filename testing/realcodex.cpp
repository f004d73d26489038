#include "testing/realcodex.h"

#include "testing/testsupport.h"

#include <QDir>
#include <QFile>

namespace taskrack::testing {

namespace {

const char *const config = R"(model = "gpt-mock"
model_provider = "mock"
approval_policy = "never"
sandbox_mode = "danger-full-access"
check_for_update_on_startup = false
web_search = "disabled"

[model_providers.mock]
name = "Mock"
base_url = "http://127.0.0.1:%1/v1"
wire_api = "responses"
env_key = "MOCK_API_KEY"
request_max_retries = 0
stream_max_retries = 0
stream_idle_timeout_ms = 20000

[analytics]
enabled = false

[feedback]
enabled = false

# These reach out to the network at start-up; the run must stay on loopback.
[features]
plugins = false
remote_plugin = false
apps = false
plugin_sharing = false
api_key_model_discovery = false
)";

} // namespace

RealCodex::~RealCodex()
{
    m_mock.kill();
    m_mock.waitForFinished(5000);
    for (const auto &[name, value] : m_saved)
        value.isNull() ? qunsetenv(name) : qputenv(name, value);
}

RealCodex::Outcome RealCodex::start(QString &why)
{
    const QString source = sourceDir();
    QProcess installer;
    installer.start("bash", {source + "/testing/providers/install-provider.sh", "codex"});
    if (!installer.waitForFinished(600000)) {
        why = "the installer did not finish";
        return Outcome::failed;
    }
    if (installer.exitCode() == 77) {
        why = "the npm registry cannot be reached, so the Codex CLI is not installed";
        return Outcome::unavailable;
    }
    if (installer.exitCode() != 0) {
        why = QString::fromUtf8(installer.readAllStandardError());
        return Outcome::failed;
    }
    codex = QString::fromUtf8(installer.readAllStandardOutput()).trimmed().split('\n').last();
    root = m_root.path();
    home = root + "/home";
    codexHome = home + "/.codex";
    QDir().mkpath(codexHome);

    m_mock.setStandardErrorFile(QProcess::nullDevice());
    m_mock.start("python3", {source + "/testing/providers/mock_responses_server.py",
                             "--max-seconds", "600", "--log", root + "/mock.jsonl"});
    if (!m_mock.waitForReadyRead(30000)) {
        why = "the mock model server did not start";
        return Outcome::failed;
    }
    const QByteArray port = m_mock.readLine().trimmed();
    QFile file(codexHome + "/config.toml");
    if (!file.open(QIODevice::WriteOnly)) {
        why = "cannot write the Codex configuration";
        return Outcome::failed;
    }
    file.write(QString::fromLatin1(config).arg(QString::fromLatin1(port)).toUtf8());
    file.close();

    for (const char *name :
         {"HOME", "CODEX_HOME", "MOCK_API_KEY", "NO_PROXY", "no_proxy", "HTTP_PROXY", "HTTPS_PROXY",
          "ALL_PROXY", "http_proxy", "https_proxy", "all_proxy"})
        m_saved.emplace_back(name, qgetenv(name));
    qputenv("HOME", home.toUtf8());
    qputenv("CODEX_HOME", codexHome.toUtf8());
    qputenv("MOCK_API_KEY", "dummy-not-a-secret");
    qputenv("NO_PROXY", "127.0.0.1");
    qputenv("no_proxy", "127.0.0.1");
    for (const char *proxy :
         {"HTTP_PROXY", "HTTPS_PROXY", "ALL_PROXY", "http_proxy", "https_proxy", "all_proxy"})
        qunsetenv(proxy);
    return Outcome::ready;
}

} // namespace taskrack::testing
