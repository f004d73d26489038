#include "platform/wavfilecapture.h"

#include "platform/wavfile.h"

#include <QFile>
#include <chrono>

namespace taskrack {

WavFileCapture::WavFileCapture(QString path, Pacing pacing)
    : m_path(std::move(path)), m_pacing(pacing)
{
}

WavFileCapture::~WavFileCapture()
{
    stop();
}

std::optional<QString> WavFileCapture::start(Handlers handlers)
{
    stop();
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly))
        return QStringLiteral("The recording could not be opened.");
    if (file.size() > maximumFileBytes)
        return QStringLiteral("The recording is larger than %1 MiB.")
            .arg(maximumFileBytes / (1024 * 1024));
    auto decoded = decodeWav(file.read(maximumFileBytes));
    if (auto *failure = std::get_if<QString>(&decoded))
        return *failure;
    m_samples = std::move(std::get<WavAudio>(decoded).samples);
    m_stopping = false;
    m_thread = std::thread([this, handlers = std::move(handlers)] { run(handlers); });
    return std::nullopt;
}

void WavFileCapture::stop()
{
    m_stopping = true;
    if (m_thread.joinable())
        m_thread.join();
}

void WavFileCapture::run(Handlers handlers)
{
    using namespace std::chrono;
    const auto begin = steady_clock::now();
    for (size_t offset = 0; offset < m_samples.size() && !m_stopping; offset += bufferFrames) {
        if (m_pacing == Pacing::realTime) {
            // Each buffer is handed over when a microphone would have filled it.
            const auto due =
                begin + microseconds(qint64(offset + bufferFrames) * 1'000'000 / sampleRate);
            while (!m_stopping && steady_clock::now() < due)
                std::this_thread::sleep_for(
                    std::min<steady_clock::duration>(milliseconds(10), due - steady_clock::now()));
        }
        const size_t count = std::min<size_t>(bufferFrames, m_samples.size() - offset);
        handlers.samples(std::span<const float>(m_samples.data() + offset, count));
    }
    if (!m_stopping && handlers.ended)
        handlers.ended(std::nullopt);
}

} // namespace taskrack
