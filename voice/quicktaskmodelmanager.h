#pragma once

// The optional Whisper speech model: its download on request from the model hub, its check
// against the sizes and digests pinned in the program, its install record and its removal.
// Nothing is used before every file has passed. Files arrive as "<name>.incomplete" and are
// renamed at their pinned size, so a download that stops resumes where it stopped; the digest
// check stays the final word.

#include "platform/preferences.h"
#include "quicktask/quicktasktranscribing.h"
#include "voice/quicktaskmodelprovenance.h"

#include <QUrl>
#include <chrono>

class QNetworkAccessManager;

namespace taskrack {

class QuickTaskModelManager : public QuickTaskModelManaging
{
    Q_OBJECT

public:
    static const QString installedPathKey;
    static const QString manifestName;
    static const QString downloadFailedText;
    static const QString storageFailedText;
    static const QString integrityCheckFailedText;
    static const QString invalidModelContentsText;
    static const QString installRecordFailedText;
    static const QString downloadInProgressText;

    struct Dependencies
    {
        QNetworkAccessManager &network;
        // The hub; https, or http on the loopback interface only.
        QUrl endpoint;
        Preferences &preferences;
        QString baseDirectory = defaultBaseDirectory();
        // The pinned record; nothing: none ships, and downloads are refused.
        std::optional<QByteArray> provenanceRecord = bundledProvenance();
        std::chrono::milliseconds stallTimeout = std::chrono::seconds(30);
    };

    explicit QuickTaskModelManager(Dependencies dependencies, QObject *parent = nullptr);
    ~QuickTaskModelManager() override;

    static QString defaultBaseDirectory();
    static std::optional<QByteArray> bundledProvenance();

    QuickTaskModelState state() const override { return m_state; }
    std::optional<QString> installedModelPath() const override { return m_installedModelPath; }
    QCoro::Task<void> download() override;
    QString statusText() const override;
    QCoro::Task<void> remove();
    bool hasIncompleteDownload() const;
    QString modelFolder() const;

private:
    struct Fetch;
    void setState(QuickTaskModelState state);
    void restore();
    QCoro::Task<void> fetch(const QuickTaskModelArtifact &artifact,
                            const QuickTaskModelFileDigest &file, bool model, qint64 &done,
                            qint64 total);
    QCoro::Task<void> verify();
    void writeRecord();

    Dependencies m_deps;
    std::optional<QuickTaskModelProvenance> m_provenance;
    QuickTaskModelState m_state;
    std::optional<QString> m_installedModelPath;
    bool m_quitting = false;
};

} // namespace taskrack
