#include "PortalCaptureBackend.h"

#include "PipeWireStream.h"

#include <QElapsedTimer>
#include <QThread>

namespace vantalo {

namespace {

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
                                           PortalTimeouts timeouts, Screens screens)
    : m_restoreToken(std::move(restoreToken)), m_onRestoreToken(std::move(onRestoreToken)),
      m_timeouts(timeouts), m_screens(std::move(screens)),
      m_portal(std::make_unique<PortalScreenCast>(QDBusConnection::sessionBus(), m_timeouts))
{
}

void PortalCaptureBackend::prepare()
{
    m_screenList = m_screens ? m_screens() : QList<CaptureDisplay>();
}

void PortalCaptureBackend::abort()
{
    m_aborted = true;
    m_portal->cancel();
}

PortalCaptureBackend::~PortalCaptureBackend()
{
    closeSession();
}

void PortalCaptureBackend::closeSession()
{
    if (m_grant) {
        m_portal->close(m_grant->session);
    }
    m_grant.reset();
    m_shared.clear();
}

std::expected<QList<CaptureDisplay>, Failure> PortalCaptureBackend::displays()
{
    // Each recording asks anew; with the token of the last grant the desktop answers without a
    // dialog.
    closeSession();
    auto grant = m_portal->start(m_restoreToken);
    if (!grant) {
        return std::unexpected(grant.error());
    }
    // Kept where it changed only: the settings are not rewritten at every recording.
    if (!grant->restoreToken.isEmpty() && grant->restoreToken != m_restoreToken) {
        m_restoreToken = grant->restoreToken;
        if (m_onRestoreToken) {
            m_onRestoreToken(m_restoreToken);
        }
    }
    m_grant = std::move(*grant);
    m_shared.clear();
    const QList<CaptureDisplay> screens = m_screenList;
    QList<QRect> geometries;
    for (const CaptureDisplay& screen : screens) {
        geometries.append(screen.nativeGeometry);
    }
    QList<CaptureDisplay> shared;
    for (const PortalStream& stream : m_grant->streams) {
        if (!stream.placement.size) {
            continue;
        }
        QRect geometry = stream.placement.geometry();
        if (!screens.isEmpty()) {
            const auto screen = screenOfStream(stream.placement, geometries);
            if (!screen) {
                continue;
            }
            geometry = geometries[*screen];
        }
        m_shared.append({stream, geometry});
        shared.append({QStringLiteral("portal-%1").arg(stream.nodeId), geometry});
    }
    if (m_shared.isEmpty()) {
        return std::unexpected(
            Failure{screens.isEmpty() || m_grant->streams.isEmpty()
                        ? QStringLiteral("the screen-cast portal did not say what it shares")
                        : QStringLiteral("the shared screen is none of the screens in this session")});
    }
    return screens.isEmpty() ? shared : screens;
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
    for (const auto& [stream, geometry] : m_shared) {
        if (geometry.contains(nativeRect)) {
            chosen = &stream;
            monitor = geometry;
            break;
        }
    }
    if (!chosen) {
        // The permission kept was for another screen: the next recording asks again.
        m_restoreToken.clear();
        if (m_onRestoreToken) {
            m_onRestoreToken(m_restoreToken);
        }
        return std::unexpected(Failure{QStringLiteral(
            "the region is on a screen that was not shared; the next recording asks which screen to share")});
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
    while (!(*stream)->latest() && !(*stream)->failure() && !m_aborted &&
           waited.elapsed() < m_timeouts.firstFrame.count()) {
        QThread::msleep(5);
    }
    if (auto failure = (*stream)->failure()) {
        return std::unexpected(*failure);
    }
    if (!(*stream)->latest()) {
        return std::unexpected(Failure{QStringLiteral("the shared screen sent no picture in %1 s")
                                           .arg(m_timeouts.firstFrame.count() / 1000)});
    }
    return std::make_unique<CroppedPortalStream>(std::move(*stream), nativeRect.size());
}

} // namespace vantalo
