#pragma once

#include "HistoryViewModel.h"

#include <QWidget>

class QLabel;
class QStackedLayout;

namespace vantalo {

class HistoryGridView;

// The window's content: the grid, or the empty state when there is nothing to show.
class HistoryPanelView : public QWidget
{
    Q_OBJECT
public:
    HistoryPanelView(HistoryViewModel& model, const QString& shortcutLabel, QWidget* parent = nullptr);

    bool showsEmptyState() const;
    HistoryGridView* grid() const { return m_grid; }
    QString emptyHint() const;

private:
    void refresh();

    HistoryViewModel& m_model;
    QStackedLayout* m_stack;
    HistoryGridView* m_grid;
    QWidget* m_empty;
    QLabel* m_hint;
};

} // namespace vantalo
