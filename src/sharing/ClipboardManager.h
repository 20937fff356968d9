#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <optional>

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
    // The link's full text alone.
    void copyLink(const QUrl& url);
};

} // namespace vantalo
