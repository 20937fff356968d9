#pragma once

#include "HistoryViewModel.h"
#include "app/HistoryWindowPresenter.h"

#include <QPointer>
#include <QWidget>

#include <functional>

namespace vantalo {

class GifHistoryStore;

// Opens the "GIF History" window, or brings it forward while it is open. A closed window is made
// afresh, with the list read again.
class HistoryPanelController final : public HistoryWindowPresenter
{
public:
    // `shortcutLabel` names the recording shortcut in the empty state's hint.
    HistoryPanelController(GifHistoryStore& store, std::function<QString()> shortcutLabel);
    ~HistoryPanelController() override;

    void show() override;
    QWidget* window() const { return m_window; }
    HistoryViewModel* viewModel() const { return m_viewModel; }

private:
    GifHistoryStore& m_store;
    std::function<QString()> m_shortcutLabel;
    QPointer<QWidget> m_window;
    QPointer<HistoryViewModel> m_viewModel;
};

} // namespace vantalo
