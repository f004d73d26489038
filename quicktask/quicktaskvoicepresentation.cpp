#include "quicktask/quicktaskvoicepresentation.h"

#include <QRegularExpression>
#include <cmath>

namespace taskrack {

namespace {

using Kind = QuickTaskVoicePresentation::Kind;
using TKind = QuickTaskTranscriptionState::Kind;
using MKind = QuickTaskModelState::Kind;

QuickTaskModelState effectiveModel(const QuickTaskModelState &model, bool requiresDownloadedModel)
{
    return requiresDownloadedModel ? model : QuickTaskModelState{MKind::ready, 0, {}};
}

struct Labels
{
    const char *status;
    const char *key;
    const char *hint;
    const char *symbol;
    const char *identifier;
};

Labels labels(const QuickTaskVoicePresentation &p)
{
    switch (p.kind) {
    case Kind::downloading:
        return {"", "ADDING VOICE", "", "arrow.down", "downloading"};
    case Kind::preparing:
        switch (p.stage) {
        case QuickTaskPreparationStage::specializing:
            return {"TUNING VOICE", "TUNING", "TYPE ANYTIME", "waveform", "preparing"};
        case QuickTaskPreparationStage::loading:
            return {"LOADING VOICE", "LOADING", "TYPE ANYTIME", "waveform", "preparing"};
        case QuickTaskPreparationStage::startingAudio:
            break;
        }
        return {"STARTING MIC", "STARTING", "TYPE ANYTIME", "waveform", "preparing"};
    case Kind::failed:
        return {"VOICE UNAVAILABLE", "TRY AGAIN", "RETRY VOICE", "arrow.clockwise", "failed"};
    case Kind::setup:
        return {"VOICE OPTIONAL", "ADD VOICE", "PRIVATE · ON-DEVICE", "waveform.badge.plus",
                "setup"};
    case Kind::ready:
        return {"READY", "DICTATE", "CLICK OR SPACE", "mic.fill", "ready"};
    case Kind::listening:
        return {"LISTENING", "LISTENING", "SPACE TO PAUSE", "waveform", "listening"};
    case Kind::paused:
        return {"VOICE PAUSED", "PAUSED", "SPACE TO RESUME", "pause.fill", "paused"};
    case Kind::typing:
        return {"TYPING", "DICTATE", "CLICK TO RESUME", "keyboard", "typing"};
    case Kind::microphonePermissionDenied:
        return {"MICROPHONE OFF", "MIC OFF", "OPEN SETTINGS", "mic.slash.fill", "permission"};
    case Kind::removing:
        break;
    }
    return {"REMOVING VOICE", "REMOVING", "PLEASE WAIT", "trash", "removing"};
}

int percent(double progress)
{
    return int(std::lround(progress * 100.0));
}

bool isAlphanumeric(QChar c)
{
    return c.isLetterOrNumber() || c.isMark();
}

} // namespace

QuickTaskVoicePresentation
QuickTaskVoicePresentation::derive(const QuickTaskModelState &modelState,
                                   bool requiresDownloadedModel, QuickTaskInputMode mode,
                                   const QuickTaskTranscriptionState &transcription)
{
    const QuickTaskModelState model = effectiveModel(modelState, requiresDownloadedModel);
    switch (model.kind) {
    case MKind::downloading:
        return {Kind::downloading, model.progress, {}, 0, {}};
    case MKind::failed:
        return {Kind::failed, 0, {}, 0, model.message};
    case MKind::notDownloaded:
        return {Kind::setup, 0, {}, 0, {}};
    case MKind::removing:
        return {Kind::removing, 0, {}, 0, {}};
    case MKind::ready:
        break;
    }
    if (mode == QuickTaskInputMode::typing)
        return {Kind::typing, 0, {}, 0, {}};
    switch (transcription.kind) {
    case TKind::preparing:
        return {Kind::preparing, 0, transcription.stage, transcription.elapsedSeconds, {}};
    case TKind::failed:
        return {Kind::failed, 0, {}, 0, transcription.message};
    case TKind::idle:
        return {Kind::ready, 0, {}, 0, {}};
    case TKind::listening:
        return {Kind::listening, 0, {}, 0, {}};
    case TKind::paused:
        return {Kind::paused, 0, {}, 0, {}};
    case TKind::microphonePermissionDenied:
        break;
    }
    return {Kind::microphonePermissionDenied, 0, {}, 0, {}};
}

QString QuickTaskVoicePresentation::statusLabel() const
{
    if (kind == Kind::downloading)
        return QStringLiteral("VOICE %1%").arg(percent(progress));
    return QString::fromUtf8(labels(*this).status);
}

QString QuickTaskVoicePresentation::keyLabel() const
{
    return QString::fromUtf8(labels(*this).key);
}

QString QuickTaskVoicePresentation::hintLabel() const
{
    if (kind == Kind::downloading)
        return QStringLiteral("%1% DOWNLOADED").arg(percent(progress));
    return QString::fromUtf8(labels(*this).hint);
}

QString QuickTaskVoicePresentation::symbol() const
{
    return QString::fromUtf8(labels(*this).symbol);
}

QString QuickTaskVoicePresentation::identifier() const
{
    return QString::fromUtf8(labels(*this).identifier);
}

QuickTaskVoiceKeyAction voiceKeyAction(const QuickTaskModelState &modelState,
                                       bool requiresDownloadedModel,
                                       const QuickTaskTranscriptionState &transcription)
{
    switch (effectiveModel(modelState, requiresDownloadedModel).kind) {
    case MKind::downloading:
    case MKind::removing:
        return QuickTaskVoiceKeyAction::none;
    case MKind::notDownloaded:
    case MKind::failed:
        return QuickTaskVoiceKeyAction::downloadModel;
    case MKind::ready:
        break;
    }
    switch (transcription.kind) {
    case TKind::failed:
        return QuickTaskVoiceKeyAction::retry;
    case TKind::microphonePermissionDenied:
        return QuickTaskVoiceKeyAction::openMicrophoneSettings;
    default:
        return QuickTaskVoiceKeyAction::toggle;
    }
}

QString composeDictatedDraft(const QStringList &fixedPieces, const QString &text)
{
    QStringList pieces = fixedPieces;
    const QString spoken = text == QLatin1String("Waiting for speech...") ? QString() : text;
    if (!spoken.trimmed().isEmpty())
        pieces.append(spoken);

    QString joined;
    for (const QString &piece : pieces) {
        if (piece.isEmpty())
            continue;
        // No blank before punctuation: only two word characters meeting get one.
        if (!joined.isEmpty() && isAlphanumeric(joined.back()) && isAlphanumeric(piece.front()))
            joined += QLatin1Char(' ');
        joined += piece;
    }

    static const QRegularExpression whitespace(QStringLiteral("\\s+"));
    QString flowing = joined.split(whitespace, Qt::SkipEmptyParts).join(QLatin1Char(' '));

    // Dictation often starts with a spoken list marker or dash; it never belongs at the front.
    static const QRegularExpression leadingMarks(QStringLiteral("^(?:[-\u2013\u2014\u2022]\\s*)+"));
    flowing.remove(leadingMarks);
    return flowing;
}

} // namespace taskrack
