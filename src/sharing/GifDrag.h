#pragma once

#include <QPixmap>
#include <QString>

namespace vantalo {

// How far a press must move, in points, before it is a drag rather than a click.
inline constexpr int dragThresholdPx = 4;

// Drags a GIF file out of Vantalo, into a chat, a browser's upload field or a file manager: the
// file (text/uri-list, x-special/gnome-copied-files) and its bytes (image/gif), offered for copy.
// Returns once the drop is done or given up; the widget it started from may be gone by then.
void dragGifFile(const QString& path, const QPixmap& picture);

} // namespace vantalo
