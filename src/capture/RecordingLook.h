#pragma once

#include <QColor>

namespace vantalo {

// The colours a recording shows in: red while it records, amber while it is paused (the border,
// the toolbar's label and the tray icon).
inline QColor recordingRed()
{
    return QColor::fromRgbF(1.0f, 0.22f, 0.22f);
}
inline QColor pausedAmber()
{
    return QColor(255, 176, 32);
}

} // namespace vantalo
