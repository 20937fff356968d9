#pragma once

#include "PortalScreenCast.h"
#include "recording/CaptureBackend.h"

#include <functional>

namespace vantalo {

// Screen capture through the desktop's ScreenCast portal and PipeWire, for Wayland sessions. The
// displays are the monitors the desktop agreed to share, in logical coordinates (the space the
// region was chosen in on XWayland); a stream cuts its frames to the region on the PipeWire
// thread, and each grab takes the newest frame (the same pixels again when the desktop sent
// nothing new, as a still screen does). The restore token of every grant is handed to
// `onRestoreToken`, and the one given at construction is sent with the first request.
class PortalCaptureBackend final : public CaptureBackend
{
public:
    PortalCaptureBackend(QString restoreToken, std::function<void(const QString&)> onRestoreToken,
                         PortalTimeouts timeouts = {});
    ~PortalCaptureBackend() override;

    std::expected<QList<CaptureDisplay>, Failure> displays() override;
    std::expected<std::unique_ptr<CaptureStream>, Failure> openStream(const QRect& nativeRect) override;

private:
    void closeSession();

    QString m_restoreToken;
    std::function<void(const QString&)> m_onRestoreToken;
    PortalTimeouts m_timeouts;
    std::unique_ptr<PortalScreenCast> m_portal; // made on the capture thread, which waits on it
    std::optional<ScreenCastGrant> m_grant;
};

} // namespace vantalo
