#include "ClipboardManager.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>

namespace vantalo {

QMimeData* ClipboardManager::gifMimeData(const QByteArray& data, const std::optional<QString>& filePath)
{
    auto* mime = new QMimeData;
    mime->setData(gifMimeType, data);
    if (filePath) {
        const QUrl file = QUrl::fromLocalFile(*filePath);
        mime->setUrls({file});
        mime->setData(gnomeFilesMimeType, QByteArrayLiteral("copy\n") + file.toEncoded());
    }
    return mime;
}

void ClipboardManager::copyGIF(const QByteArray& data, const std::optional<QString>& filePath)
{
    QGuiApplication::clipboard()->setMimeData(gifMimeData(data, filePath), QClipboard::Clipboard);
}

void ClipboardManager::copyLink(const QUrl& url)
{
    auto* mime = new QMimeData;
    mime->setText(url.toString(QUrl::FullyEncoded));
    QGuiApplication::clipboard()->setMimeData(mime, QClipboard::Clipboard);
}

} // namespace vantalo
