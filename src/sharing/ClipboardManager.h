#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <optional>

class QMimeData;

namespace vantalo {

// Puts a GIF or a link on the clipboard. A GIF is offered as its bytes ("image/gif", for
// applications that take images) and, when it has a file, as that file (for file managers and
// applications that take files). Every copy replaces everything that was there.
class ClipboardManager
{
public:
    static inline const QString gifMimeType = QStringLiteral("image/gif");
    static inline const QString gnomeFilesMimeType = QStringLiteral("x-special/gnome-copied-files");

    void copyGIF(const QByteArray& data, const std::optional<QString>& filePath);
    // The GIF as the clipboard and a drag offer it: its bytes, and its file when it has one.
    static QMimeData* gifMimeData(const QByteArray& data, const std::optional<QString>& filePath);
    // The link's full text alone.
    void copyLink(const QUrl& url);
};

} // namespace vantalo
