#include "HistoryPanelView.h"

#include "HistoryGridView.h"
#include "HistoryStyle.h"
#include "common/Symbols.h"

#include <QLabel>
#include <QPainter>
#include <QStackedLayout>
#include <QVBoxLayout>

namespace vantalo {

using namespace history;

HistoryPanelView::HistoryPanelView(HistoryViewModel& model, const QString& shortcutLabel, QWidget* parent)
    : QWidget(parent), m_model(model)
{
    m_stack = new QStackedLayout(this);
    m_grid = new HistoryGridView(model, this);
    m_stack->addWidget(m_grid);

    m_empty = new QWidget(this);
    auto* column = new QVBoxLayout(m_empty);
    column->setSpacing(12);
    column->addStretch();
    // The empty state's picture: the symbol, drawn once.
    auto* symbol = new QLabel(m_empty);
    QPixmap picture(QSize(48, 48) * devicePixelRatio());
    picture.setDevicePixelRatio(devicePixelRatio());
    picture.fill(Qt::transparent);
    {
        QPainter p(&picture);
        paintSymbol(p, Symbol::photoStack, QRectF(4, 4, 40, 40), secondary(palette()), 1.6);
    }
    symbol->setPixmap(picture);
    symbol->setFixedSize(48, 48);
    column->addWidget(symbol, 0, Qt::AlignHCenter);
    auto* title = new QLabel(QStringLiteral("No GIFs yet"), m_empty);
    QFont titleFont = title->font();
    titleFont.setPixelSize(20);
    title->setFont(titleFont);
    title->setForegroundRole(QPalette::PlaceholderText);
    column->addWidget(title, 0, Qt::AlignHCenter);
    m_hint = new QLabel(QStringLiteral("Record a GIF with ") + shortcutLabel, m_empty);
    QFont hintFont = m_hint->font();
    hintFont.setPixelSize(12);
    m_hint->setFont(hintFont);
    QPalette hintPalette = m_hint->palette();
    hintPalette.setColor(QPalette::WindowText, secondary(hintPalette, 0.7));
    m_hint->setPalette(hintPalette);
    column->addWidget(m_hint, 0, Qt::AlignHCenter);
    column->addStretch();
    m_stack->addWidget(m_empty);

    setMinimumSize(320, 300);
    connect(&m_model, &HistoryViewModel::itemsChanged, this, &HistoryPanelView::refresh);
    refresh();
}

bool HistoryPanelView::showsEmptyState() const
{
    return m_stack->currentWidget() == m_empty;
}

QString HistoryPanelView::emptyHint() const
{
    return m_hint->text();
}

void HistoryPanelView::refresh()
{
    m_stack->setCurrentWidget(m_model.items().isEmpty() ? m_empty : static_cast<QWidget*>(m_grid));
}

} // namespace vantalo
