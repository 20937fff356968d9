#include "PortalCaptureBackend.h"

#include "PipeWireStream.h"

#include <QElapsedTimer>
#include <QThread>

namespace vantalo {

namespace {

// How long a new stream may take to deliver its first frame.
constexpr std::chrono::seconds kFirstFrameTimeout{5};

class CroppedPortalStream final : public CaptureStream
{
public:
    CroppedPortalStream(std::unique_ptr<PipeWireStream> stream, QSize outputSize)
        : m_stream(std::move(stream)), m_size(outputSize)
    {
    }

    std::expected<std::optional<QImage>, Failure> grab() override
    {
        if (auto failure = m_stream->failure()) {
            return std::unexpected(*failure);
        }
        std::optional<QImage> frame = m_stream->latest();
        if (frame && frame->size() != m_size) {
            // A buffer of more pixels than points (scaling) comes down to the region's size.
            frame = frame->scaled(m_size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        }
        return frame;
    }
    long long sourceFrames() const override { return m_stream->delivered(); }

private:
    std::unique_ptr<PipeWireStream> m_stream;
    QSize m_size;
};

} // namespace

PortalCaptureBackend::PortalCaptureBackend(QString restoreToken,
                                           std::function<void(const QString&)> onRestoreToken,
                                           PortalTimeouts timeouts)
    : m_restoreToken(std::move(restoreToken)), m_onRestoreToken(std::move(onRestoreToken)),
      m_timeouts(timeouts)
{
}

PortalCaptureBackend::~PortalCaptureBackend()
{
    closeSession();
}

void PortalCaptureBackend::closeSession()
{
    if (m_grant && m_portal) {
        m_portal->close(m_grant->session);
    }
    m_grant.reset();
}

std::expected<QList<CaptureDisplay>, Failure> PortalCaptureBackend::displays()
{
    // Each recording asks anew; with the token of the last grant the desktop answers without a
    // dialog.
    closeSession();
    if (!m_portal) {
        m_portal = std::make_unique<PortalScreenCast>(QDBusConnection::sessionBus(), m_timeouts);
    }
    auto grant = m_portal->start(m_restoreToken);
    if (!grant) {
        return std::unexpected(grant.error());
    }
    if (!grant->restoreToken.isEmpty()) {
        m_restoreToken = grant->restoreToken;
        if (m_onRestoreToken) {
            m_onRestoreToken(m_restoreToken);
        }
    }
    m_grant = std::move(*grant);
    QList<CaptureDisplay> displays;
    for (const PortalStream& stream : m_grant->streams) {
        if (stream.placement.size) {
            displays.append({QStringLiteral("portal-%1").arg(stream.nodeId), stream.placement.geometry()});
        }
    }
    if (displays.isEmpty()) {
        return std::unexpected(Failure{QStringLiteral("the screen-cast portal did not say what it shares")});
    }
    return displays;
}

std::expected<std::unique_ptr<CaptureStream>, Failure>
PortalCaptureBackend::openStream(const QRect& nativeRect)
{
    if (!m_grant) {
        return std::unexpected(Failure{QStringLiteral("no screen is shared")});
    }
    // The shared monitor that holds the region.
    const PortalStream* chosen = nullptr;
    QRect monitor;
    for (const PortalStream& stream : m_grant->streams) {
        const QRect geometry = stream.placement.geometry();
        if (geometry.contains(nativeRect)) {
            chosen = &stream;
            monitor = geometry;
            break;
        }
    }
    if (!chosen) {
        return std::unexpected(Failure{QStringLiteral("the region is not on the shared screen")});
    }
    auto fd = m_portal->openPipeWireRemote(m_grant->session);
    if (!fd) {
        return std::unexpected(fd.error());
    }
    auto stream = PipeWireStream::open(*fd, chosen->nodeId, QRectF(nativeRect.translated(-monitor.topLeft())),
                                       monitor.size());
    if (!stream) {
        return std::unexpected(stream.error());
    }
    // The first frame, so the recording starts on a picture.
    QElapsedTimer waited;
    waited.start();
    while (!(*stream)->latest() && !(*stream)->failure() &&
           waited.elapsed() < std::chrono::milliseconds(kFirstFrameTimeout).count()) {
        QThread::msleep(5);
    }
    if (auto failure = (*stream)->failure()) {
        return std::unexpected(*failure);
    }
    if (!(*stream)->latest()) {
        return std::unexpected(Failure{QStringLiteral("the shared screen sent no picture")});
    }
    return std::make_unique<CroppedPortalStream>(std::move(*stream), nativeRect.size());
}

} // namespace vantalo
