#pragma once

// The microphone through Qt Multimedia (PulseAudio, which PipeWire also serves). The sound
// server is asked for 16 kHz mono float and converts whatever the device does; a server that
// refuses the format, no input device, no server at all and a device that goes away mid-session
// all end the same way for the person: no microphone.
//
// The source lives on a thread of its own so that a busy main thread never drops audio.

#include "platform/audiocapture.h"

#include <QThread>
#include <memory>
#include <mutex>

namespace taskrack {

class QtAudioCaptureWorker;

class QtAudioCapture : public AudioCapture
{
public:
    static const QString noMicrophoneText;

    QtAudioCapture();
    ~QtAudioCapture() override;

    std::optional<QString> start(Handlers handlers) override;
    void stop() override;

private:
    QThread m_thread;
    QtAudioCaptureWorker *m_worker = nullptr; // lives on m_thread
};

} // namespace taskrack
