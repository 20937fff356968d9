#include "GifDrag.h"

#include "ClipboardManager.h"

#include <QCoreApplication>
#include <QDrag>
#include <QFile>
#include <QPointer>

namespace vantalo {

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
    drag->setMimeData(ClipboardManager::gifMimeData(file.readAll(), path));
    if (!picture.isNull()) {
        const QPixmap thumbnail = picture.scaled(96, 96, Qt::KeepAspectRatio, Qt::SmoothTransformation);
        drag->setPixmap(thumbnail);
        drag->setHotSpot(QPoint(thumbnail.width() / 2, thumbnail.height() / 2));
    }
    drag->exec(Qt::CopyAction, Qt::CopyAction);
}

} // namespace vantalo
