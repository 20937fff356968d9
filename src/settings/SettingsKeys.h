#pragma once

#include <QString>

namespace vantalo::SettingsKey {

inline const QString hotkeyKeyCode = QStringLiteral("hotkeyKeyCode");
inline const QString hotkeyModifiers = QStringLiteral("hotkeyModifiers");
inline const QString pauseHotkeyKeyCode = QStringLiteral("pauseHotkeyKeyCode");
inline const QString pauseHotkeyModifiers = QStringLiteral("pauseHotkeyModifiers");
inline const QString lastRegionHotkeyKeyCode = QStringLiteral("lastRegionHotkeyKeyCode");
inline const QString lastRegionHotkeyModifiers = QStringLiteral("lastRegionHotkeyModifiers");
inline const QString s3BucketName = QStringLiteral("s3BucketName");
inline const QString s3Region = QStringLiteral("s3Region");
inline const QString cdnDomain = QStringLiteral("cdnDomain");
// S3-compatible storage; empty means AWS itself.
inline const QString s3Endpoint = QStringLiteral("s3Endpoint");
// What a Wayland desktop gave for the screen it agreed to share, sent back so it does not ask again.
inline const QString screenCastRestoreToken = QStringLiteral("screenCastRestoreToken");
// How recordings are written: 2 or 1 output pixels a point; 15, 10 or 5 frames a second.
inline const QString outputScale = QStringLiteral("outputScale");
inline const QString outputFrameRate = QStringLiteral("outputFrameRate");
// 0, or the bytes every recording is fitted under right after it stops.
inline const QString fitUnderBytes = QStringLiteral("fitUnderBytes");
// 0, 3 or 5: the seconds counted down between Start and the recording.
inline const QString countdownSeconds = QStringLiteral("countdownSeconds");
// 1: clicks drawn into the frames as rings. 0 off, 1 shortcuts and special keys, 2 every key,
// drawn as a label at the bottom of the frames.
inline const QString showClicks = QStringLiteral("showClicks");
inline const QString showKeys = QStringLiteral("showKeys");
// The last recorded region with its display's name and frame (JSON), offered by the next capture.
inline const QString lastRegion = QStringLiteral("lastRegion");

inline const QString defaultBucketName = QStringLiteral("vantalo-uploads");
inline const QString defaultRegion = QStringLiteral("us-east-1");
// Serves the public objects of the default bucket.
inline const QString defaultCdnDomain = QStringLiteral("vantalo-uploads.s3.us-east-1.amazonaws.com");

} // namespace vantalo::SettingsKey
