// taskrack-hook-bridge: what Claude Code's hooks run. It reads the hook's JSON from standard
// input, keeps only what identifies the session and the event (the prompt and every other
// private text are never read), and broadcasts that on the session bus with the token it was
// given, for a running Taskrack to pick up.
//
// It must post within milliseconds: Claude Code kills a hook still running when a print-mode
// session exits. It never writes to standard output, never complains, and exits 0 whatever
// happens: a lost event only means the transcript watcher notices the change a little later.

#include "platform/hookeventtransport.h"
#include "platform/linux/dbushookeventtransport.h"
#include "sources/claude/claudehookevent.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QJsonDocument>
#include <QMap>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <poll.h>
#include <unistd.h>

namespace {

using namespace taskrack;

constexpr char ownerName[] = "com.quillon.Taskrack";
// Generous for one JSON object already written into a pipe, short against a hook timeout.
constexpr auto inputDeadline = std::chrono::milliseconds(1500);
constexpr int busCallTimeoutMs = 1000;

void discardMessages(QtMsgType, const QMessageLogContext &, const QString &) {}

std::optional<QString> tokenFromArguments(int argc, char **argv)
{
    std::optional<QString> owner;
    std::optional<QString> token;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--taskrack-owner") == 0)
            owner = QString::fromUtf8(argv[i + 1]);
        else if (std::strcmp(argv[i], "--token") == 0)
            token = QString::fromUtf8(argv[i + 1]);
        else
            return std::nullopt;
    }
    if (owner != QLatin1String(ownerName) || !token || token->isEmpty())
        return std::nullopt;
    return token;
}

// A writer that keeps the pipe open after its object must not hold the helper: a buffer that
// ends in a complete object is enough.
bool holdsCompleteObject(const QByteArray &buffer)
{
    const QByteArray trimmed = buffer.trimmed();
    if (!trimmed.endsWith('}'))
        return false;
    QJsonParseError error;
    QJsonDocument::fromJson(trimmed, &error);
    return error.error == QJsonParseError::NoError;
}

std::optional<QByteArray> readStandardInput()
{
    const auto deadline = std::chrono::steady_clock::now() + inputDeadline;
    QByteArray buffer;
    char chunk[65536];
    while (true) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            return std::nullopt;
        pollfd input{STDIN_FILENO, POLLIN, 0};
        const int ready = ::poll(&input, 1, int(left.count()));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            return std::nullopt;
        const ssize_t count = ::read(STDIN_FILENO, chunk, sizeof chunk);
        if (count < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        if (count < 0)
            return std::nullopt;
        if (count == 0)
            return buffer;
        if (buffer.size() + count > claudeHookInputMaximumBytes)
            return std::nullopt;
        buffer.append(chunk, count);
        if (holdsCompleteObject(buffer))
            return buffer;
    }
}

void post(const QString &token, const ClaudeHookEvent &event)
{
    const std::optional<QString> address = sessionBusAddress();
    if (!address)
        return;
    const QString connectionName = QStringLiteral("taskrack-hook-bridge");
    {
        QDBusConnection bus = QDBusConnection::connectToBus(*address, connectionName);
        if (bus.isConnected()) {
            qDBusRegisterMetaType<QMap<QString, QString>>();
            QDBusMessage signal = QDBusMessage::createSignal(
                QString::fromLatin1(hookEventDBusPath), QString::fromLatin1(hookEventDBusInterface),
                QString::fromLatin1(hookEventDBusSignal));
            signal << token << QVariant::fromValue(claudeHookNotificationFields(event));
            if (bus.send(signal)) {
                // The bus handles one connection's messages in order: once this answer is
                // back, the signal has left the process and can't be lost at exit.
                bus.call(QDBusMessage::createMethodCall(
                             QStringLiteral("org.freedesktop.DBus"),
                             QStringLiteral("/org/freedesktop/DBus"),
                             QStringLiteral("org.freedesktop.DBus.Peer"), QStringLiteral("Ping")),
                         QDBus::Block, busCallTimeoutMs);
            }
        }
    }
    QDBusConnection::disconnectFromBus(connectionName);
}

} // namespace

int main(int argc, char **argv)
{
    qInstallMessageHandler(discardMessages);
    const std::optional<QString> token = tokenFromArguments(argc, argv);
    if (!token)
        return 0;
    const std::optional<QByteArray> input = readStandardInput();
    if (!input)
        return 0;
    const std::optional<ClaudeHookEvent> event = decodeClaudeHookInput(*input);
    if (!event)
        return 0;
    QCoreApplication application(argc, argv);
    post(*token, *event);
    return 0;
}
