#include "GifTransfer.h"

#include <QCoreApplication>
#include <QDrag>
#include <QFile>
#include <QMimeData>
#include <QPointer>
#include <QUrl>

namespace vantalo {

QMimeData* gifMimeData(const QByteArray& data, const std::optional<QString>& filePath)
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

void dragGifFile(const QString& path, const QPixmap& picture)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return; // nothing to offer: the file is gone
    }
    // Owned by the application, not by the widget it starts from: a panel replaced while its
    // picture is being dragged must not take the running drag with it. Drop targets ask for the
    // data after the drop, so each drag lives until the next one starts.
    static QPointer<QDrag> last;
    delete last.data();
    auto* drag = new QDrag(QCoreApplication::instance());
    last = drag;
    drag->setMimeData(gifMimeData(file.readAll(), path));
    if (!picture.isNull()) {
        const QPixmap thumbnail = picture.scaled(96, 96, Qt::KeepAspectRatio, Qt::SmoothTransformation);
        drag->setPixmap(thumbnail);
        drag->setHotSpot(QPoint(thumbnail.width() / 2, thumbnail.height() / 2));
    }
    drag->exec(Qt::CopyAction, Qt::CopyAction);
}

} // namespace vantalo
