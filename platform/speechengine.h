#pragma once

// On-device speech recognition: a recogniser per dictation session, fed 16 kHz mono audio in
// order, that cuts the stream into utterances by itself and offers its running guess of the
// current one.

#include <QString>
#include <memory>
#include <optional>
#include <span>
#include <variant>
#include <vector>

namespace taskrack {

// One utterance as the recogniser finally heard it, with where it lies in the stream (samples
// since the session's first).
struct RecognizedUtterance
{
    QString text;
    qint64 startFrame = 0;
    qint64 endFrame = 0;
};

class SpeechRecognizer
{
public:
    virtual ~SpeechRecognizer() = default;
    // Takes the next samples; returns the utterances that ended inside them.
    virtual std::vector<RecognizedUtterance> process(std::span<const float> samples) = 0;
    // The running guess of the utterance in progress, and where it began; nothing outside one.
    virtual std::optional<RecognizedUtterance> hypothesis() = 0;
    // Ends the utterance in progress, if any, as if its speaker had stopped.
    virtual std::optional<RecognizedUtterance> finishUtterance() = 0;
};

class SpeechEngine
{
public:
    virtual ~SpeechEngine() = default;
    // Loads the recogniser's model: slow (seconds), call off the main thread. Returns a
    // recogniser or a sentence for the person.
    virtual std::variant<std::unique_ptr<SpeechRecognizer>, QString> load() = 0;
};

} // namespace taskrack
