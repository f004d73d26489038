#pragma once

// Sound for dictation: 16 kHz mono samples (-1…1), delivered on the source's own thread as they
// come. A handler must never wait: it hands the buffer on and returns, or audio is lost.

#include <QString>
#include <functional>
#include <optional>
#include <span>

namespace taskrack {

class AudioCapture
{
public:
    struct Handlers
    {
        std::function<void(std::span<const float>)> samples;
        // Once, when the source has nothing more: no failure at the end of a recording, a
        // sentence for the person when the microphone went away.
        std::function<void(std::optional<QString> failure)> ended;
    };

    static constexpr int sampleRate = 16000;

    virtual ~AudioCapture() = default;
    // Starts delivering; a sentence for the person when there is nothing to capture from.
    virtual std::optional<QString> start(Handlers handlers) = 0;
    // Stops delivering; no handler runs after it returns. Safe to call more than once.
    virtual void stop() = 0;
};

} // namespace taskrack
