#include "NullCollaborators.h"

#include <QTimer>

namespace vantalo {

void UnavailableRecorder::startRecording(const QRectF&, const QString&, int, double, StartDone done)
{
    QTimer::singleShot(
        0, [done = std::move(done), reason = m_reason] { done(std::unexpected(Failure{reason})); });
}

void UnavailableRecorder::stopRecording(StopDone done)
{
    QTimer::singleShot(0, [done = std::move(done)] { done({}); });
}

void UnavailableHotkeyRegistrar::registerHotkey(const Shortcut&, std::function<void()>)
{
    m_print(QStringLiteral("Failed to register global shortcut — another application may be using it"));
    if (onPermissionDenied) {
        onPermissionDenied();
    }
}

} // namespace vantalo
