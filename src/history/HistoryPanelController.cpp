#include "HistoryPanelController.h"

#include "GifHistoryStore.h"
#include "HistoryPanelView.h"

#include <QDesktopServices>
#include <QGuiApplication>
#include <QScreen>
#include <QUrl>
#include <QVBoxLayout>

namespace vantalo {

HistoryPanelController::HistoryPanelController(GifHistoryStore& store, std::function<QString()> shortcutLabel)
    : m_store(store), m_shortcutLabel(std::move(shortcutLabel))
{
}

HistoryPanelController::~HistoryPanelController()
{
    delete m_window.data();
}

void HistoryPanelController::show()
{
    if (m_window && m_window->isVisible()) {
        m_window->raise();
        m_window->activateWindow();
        return;
    }
    delete m_window.data();

    auto* window = new QWidget;
    window->setWindowTitle(QStringLiteral("GIF History"));
    auto* model = new HistoryViewModel(m_store);
    model->setParent(window);
    model->onSelect = [this](const GifHistoryItem& item) {
        if (onSelectItem) {
            onSelectItem(item);
        }
    };
    model->onFit = [this](const GifHistoryItem& item, qint64 budget) {
        if (onFitItem) {
            onFitItem(item, budget);
        }
    };
    model->onTrim = [this](const GifHistoryItem& item) {
        if (onTrimItem) {
            onTrimItem(item);
        }
    };
    model->onCopy = [this](const GifHistoryItem& item) {
        if (onCopyItem) {
            onCopyItem(item);
        }
    };
    model->onOpen = [this](const GifHistoryItem& item) {
        QDesktopServices::openUrl(QUrl::fromLocalFile(m_store.filePath(item)));
    };
    auto* layout = new QVBoxLayout(window);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(new HistoryPanelView(*model, m_shortcutLabel ? m_shortcutLabel() : QString(), window));
    window->setMinimumSize(320, 300);
    window->resize(480, 400);
    if (const QScreen* screen = QGuiApplication::primaryScreen()) {
        QRect frame(QPoint(), window->size());
        frame.moveCenter(screen->availableGeometry().center());
        window->move(frame.topLeft());
    }
    window->show();
    window->raise();
    window->activateWindow();
    m_window = window;
    m_viewModel = model;
}

} // namespace vantalo
