#include "platform/linux/qtaudiocapture.h"

#include <QAudioSource>
#include <QIODevice>
#include <QLoggingCategory>
#include <QMediaDevices>
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
        // A device that is unplugged, or a sound server that drops it, may leave the stream
        // silently idle: the device list says it is gone.
        m_deviceId = device.id();
        m_devices = std::make_unique<QMediaDevices>();
        connect(m_devices.get(), &QMediaDevices::audioInputsChanged, this, [this] {
            for (const QAudioDevice &input : QMediaDevices::audioInputs())
                if (input.id() == m_deviceId)
                    return;
            fail("device went away");
        });
        return std::nullopt;
    }

    void close()
    {
        if (m_source) {
            m_source->disconnect(this);
            if (m_device)
                m_device->disconnect(this);
            m_source->stop();
        }
        m_device = nullptr;
        m_source.reset();
        m_devices.reset();
        m_handlers = {};
    }

private:
    void deliver()
    {
        if (!m_device)
            return;
        const QByteArray bytes = m_device->readAll();
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
    std::unique_ptr<QMediaDevices> m_devices;
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
