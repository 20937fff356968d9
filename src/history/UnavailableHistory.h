#pragma once

#include "HistoryStore.h"
#include "common/Console.h"

namespace vantalo {

// Stand-ins until the history and the preview panel exist: a GIF is never lost, its path is
// printed instead.
class UnavailableHistoryStore final : public HistoryStore
{
public:
    std::expected<GifHistoryItem, Failure> addGif(const QString&) override
    {
        return std::unexpected(Failure{QStringLiteral("The GIF history is not available in this version")});
    }
    QString filePath(const GifHistoryItem& item) const override { return item.filename; }
};

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
