#pragma once

#include "PortalScreenCast.h"
#include "recording/CaptureBackend.h"

#include <atomic>
#include <functional>

namespace vantalo {

// Screen capture through the desktop's ScreenCast portal and PipeWire, for Wayland sessions. The
// displays are the monitors the desktop agreed to share, in logical coordinates (the space the
// region was chosen in on XWayland); a stream cuts its frames to the region on the PipeWire
// thread, and each grab takes the newest frame (the same pixels again when the desktop sent
// nothing new, as a still screen does). The restore token of every grant is handed to
// `onRestoreToken`, and the one given at construction is sent with the first request.
// With `screens` (the session's screens as the windows see them, asked on the GUI thread before
// each recording) the displays are those screens, each shared monitor matched to its screen, so that a region
// on a screen the desktop did not share is refused rather than taken from another monitor.
class PortalCaptureBackend final : public CaptureBackend
{
public:
    using Screens = std::function<QList<CaptureDisplay>()>;
    PortalCaptureBackend(QString restoreToken, std::function<void(const QString&)> onRestoreToken,
                         PortalTimeouts timeouts = {}, Screens screens = {});
    ~PortalCaptureBackend() override;

    void prepare() override;
    void abort() override;
    std::expected<QList<CaptureDisplay>, Failure> displays() override;
    std::expected<std::unique_ptr<CaptureStream>, Failure> openStream(const QRect& nativeRect) override;

private:
    void closeSession();

    QString m_restoreToken;
    std::function<void(const QString&)> m_onRestoreToken;
    PortalTimeouts m_timeouts;
    Screens m_screens;
    QList<CaptureDisplay> m_screenList; // as `prepare` read them
    std::atomic<bool> m_aborted = false;
    std::unique_ptr<PortalScreenCast> m_portal; // the capture thread waits on it
    std::optional<ScreenCastGrant> m_grant;
    // Each shared monitor with the logical geometry it shows.
    QList<std::pair<PortalStream, QRect>> m_shared;
};

} // namespace vantalo
