#include "voice/quicktaskmodelmanager.h"

#include "core/taskrackerror.h"
#include "voice/voicelog.h"

#include <QCoro/QCoroFuture>
#include <QCoro/QCoroSignal>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHostAddress>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QSaveFile>
#include <QScopeGuard>
#include <QStandardPaths>
#include <QTimer>
#include <QtConcurrent>
#include <cerrno>
#include <openssl/evp.h>

namespace taskrack {

const QString QuickTaskModelManager::installedPathKey =
    QStringLiteral("quickTask.whisperLargeV3.installedPath");
const QString QuickTaskModelManager::manifestName = QStringLiteral("taskrack-model-manifest.json");
const QString QuickTaskModelManager::downloadFailedText =
    QStringLiteral("The speech model could not be downloaded. Check your connection and try "
                   "again. You can still type Quick Tasks.");
const QString QuickTaskModelManager::storageFailedText = QStringLiteral(
    "The speech model couldn't be saved on this computer. Free some disk space or check access "
    "to its folder, then try again. You can still type Quick Tasks.");
const QString QuickTaskModelManager::integrityCheckFailedText =
    QStringLiteral("The speech model failed its security check and was removed. Download it "
                   "again. You can still type Quick Tasks.");
const QString QuickTaskModelManager::invalidModelContentsText = QStringLiteral(
    "The downloaded Whisper model is incomplete or corrupt. Remove it and download it again.");
const QString QuickTaskModelManager::installRecordFailedText =
    QStringLiteral("The verified speech model could not be saved for use. Check available disk "
                   "access and try again. You can still type Quick Tasks.");
const QString QuickTaskModelManager::downloadInProgressText =
    QStringLiteral("Wait for the model download to finish before removing it.");

namespace {

constexpr qint64 hashBlock = 1024 * 1024;

bool isStorageError(int error)
{
    return error == ENOSPC || error == EDQUOT || error == EACCES || error == EROFS ||
           error == EPERM;
}

// Hashes a file in 1 MiB blocks; empty when it cannot be read.
QString sha256Of(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    EVP_MD_CTX *context = EVP_MD_CTX_new();
    EVP_DigestInit_ex(context, EVP_sha256(), nullptr);
    QByteArray block(hashBlock, Qt::Uninitialized);
    for (;;) {
        const qint64 got = file.read(block.data(), hashBlock);
        if (got < 0) {
            EVP_MD_CTX_free(context);
            return {};
        }
        if (got == 0)
            break;
        EVP_DigestUpdate(context, block.constData(), size_t(got));
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_DigestFinal_ex(context, digest, &length);
    EVP_MD_CTX_free(context);
    return QString::fromLatin1(
        QByteArray(reinterpret_cast<const char *>(digest), int(length)).toHex());
}

bool isStrictlyInside(const QString &path, const QString &root)
{
    return path.startsWith(root + QLatin1Char('/'));
}

} // namespace

QuickTaskModelManager::QuickTaskModelManager(Dependencies dependencies, QObject *parent)
    : QuickTaskModelManaging(parent), m_deps(std::move(dependencies))
{
    if (m_deps.provenanceRecord) {
        auto decoded = QuickTaskModelProvenance::decode(*m_deps.provenanceRecord);
        if (auto *record = std::get_if<QuickTaskModelProvenance>(&decoded))
            m_provenance = *record;
    }
    restore();
}

QuickTaskModelManager::~QuickTaskModelManager()
{
    m_quitting = true;
}

QString QuickTaskModelManager::defaultBaseDirectory()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QStringLiteral("/taskrack/QuickTaskModels/WhisperLargeV3");
}

std::optional<QByteArray> QuickTaskModelManager::bundledProvenance()
{
    // Digests cannot be recorded without the files; until scripts/write-model-provenance.py has
    // written one from a snapshot, no record ships and downloads say so.
    QFile resource(QStringLiteral(":/voice/quicktask-model-provenance.json"));
    if (!resource.open(QIODevice::ReadOnly))
        return std::nullopt;
    return resource.readAll();
}

QString QuickTaskModelManager::modelFolder() const
{
    return m_deps.baseDirectory + QStringLiteral("/models/") +
           QuickTaskModelProvenance::expectedModel().repository + QLatin1Char('/') +
           QuickTaskModelProvenance::expectedModel().directory;
}

void QuickTaskModelManager::setState(QuickTaskModelState state)
{
    if (m_state == state)
        return;
    m_state = std::move(state);
    Q_EMIT stateChanged();
}

void QuickTaskModelManager::restore()
{
    QFile file(m_deps.baseDirectory + QLatin1Char('/') + manifestName);
    const std::optional<QString> recorded = m_deps.preferences.string(installedPathKey);
    std::optional<QuickTaskModelManifest> manifest;
    if (file.open(QIODevice::ReadOnly) && file.size() < 64 * 1024)
        manifest = QuickTaskModelManifest::decode(file.readAll());
    const QString base = QFileInfo(m_deps.baseDirectory).canonicalFilePath();
    const QString folder =
        manifest ? QFileInfo(m_deps.baseDirectory + QLatin1Char('/') + manifest->relativePath)
                       .canonicalFilePath()
                 : QString();
    const bool fits =
        m_provenance && manifest && recorded && !base.isEmpty() &&
        manifest->variant == QuickTaskModelProvenance::variant &&
        manifest->provenanceIdentifier == m_provenance->identifier() &&
        isStrictlyInside(folder, base) && QFileInfo(folder).isDir() &&
        folder.endsWith(QLatin1Char('/') + QuickTaskModelProvenance::expectedModel().directory);
    if (fits) {
        m_installedModelPath = folder;
        setState({QuickTaskModelState::Kind::ready, 0, {}});
    } else {
        m_deps.preferences.remove(installedPathKey);
        setState({});
    }
}

bool QuickTaskModelManager::hasIncompleteDownload() const
{
    return !QDir(m_deps.baseDirectory)
                .isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden) &&
           QFileInfo(m_deps.baseDirectory).isDir();
}

QString QuickTaskModelManager::statusText() const
{
    switch (m_state.kind) {
    case QuickTaskModelState::Kind::downloading:
        return QStringLiteral("Downloading %1%").arg(qRound(m_state.progress * 100));
    case QuickTaskModelState::Kind::failed:
        return m_state.message;
    case QuickTaskModelState::Kind::notDownloaded:
        return hasIncompleteDownload() ? QStringLiteral("Download incomplete")
                                       : QStringLiteral("Not downloaded");
    case QuickTaskModelState::Kind::ready:
        return QStringLiteral("Ready");
    case QuickTaskModelState::Kind::removing:
        return QStringLiteral("Removing…");
    }
    return {};
}

QCoro::Task<void> QuickTaskModelManager::download()
{
    using Kind = QuickTaskModelState::Kind;
    if (!m_provenance) {
        setState({Kind::failed, 0, QuickTaskModelProvenance::unavailableText});
        co_return;
    }
    if (m_state.kind != Kind::notDownloaded && m_state.kind != Kind::failed)
        co_return;
    QPointer<QuickTaskModelManager> self(this);
    setState({Kind::downloading, 0, {}});
    try {
        const QUrl endpoint = m_deps.endpoint;
        const bool loopback = QHostAddress(endpoint.host()).isLoopback();
        if (endpoint.scheme() != QLatin1String("https") &&
            !(endpoint.scheme() == QLatin1String("http") && loopback))
            throw TaskrackError(downloadFailedText);
        if (!QDir().mkpath(m_deps.baseDirectory))
            throw TaskrackError(storageFailedText);
        qint64 total = 0;
        for (const auto *artifact : {&m_provenance->model, &m_provenance->tokenizer})
            for (const QuickTaskModelFileDigest &file : artifact->files)
                total += file.byteCount;
        qint64 done = 0;
        const QuickTaskModelProvenance provenance = *m_provenance;
        std::vector<std::pair<const QuickTaskModelArtifact *, QuickTaskModelFileDigest>> files;
        for (const QuickTaskModelFileDigest &file : provenance.model.files)
            files.emplace_back(&provenance.model, file);
        for (const QuickTaskModelFileDigest &file : provenance.tokenizer.files)
            files.emplace_back(&provenance.tokenizer, file);
        for (size_t i = 0; i < files.size(); ++i) {
            auto fetching = fetch(*files[i].first, files[i].second,
                                  files[i].first == &provenance.model, done, total);
            co_await fetching;
            if (!self)
                co_return;
        }
        auto verifying = verify();
        co_await verifying;
        if (!self)
            co_return;
        writeRecord();
        m_installedModelPath = QFileInfo(modelFolder()).canonicalFilePath();
        setState({Kind::ready, 0, {}});
    } catch (...) {
        if (!self || m_quitting)
            co_return;
        m_deps.preferences.remove(installedPathKey);
        m_installedModelPath.reset();
        const std::exception_ptr error = std::current_exception();
        qCWarning(lcVoice) << "Speech model download failed; details omitted";
        setState({Kind::failed, 0,
                  isCancellation(error) ? downloadFailedText : describeException(error)});
    }
}

QCoro::Task<void> QuickTaskModelManager::fetch(const QuickTaskModelArtifact &artifact,
                                               const QuickTaskModelFileDigest &file, bool model,
                                               qint64 &done, qint64 total)
{
    const QString root = m_deps.baseDirectory + QStringLiteral("/models/") + artifact.repository;
    const QString target = (model ? root + QLatin1Char('/') + artifact.directory : root) +
                           QLatin1Char('/') + file.path;
    const QString partial = target + QStringLiteral(".incomplete");
    const QFileInfo existing(target);
    if (existing.isFile() && !existing.isSymLink() && existing.size() == file.byteCount) {
        done += file.byteCount;
        setState({QuickTaskModelState::Kind::downloading, double(done) / double(total), {}});
        co_return;
    }
    if (!QDir().mkpath(QFileInfo(target).path()))
        throw TaskrackError(storageFailedText);
    QFile out(partial);
    if (!out.open(QIODevice::ReadWrite))
        throw TaskrackError(storageFailedText);
    qint64 offset = std::min(out.size(), file.byteCount);
    out.resize(offset);
    out.seek(offset);

    QString path = m_deps.endpoint.toString(QUrl::StripTrailingSlash) + QLatin1Char('/') +
                   artifact.repository + QStringLiteral("/resolve/") + artifact.revision +
                   QLatin1Char('/') + (model ? artifact.directory + QLatin1Char('/') : QString()) +
                   file.path;
    QNetworkRequest request{QUrl(path)};
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::NoLessSafeRedirectPolicy);
    if (offset > 0)
        request.setRawHeader("Range", "bytes=" + QByteArray::number(offset) + '-');
    QNetworkReply *reply = m_deps.network.get(request);
    // Deleted later: abort() finishes the reply inside its own signal, and this coroutine then
    // resumes (and ends) while that signal is still being delivered.
    const auto release = qScopeGuard([reply] {
        reply->disconnect();
        reply->deleteLater();
    });
    std::optional<QString> failure;
    auto stop = [&](const QString &why) {
        if (failure)
            return;
        failure = why;
        if (!reply->isFinished() && reply->error() == QNetworkReply::NoError)
            reply->abort();
    };
    // The reply's child, so that it too goes only once its signal is done.
    QTimer *stall = new QTimer(reply);
    stall->setSingleShot(true);
    stall->setInterval(m_deps.stallTimeout);
    QObject::connect(stall, &QTimer::timeout, reply, [&] { stop(downloadFailedText); });
    stall->start();
    bool checkedStatus = false;
    QObject::connect(reply, &QIODevice::readyRead, reply, [&] {
        stall->start();
        if (!checkedStatus) {
            checkedStatus = true;
            const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
            if (status != 200 && status != 206) {
                stop(downloadFailedText); // an error page is not the file
                return;
            }
            // Asked for the rest but given the whole: start over.
            if (offset > 0 && status != 206) {
                offset = 0;
                out.resize(0);
                out.seek(0);
            }
        }
        const QByteArray bytes = reply->readAll();
        if (offset + bytes.size() > file.byteCount) {
            stop(downloadFailedText); // never more than the pinned size
            return;
        }
        if (out.write(bytes) != bytes.size()) {
            stop(isStorageError(errno) ? storageFailedText : downloadFailedText);
            return;
        }
        offset += bytes.size();
        setState(
            {QuickTaskModelState::Kind::downloading, double(done + offset) / double(total), {}});
    });
    if (!reply->isFinished()) {
        auto finishing = qCoro(reply, &QNetworkReply::finished);
        co_await finishing;
    }
    stall->stop();
    if (!out.flush())
        failure = storageFailedText;
    out.close();
    if (failure)
        throw TaskrackError(*failure);
    if (reply->error() != QNetworkReply::NoError || offset != file.byteCount)
        throw TaskrackError(downloadFailedText);
    if (!QFile::rename(partial, target))
        throw TaskrackError(storageFailedText);
    done += file.byteCount;
}

QCoro::Task<void> QuickTaskModelManager::verify()
{
    const QString base = QFileInfo(m_deps.baseDirectory).canonicalFilePath();
    const QString modelRoot = QFileInfo(modelFolder()).canonicalFilePath();
    const QString tokenizerRoot = QFileInfo(m_deps.baseDirectory + QLatin1Char('/') +
                                            QuickTaskModelProvenance::expectedTokenizer().directory)
                                      .canonicalFilePath();
    for (const char *name : {"MelSpectrogram", "AudioEncoder", "TextDecoder"})
        if (!QFileInfo(modelRoot + QLatin1Char('/') + QLatin1String(name) +
                       QStringLiteral(".mlmodelc"))
                 .isDir())
            throw TaskrackError(invalidModelContentsText);
    const QuickTaskModelProvenance provenance = *m_provenance;
    // Hashing the weights takes seconds: off the main thread, a block at a time.
    QFuture<bool> checking = QtConcurrent::run([=] {
        for (const auto &[artifact, root] : {std::pair{&provenance.model, modelRoot},
                                             std::pair{&provenance.tokenizer, tokenizerRoot}}) {
            if (root.isEmpty() || !isStrictlyInside(root, base))
                return false;
            for (const QuickTaskModelFileDigest &file : artifact->files) {
                const QFileInfo info(root + QLatin1Char('/') + file.path);
                const QString resolved = info.canonicalFilePath();
                if (!isStrictlyInside(resolved, root) || !QFileInfo(resolved).isFile() ||
                    QFileInfo(resolved).size() != file.byteCount ||
                    sha256Of(resolved) != file.sha256)
                    return false;
            }
        }
        return true;
    });
    const bool passed = co_await checking;
    if (!passed) {
        // A model that failed its check is not kept, nor anything that came with it.
        QDir(m_deps.baseDirectory).removeRecursively();
        throw TaskrackError(integrityCheckFailedText);
    }
}

void QuickTaskModelManager::writeRecord()
{
    const QString base = QFileInfo(m_deps.baseDirectory).canonicalFilePath();
    const QString folder = QFileInfo(modelFolder()).canonicalFilePath();
    if (!isStrictlyInside(folder, base))
        throw TaskrackError(installRecordFailedText);
    const QuickTaskModelManifest manifest{1, QuickTaskModelProvenance::variant,
                                          folder.mid(base.size() + 1), m_provenance->identifier()};
    QSaveFile file(m_deps.baseDirectory + QLatin1Char('/') + manifestName);
    if (!file.open(QIODevice::WriteOnly) || file.write(manifest.encode()) < 0 || !file.commit())
        throw TaskrackError(installRecordFailedText);
    m_deps.preferences.setValue(installedPathKey, folder);
}

QCoro::Task<void> QuickTaskModelManager::remove()
{
    using Kind = QuickTaskModelState::Kind;
    if (m_state.kind == Kind::downloading) {
        setState({Kind::failed, 0, downloadInProgressText});
        co_return;
    }
    if (m_state.kind == Kind::notDownloaded && !hasIncompleteDownload())
        co_return;
    setState({Kind::removing, 0, {}});
    // removeRecursively deletes links, never what they point at.
    const bool removed = QDir(m_deps.baseDirectory).removeRecursively();
    m_installedModelPath.reset();
    m_deps.preferences.remove(installedPathKey);
    setState(removed ? QuickTaskModelState{}
                     : QuickTaskModelState{Kind::failed, 0, storageFailedText});
}

} // namespace taskrack
