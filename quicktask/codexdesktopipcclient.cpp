#include "quicktask/codexdesktopipcclient.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QUuid>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace taskrack {

namespace {

using Error = CodexDesktopIPCError;
using Clock = std::chrono::steady_clock;

const QString initializeMethod = QStringLiteral("initialize");
const QString updateMethod = QStringLiteral("thread-follower-update-thread-settings");
constexpr int maximumFrames = 64;

QString systemText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

// Shut down in both directions and closed on every path once created.
struct Socket
{
    int fd = -1;
    ~Socket()
    {
        if (fd >= 0) {
            ::shutdown(fd, SHUT_RDWR);
            ::close(fd);
        }
    }
};

void checkOwnership(const struct stat &status, uid_t user, const char *noun)
{
    if (status.st_uid != user)
        throw Error::rejected(
            QStringLiteral("The local IPC %1 is owned by another user.").arg(QLatin1String(noun)));
    if ((status.st_mode & 0077) != 0)
        throw Error::rejected(QStringLiteral("The local IPC %1 is accessible to other users.")
                                  .arg(QLatin1String(noun)));
}

struct stat validateEndpoint(const QByteArray &path, uid_t user)
{
    struct stat socketStatus = {};
    if (::lstat(path.constData(), &socketStatus) != 0)
        throw Error::unavailable(QStringLiteral("Could not find Codex Desktop's local socket: ") +
                                 systemText(errno));
    if (!S_ISSOCK(socketStatus.st_mode))
        throw Error::rejected(QStringLiteral("The expected endpoint is not a Unix socket."));
    checkOwnership(socketStatus, user, "socket");
    const QByteArray parent = QFile::encodeName(QFileInfo(QFile::decodeName(path)).path());
    struct stat parentStatus = {};
    if (::lstat(parent.constData(), &parentStatus) != 0)
        throw Error::unavailable(
            QStringLiteral("Could not inspect Codex Desktop's IPC directory: ") +
            systemText(errno));
    if (!S_ISDIR(parentStatus.st_mode))
        throw Error::rejected(QStringLiteral("Codex Desktop's IPC parent is not a directory."));
    checkOwnership(parentStatus, user, "directory");
    return socketStatus;
}

std::optional<uid_t> socketPeerUser(int fd)
{
    struct ucred credentials = {};
    socklen_t length = sizeof(credentials);
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0)
        return std::nullopt;
    return credentials.uid;
}

class Exchange
{
public:
    Exchange(int fd, int timeoutMilliseconds) : m_fd(fd), m_timeout(timeoutMilliseconds) {}

    void writeFrame(const QJsonObject &message)
    {
        const QByteArray body = QJsonDocument(message).toJson(QJsonDocument::Compact);
        if (body.isEmpty() || body.size() > qsizetype(codexDesktopIPCMaximumFrameBytes))
            throw Error::malformedResponse();
        const quint32 length = quint32(body.size());
        QByteArray frame(4, Qt::Uninitialized);
        for (int i = 0; i < 4; ++i)
            frame[i] = char((length >> (8 * i)) & 0xff);
        frame += body;
        qsizetype sent = 0;
        while (sent < frame.size()) {
            // Never a SIGPIPE from a peer that went away.
            const ssize_t n =
                ::send(m_fd, frame.constData() + sent, size_t(frame.size() - sent), MSG_NOSIGNAL);
            if (n < 0 && errno == EINTR)
                continue;
            if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
                throw Error::timedOut();
            if (n < 0)
                throw Error::unavailable(
                    QStringLiteral("Could not write Codex Desktop's IPC response: ") +
                    systemText(errno));
            sent += n;
        }
    }

    // Sends `message` and reads frames until the one that answers it, replying to discovery
    // requests on the way.
    QJsonObject request(const QJsonObject &message)
    {
        writeFrame(message);
        const QString requestId = message.value(QLatin1String("requestId")).toString();
        m_deadline = Clock::now() + std::chrono::milliseconds(std::max(m_timeout, 1)) +
                     std::chrono::seconds(1);
        for (int frames = 0; frames < maximumFrames; ++frames) {
            const QByteArray body = readFrame();
            const QJsonDocument document = QJsonDocument::fromJson(body);
            if (!document.isObject())
                throw Error::malformedResponse();
            const QJsonObject frame = document.object();
            const QJsonValue id = frame.value(QLatin1String("requestId"));
            if (frame.value(QLatin1String("type")) == QLatin1String("client-discovery-request") &&
                id.isString()) {
                // This client never takes work from the desktop application's bus.
                writeFrame({{QStringLiteral("type"), QStringLiteral("client-discovery-response")},
                            {QStringLiteral("requestId"), id},
                            {QStringLiteral("response"),
                             QJsonObject{{QStringLiteral("canHandle"), false}}}});
                continue;
            }
            if (id.isString() && id.toString() == requestId)
                return frame;
        }
        throw Error::timedOut();
    }

private:
    QByteArray readFrame()
    {
        uchar prefix[4];
        readExactly(reinterpret_cast<char *>(prefix), 4);
        // An oversized length fails before a byte of its body is read.
        const quint32 length = codexDesktopIPCFrameLength(prefix);
        QByteArray body(qsizetype(length), Qt::Uninitialized);
        readExactly(body.data(), length);
        return body;
    }

    void readExactly(char *data, size_t count)
    {
        size_t received = 0;
        while (received < count) {
            // The deadline bounds the whole read, so a peer that trickles a byte at a time
            // cannot stretch it.
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(m_deadline - Clock::now());
            if (left.count() <= 0)
                throw Error::timedOut();
            struct pollfd ready = {m_fd, POLLIN, 0};
            const int polled = ::poll(&ready, 1, int(left.count()));
            if (polled < 0 && errno == EINTR)
                continue;
            if (polled == 0)
                throw Error::timedOut();
            const ssize_t n = ::recv(m_fd, data + received, count - received, 0);
            if (n < 0 && errno == EINTR)
                continue;
            if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
                throw Error::timedOut();
            if (n < 0 || polled < 0)
                throw Error::unavailable(
                    QStringLiteral("Could not read Codex Desktop's IPC response: ") +
                    systemText(errno));
            if (n == 0)
                throw Error::unavailable(
                    QStringLiteral("The local socket closed before acknowledging settings."));
            received += size_t(n);
        }
    }

    int m_fd;
    int m_timeout;
    Clock::time_point m_deadline;
};

QJsonObject requestMessage(const QString &method, const QString &sourceClientId, int version,
                           const QJsonObject &params, int timeoutMilliseconds)
{
    return {{QStringLiteral("type"), QStringLiteral("request")},
            {QStringLiteral("requestId"), QUuid::createUuid().toString(QUuid::WithoutBraces)},
            {QStringLiteral("sourceClientId"), sourceClientId},
            {QStringLiteral("version"), version},
            {QStringLiteral("method"), method},
            {QStringLiteral("params"), params},
            {QStringLiteral("timeoutMs"), timeoutMilliseconds}};
}

Error classifiedError(const QJsonValue &error)
{
    QString code = QStringLiteral("unknown-error");
    QString message;
    if (error.isObject()) {
        const QJsonValue value = error.toObject().value(QLatin1String("code"));
        code = value.isString()   ? value.toString()
               : value.isDouble() ? QString::number(value.toDouble())
                                  : code;
        message = error.toObject().value(QLatin1String("message")).toString();
    } else if (error.isString()) {
        code = error.toString();
    }
    const QString text = (message.isEmpty() ? code : code + QLatin1Char(' ') + message).toLower();
    const auto has = [&](std::initializer_list<const char *> words) {
        return std::any_of(words.begin(), words.end(),
                           [&](const char *word) { return text.contains(QLatin1String(word)); });
    };
    if (has({"timeout"}))
        return Error::timedOut();
    if (has({"no-client-found", "client-disconnected", "not ready"}))
        return Error::unavailable(text);
    if (has({"version", "no-handler", "unsupported"}))
        return Error::unsupported(text);
    return Error::rejected(text);
}

} // namespace

static std::optional<QString> checkResponse(const QJsonObject &response, const QString &method);

CodexDesktopIPCError::CodexDesktopIPCError(Kind kind, const QString &description, QString detail)
    : TaskrackError(description), m_kind(kind), m_detail(std::move(detail))
{
}

Error Error::unavailable(const QString &detail)
{
    return Error(Kind::unavailable, "Codex Desktop's task owner is not ready: " + detail, detail);
}

Error Error::unsupported(const QString &detail)
{
    return Error(Kind::unsupported,
                 "This Codex Desktop build does not support Taskrack's per-task settings "
                 "handoff: " +
                     detail,
                 detail);
}

Error Error::rejected(const QString &detail)
{
    return Error(Kind::rejected, "Codex Desktop rejected the per-task settings: " + detail, detail);
}

Error Error::timedOut()
{
    return Error(Kind::timedOut,
                 QStringLiteral("Codex Desktop did not acknowledge the task settings in time."),
                 {});
}

Error Error::malformedResponse()
{
    return Error(Kind::malformedResponse,
                 QStringLiteral("Codex Desktop returned an unreadable settings acknowledgement."),
                 {});
}

QString CodexDesktopIPCError::category() const
{
    switch (m_kind) {
    case Kind::unavailable:
        return QStringLiteral("desktop-unavailable");
    case Kind::unsupported:
        return QStringLiteral("desktop-unsupported");
    case Kind::rejected:
        return QStringLiteral("desktop-rejected");
    case Kind::timedOut:
        return QStringLiteral("desktop-timeout");
    case Kind::malformedResponse:
        return QStringLiteral("desktop-malformed-response");
    }
    return QStringLiteral("unexpected-error");
}

quint32 codexDesktopIPCFrameLength(const uchar prefix[4])
{
    const quint32 length = quint32(prefix[0]) | quint32(prefix[1]) << 8 | quint32(prefix[2]) << 16 |
                           quint32(prefix[3]) << 24;
    if (length == 0 || length > codexDesktopIPCMaximumFrameBytes)
        throw Error::malformedResponse();
    return length;
}

std::optional<QString> checkCodexDesktopIPCResponse(const QByteArray &body, const QString &method)
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (!document.isObject())
        throw Error::malformedResponse();
    return checkResponse(document.object(), method);
}

static std::optional<QString> checkResponse(const QJsonObject &response, const QString &method)
{
    if (response.value(QLatin1String("resultType")) != QLatin1String("success") ||
        response.value(QLatin1String("method")) != method)
        throw classifiedError(response.value(QLatin1String("error")));
    const QJsonValue result = response.value(QLatin1String("result"));
    if (method == initializeMethod) {
        const QJsonValue clientId = result.toObject().value(QLatin1String("clientId"));
        if (!clientId.isString() || clientId.toString().isEmpty())
            throw Error::malformedResponse();
        return clientId.toString();
    }
    if (!result.isObject())
        throw Error::rejected(QStringLiteral("The settings request was not acknowledged."));
    const QJsonObject acknowledgement = result.toObject();
    if (acknowledgement.value(QLatin1String("ok")) == QJsonValue(true) ||
        acknowledgement.value(QLatin1String("applied")) == QJsonValue(true))
        return std::nullopt;
    if (acknowledgement.value(QLatin1String("applied")) == QJsonValue(false))
        throw Error::rejected(QStringLiteral("The task was not ready to take its settings."));
    throw Error::rejected(QStringLiteral("The settings request was not acknowledged."));
}

QString CodexDesktopIPCClient::socketPathUnder(const QString &homeDirectory)
{
    return QDir(homeDirectory).filePath(QStringLiteral(".codex/ipc/ipc.sock"));
}

CodexDesktopIPCClient::CodexDesktopIPCClient(Options options) : m_options(std::move(options))
{
    if (!m_options.effectiveUser)
        m_options.effectiveUser = [] { return ::geteuid(); };
    if (!m_options.peerUser)
        m_options.peerUser = socketPeerUser;
}

void CodexDesktopIPCClient::updateThreadSettings(
    const QuickTaskCodexSubmissionContext &context) const
{
    const uid_t user = m_options.effectiveUser();
    const QByteArray path = QFile::encodeName(m_options.socketPath);
    const struct stat endpoint = validateEndpoint(path, user);

    Socket socket;
    socket.fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (socket.fd < 0)
        throw Error::unavailable(QStringLiteral("Could not open Codex Desktop's local socket: ") +
                                 systemText(errno));
    const int ms = m_options.timeoutMilliseconds;
    struct timeval timeout = {ms / 1000, (ms % 1000) * 1000};
    if (ms < 2)
        timeout = {0, 1000};
    if (::setsockopt(socket.fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout)) != 0 ||
        ::setsockopt(socket.fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof(timeout)) != 0)
        throw Error::unavailable(QStringLiteral("Could not set Codex Desktop's IPC timeout: ") +
                                 systemText(errno));

    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    // The path and its terminating zero must fit.
    if (size_t(path.size()) >= sizeof(address.sun_path))
        throw Error::unsupported(QStringLiteral("The local socket path is too long."));
    std::memcpy(address.sun_path, path.constData(), size_t(path.size()));
    if (::connect(socket.fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0)
        throw Error::unavailable(QStringLiteral("Could not connect to Codex Desktop: ") +
                                 systemText(errno));

    const std::optional<uid_t> peer = m_options.peerUser(socket.fd);
    if (!peer || *peer != user)
        throw Error::rejected(
            QStringLiteral("The local IPC peer is not owned by the current user."));
    struct stat now = {};
    if (::lstat(path.constData(), &now) != 0 || now.st_dev != endpoint.st_dev ||
        now.st_ino != endpoint.st_ino)
        throw Error::rejected(
            QStringLiteral("Codex Desktop's local socket changed while connecting."));
    checkOwnership(now, user, "socket");

    Exchange exchange(socket.fd, ms);
    const QJsonObject introduced = exchange.request(
        requestMessage(initializeMethod, QStringLiteral("initializing-client"), 0,
                       {{QStringLiteral("clientType"), QStringLiteral("taskrack")}}, ms));
    const QString clientId = *checkResponse(introduced, initializeMethod);

    QJsonObject settings{{QStringLiteral("cwd"), QDir::cleanPath(context.workingDirectory)},
                         {QStringLiteral("model"), context.configuration.model}};
    if (context.configuration.reasoningEffort)
        settings.insert(QStringLiteral("effort"), *context.configuration.reasoningEffort);
    const QJsonObject acknowledged = exchange.request(
        requestMessage(updateMethod, clientId, 1,
                       {{QStringLiteral("conversationId"), context.threadIdentifier},
                        {QStringLiteral("threadSettings"), settings}},
                       ms));
    checkResponse(acknowledged, updateMethod);
}

} // namespace taskrack
