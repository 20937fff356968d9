#pragma once

#include <QByteArray>
#include <QPixmap>
#include <QString>

#include <optional>

class QMimeData;

namespace vantalo {

// How a GIF leaves Vantalo, by the clipboard or by a drag: offered as its bytes ("image/gif", for
// applications that take images) and, when it has a file, as that file (for file managers and
// applications that take files).
inline const QString gifMimeType = QStringLiteral("image/gif");
inline const QString gnomeFilesMimeType = QStringLiteral("x-special/gnome-copied-files");
QMimeData* gifMimeData(const QByteArray& data, const std::optional<QString>& filePath);

// How far a press must move, in points, before it is a drag rather than a click.
inline constexpr int dragThresholdPx = 4;

// Drags a GIF file out of Vantalo, into a chat, a browser's upload field or a file manager, offered
// for copy. Returns once the drop is done or given up; the widget it started from may be gone by
// then.
void dragGifFile(const QString& path, const QPixmap& picture);

} // namespace vantalo
