#include "platform/linux/qtaudiocapture.h"

#include <QAudioSource>
#include <QElapsedTimer>
#include <QIODevice>
#include <QLoggingCategory>
#include <QMediaDevices>
#include <QTimer>
#include <cstring>
#include <vector>

Q_LOGGING_CATEGORY(lcAudioCapture, "com.quillon.Taskrack.audio")

namespace taskrack {

const QString QtAudioCapture::noMicrophoneText = QStringLiteral(
    "No microphone is available. Connect one or check the sound settings, then retry. You can "
    "still type Quick Tasks.");

class QtAudioCaptureWorker : public QObject
{
public:
    static constexpr int silentInputLimitMs = 3000;
    static constexpr int watchdogIntervalMs = 500;

    std::optional<QString> open(AudioCapture::Handlers handlers)
    {
        close();
        const QAudioDevice device = QMediaDevices::defaultAudioInput();
        if (device.isNull()) {
            qCInfo(lcAudioCapture) << "No audio input device";
            return QtAudioCapture::noMicrophoneText;
        }
        QAudioFormat format;
        format.setSampleRate(AudioCapture::sampleRate);
        format.setChannelCount(1);
        format.setSampleFormat(QAudioFormat::Float);
        if (!device.isFormatSupported(format)) {
            qCInfo(lcAudioCapture) << "The sound server refused 16 kHz mono float";
            return QtAudioCapture::noMicrophoneText;
        }
        m_handlers = std::move(handlers);
        m_source = std::make_unique<QAudioSource>(device, format);
        // Small buffers keep the gap between a word and its text short.
        m_source->setBufferSize(AudioCapture::sampleRate / 10 * int(sizeof(float)));
        connect(m_source.get(), &QAudioSource::stateChanged, this, [this](QAudio::State state) {
            if (state == QAudio::StoppedState && m_source && m_source->error() != QAudio::NoError)
                fail("stopped with an error");
        });
        m_device = m_source->start();
        if (!m_device || m_source->error() != QAudio::NoError) {
            qCInfo(lcAudioCapture) << "The audio input did not start";
            m_source.reset();
            return QtAudioCapture::noMicrophoneText;
        }
        connect(m_device, &QIODevice::readyRead, this, &QtAudioCaptureWorker::deliver);
        // A live input hands over audio every few tens of milliseconds, silence included; one
        // that goes quiet for seconds was unplugged. PulseAudio moves the stream of a source
        // that goes away to another one (a sink's monitor, say) and Qt reports nothing, so the
        // device list is checked as well.
        m_deviceId = device.id();
        m_lastData.start();
        m_watchdog = std::make_unique<QTimer>();
        m_watchdog->setInterval(watchdogIntervalMs);
        connect(m_watchdog.get(), &QTimer::timeout, this, [this] {
            if (m_lastData.elapsed() > silentInputLimitMs)
                return fail("delivered nothing");
            for (const QAudioDevice &input : QMediaDevices::audioInputs())
                if (input.id() == m_deviceId)
                    return;
            fail("went away");
        });
        m_watchdog->start();
        return std::nullopt;
    }

    void close()
    {
        // Deleted later: close() also runs from the source's and the timer's own signals.
        if (m_watchdog) {
            m_watchdog->stop();
            m_watchdog.release()->deleteLater();
        }
        if (m_source) {
            m_source->disconnect(this);
            if (m_device)
                m_device->disconnect(this);
            m_source->stop();
            m_source.release()->deleteLater();
        }
        m_device = nullptr;
        m_handlers = {};
    }

private:
    void deliver()
    {
        if (!m_device)
            return;
        const QByteArray bytes = m_device->readAll();
        // Qt polls the stream and signals even when nothing came.
        if (bytes.isEmpty())
            return;
        m_lastData.start();
        m_pending.append(bytes);
        const qsizetype count = m_pending.size() / qsizetype(sizeof(float));
        if (count == 0)
            return;
        m_buffer.resize(size_t(count));
        std::memcpy(m_buffer.data(), m_pending.constData(), size_t(count) * sizeof(float));
        m_pending.remove(0, count * qsizetype(sizeof(float)));
        if (m_handlers.samples)
            m_handlers.samples(m_buffer);
    }

    void fail(const char *what)
    {
        qCInfo(lcAudioCapture) << "Audio input" << what;
        auto ended = std::move(m_handlers.ended);
        close();
        if (ended)
            ended(QtAudioCapture::noMicrophoneText);
    }

    AudioCapture::Handlers m_handlers;
    std::unique_ptr<QAudioSource> m_source;
    std::unique_ptr<QTimer> m_watchdog;
    QElapsedTimer m_lastData;
    QByteArray m_deviceId;
    QIODevice *m_device = nullptr;
    QByteArray m_pending;
    std::vector<float> m_buffer;
};

QtAudioCapture::QtAudioCapture()
{
    m_thread.setObjectName(QStringLiteral("audio-capture"));
    m_worker = new QtAudioCaptureWorker;
    m_worker->moveToThread(&m_thread);
    QObject::connect(&m_thread, &QThread::finished, m_worker, &QObject::deleteLater);
    m_thread.start();
}

QtAudioCapture::~QtAudioCapture()
{
    stop();
    m_thread.quit();
    m_thread.wait();
}

std::optional<QString> QtAudioCapture::start(Handlers handlers)
{
    std::optional<QString> failure;
    QMetaObject::invokeMethod(
        m_worker, [&] { failure = m_worker->open(std::move(handlers)); },
        Qt::BlockingQueuedConnection);
    return failure;
}

void QtAudioCapture::stop()
{
    QMetaObject::invokeMethod(
        m_worker, [this] { m_worker->close(); }, Qt::BlockingQueuedConnection);
}

} // namespace taskrack
