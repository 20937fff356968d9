#pragma once

#include <QIcon>
#include <QImage>

namespace vantalo {

enum class StatusIconLook
{
    idle,      // an outlined record symbol
    recording, // a filled red record symbol
    paused,    // an amber disc with pause bars
};

// The tray icon, drawn for every size a tray may ask for.
QIcon statusIcon(StatusIconLook look);
QImage renderStatusIcon(StatusIconLook look, int sizePx);

// Vantalo's application icon (About box, windows, the desktop's launchers).
QIcon applicationIcon();
QImage renderApplicationIcon(int sizePx);

} // namespace vantalo
