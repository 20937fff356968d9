#include "ClipboardManager.h"

#include "common/GifTransfer.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>

namespace vantalo {

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
