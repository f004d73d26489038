#pragma once

// Which transcriber this build dictates with, and what it runs on. Debian has no engine for the
// Whisper model, so Linux dictates with the recogniser that comes with the system (pocketsphinx),
// gated by the voicing classifier; it needs no downloaded model, so no model manager is made.

#include "platform/audiocapture.h"
#include "platform/linux/pocketsphinxspeechengine.h"
#include "voice/ondevicequicktasktranscriber.h"

#include <memory>

namespace taskrack {

class Clock;

class DictationAssembly
{
public:
    // The microphone, or a recording: the command line's `--from`.
    using CaptureFactory = std::function<std::unique_ptr<AudioCapture>()>;
    static CaptureFactory microphone();
    static CaptureFactory recording(const QString &path, bool realTime);

    explicit DictationAssembly(Clock &clock, CaptureFactory capture = microphone());

    QuickTaskTranscribing &transcriber() { return *m_transcriber; }
    OnDeviceQuickTaskTranscriber &onDeviceTranscriber() { return *m_transcriber; }
    // The speech model manager: none, since this transcriber needs no downloaded model.
    QuickTaskModelManaging *modelManager() { return nullptr; }

private:
    PocketSphinxSpeechEngine m_engine;
    std::unique_ptr<OnDeviceQuickTaskTranscriber> m_transcriber;
};

} // namespace taskrack
