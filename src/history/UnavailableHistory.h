#pragma once

#include "HistoryStore.h"
#include "common/Console.h"

namespace vantalo {

// Stand-ins until the preview panel and the history window exist: the kept GIF's path is printed.
class PrintingPreviewPresenter final : public PreviewPresenter
{
public:
    explicit PrintingPreviewPresenter(LinePrinter print) : m_print(std::move(print)) {}
    void show(const QString& gifPath, const std::optional<QUuid>&) override
    {
        m_print(QStringLiteral("GIF saved to ") + gifPath);
    }

private:
    LinePrinter m_print;
};

class EmptyHistoryWindowPresenter final : public HistoryWindowPresenter
{
public:
    void show() override {}
};

} // namespace vantalo
