#pragma once

#include "TrimWindow.h"
#include "app/TrimPresenter.h"

#include <QPointer>

namespace vantalo {

// Opens the trim window in the middle of the primary screen, named by when the GIF was made.
class TrimWindowController final : public TrimPresenter
{
public:
    ~TrimWindowController() override;
    void open(const QString& gifPath) override;
    TrimWindow* window() const { return m_window; }

private:
    QPointer<TrimWindow> m_window;
};

} // namespace vantalo
