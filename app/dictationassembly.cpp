#include "app/dictationassembly.h"

#include "platform/linux/qtaudiocapture.h"
#include "platform/linux/yinsoundclassifier.h"
#include "platform/wavfilecapture.h"

namespace taskrack {

DictationAssembly::CaptureFactory DictationAssembly::microphone()
{
    return [] { return std::make_unique<QtAudioCapture>(); };
}

DictationAssembly::CaptureFactory DictationAssembly::recording(const QString &path, bool realTime)
{
    return [path, realTime] {
        return std::make_unique<WavFileCapture>(
            path,
            realTime ? WavFileCapture::Pacing::realTime : WavFileCapture::Pacing::asFastAsPossible);
    };
}

DictationAssembly::DictationAssembly(Clock &clock, CaptureFactory capture)
{
    m_transcriber =
        std::make_unique<OnDeviceQuickTaskTranscriber>(OnDeviceQuickTaskTranscriber::Dependencies{
            .engine = m_engine,
            .makeCapture = std::move(capture),
            .makeClassifier = [] { return std::make_unique<YinSoundClassifier>(); },
            .clock = clock,
        });
}

} // namespace taskrack
