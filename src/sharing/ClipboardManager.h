#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <optional>

namespace vantalo {

// Puts a GIF (as `gifMimeData` offers it) or a link on the clipboard. Every copy replaces
// everything that was there.
class ClipboardManager
{
public:
    void copyGIF(const QByteArray& data, const std::optional<QString>& filePath);
    // The link's full text alone.
    void copyLink(const QUrl& url);
};

} // namespace vantalo
