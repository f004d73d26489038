#pragma once

// What the composer needs from a dictation engine and from the manager of its on-device model.
// The engines live in voice/; a build without them passes no transcriber and no model manager,
// and the composer offers typing only.

#include <QCoro/QCoroTask>
#include <QObject>
#include <QString>
#include <QUuid>
#include <functional>
#include <optional>

namespace taskrack {

enum class QuickTaskPreparationStage { specializing = 0, loading = 1, startingAudio = 2 };

struct QuickTaskTranscriptionState
{
    enum class Kind { preparing, failed, idle, listening, paused, microphonePermissionDenied };

    Kind kind = Kind::idle;
    QuickTaskPreparationStage stage = QuickTaskPreparationStage::loading; // preparing only
    int elapsedSeconds = 0;                                               // preparing only
    QString message;                                                      // failed only

    bool operator==(const QuickTaskTranscriptionState &) const = default;
};

// Sessions are the composer's presentation identifiers: a call for a session that is no longer
// the engine's active one does nothing, so late callbacks of an old session are harmless.
class QuickTaskTranscribing : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    virtual QuickTaskTranscriptionState state() const = 0;
    virtual bool requiresDownloadedModel() const = 0;
    virtual QCoro::Task<void> warmUp(std::optional<QString> modelPath) = 0;
    virtual QCoro::Task<bool> requestAccess(QUuid session) = 0;
    // Never throws: failures end in state().
    virtual QCoro::Task<void> start(std::optional<QString> modelPath, QUuid session,
                                    std::function<void(const QString &)> onTextChange) = 0;
    virtual QCoro::Task<void> pause(QUuid session) = 0;
    virtual void cancel(QUuid session) = 0;
    // Stops and releases the model.
    virtual QCoro::Task<void> unload() = 0;

Q_SIGNALS:
    void stateChanged();
};

struct QuickTaskModelState
{
    enum class Kind { downloading, failed, notDownloaded, ready, removing };

    Kind kind = Kind::notDownloaded;
    double progress = 0; // downloading only, 0…1
    QString message;     // failed only

    bool operator==(const QuickTaskModelState &) const = default;
};

// The optional speech model: its download on request, its install, its removal.
class QuickTaskModelManaging : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    virtual QuickTaskModelState state() const = 0;
    // The folder of the verified, installed model; nothing when there is none.
    virtual std::optional<QString> installedModelPath() const = 0;
    // Downloads and installs; never throws: the outcome is in state() and statusText().
    virtual QCoro::Task<void> download() = 0;
    // One line about the model's state for a person.
    virtual QString statusText() const = 0;

Q_SIGNALS:
    void stateChanged();
};

} // namespace taskrack
