#pragma once

#include "recording/CaptureBackend.h"

#include <QByteArray>

namespace vantalo {

// Screen capture on X11: the region of the root window through a shared-memory image
// (MIT-SHM, with a plain GetImage where the server offers no shared memory), the pointer from
// XFixes painted on each frame. Each stream has its own connection, used on the capture thread.
class X11CaptureBackend final : public CaptureBackend
{
public:
    // `displayName` empty: the DISPLAY of the environment.
    explicit X11CaptureBackend(QByteArray displayName = {});

    // Waits until the X server has carried out what the application's own connection asked so far
    // (overlays just hidden are gone before the capture looks at the screen).
    void prepare() override;
    std::expected<QList<CaptureDisplay>, Failure> displays() override;
    std::expected<std::unique_ptr<CaptureStream>, Failure> openStream(const QRect& nativeRect) override;

private:
    QByteArray m_displayName;
};

} // namespace vantalo
