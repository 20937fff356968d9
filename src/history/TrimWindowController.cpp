#include "TrimWindowController.h"

#include "common/Formatting.h"

#include <QFileInfo>
#include <QGuiApplication>
#include <QScreen>

namespace vantalo {

TrimWindowController::~TrimWindowController()
{
    delete m_window.data();
}

void TrimWindowController::open(const QString& gifPath)
{
    if (m_window && m_window->gifPath() == gifPath) {
        m_window->show();
        m_window->raise();
        m_window->activateWindow();
        return;
    }
    delete m_window.data();
    // Named by when the GIF was made: a kept GIF's file is written as it enters the history.
    m_window = new TrimWindow(gifPath, dateTimeLabel(QFileInfo(gifPath).lastModified()));
    m_window->setAttribute(Qt::WA_DeleteOnClose);
    m_window->onSaved = [this](const QString& path) {
        if (onSaved) {
            onSaved(path);
        }
    };
    if (QScreen* screen = QGuiApplication::primaryScreen()) {
        QRect frame(QPoint(), m_window->sizeHint());
        frame.moveCenter(screen->availableGeometry().center());
        m_window->move(frame.topLeft());
    }
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
}

} // namespace vantalo
