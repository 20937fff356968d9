#include "GifDrag.h"

#include "ClipboardManager.h"

#include <QDrag>
#include <QFile>
#include <QWidget>

namespace vantalo {

void dragGifFile(QWidget* source, const QString& path, const QPixmap& picture)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return; // nothing to offer: the file is gone
    }
    auto* drag = new QDrag(source);
    drag->setMimeData(ClipboardManager::gifMimeData(file.readAll(), path));
    if (!picture.isNull()) {
        const QPixmap thumbnail = picture.scaled(96, 96, Qt::KeepAspectRatio, Qt::SmoothTransformation);
        drag->setPixmap(thumbnail);
        drag->setHotSpot(QPoint(thumbnail.width() / 2, thumbnail.height() / 2));
    }
    drag->exec(Qt::CopyAction, Qt::CopyAction);
}

} // namespace vantalo
