#pragma once

// What the composer's voice area shows, derived from the model, the engine and the input mode,
// and what the voice key does in each state.

#include "quicktask/quicktasktranscribing.h"

namespace taskrack {

enum class QuickTaskInputMode { voice, typing };

struct QuickTaskVoicePresentation
{
    enum class Kind {
        downloading,
        preparing,
        failed,
        setup,
        ready,
        listening,
        paused,
        typing,
        microphonePermissionDenied,
        removing,
    };

    Kind kind = Kind::ready;
    double progress = 0;
    QuickTaskPreparationStage stage = QuickTaskPreparationStage::loading;
    int elapsedSeconds = 0;
    QString message;

    bool operator==(const QuickTaskVoicePresentation &) const = default;

    // `requiresDownloadedModel` false makes the model count as ready.
    static QuickTaskVoicePresentation derive(const QuickTaskModelState &model,
                                             bool requiresDownloadedModel, QuickTaskInputMode mode,
                                             const QuickTaskTranscriptionState &transcription);

    QString statusLabel() const;
    QString keyLabel() const;
    QString hintLabel() const;
    // The symbol's name; the panel draws it.
    QString symbol() const;
    QString identifier() const;
};

enum class QuickTaskVoiceKeyAction { none, downloadModel, retry, openMicrophoneSettings, toggle };

QuickTaskVoiceKeyAction voiceKeyAction(const QuickTaskModelState &model,
                                       bool requiresDownloadedModel,
                                       const QuickTaskTranscriptionState &transcription);

// The dictated composer text: the fixed pieces (typed before dictation began) and the engine's
// running transcript, as one flowing line.
QString composeDictatedDraft(const QStringList &pieces, const QString &text);

} // namespace taskrack
