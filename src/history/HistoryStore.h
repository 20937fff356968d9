#pragma once

#include "GifHistoryItem.h"
#include "common/Failure.h"

#include <QString>

#include <expected>
#include <functional>
#include <optional>

namespace vantalo {

// The kept GIFs, as the application delegate uses them.
class HistoryStore
{
public:
    virtual ~HistoryStore() = default;
    // Moves a finished GIF into the history and lists it first.
    virtual std::expected<GifHistoryItem, Failure> addGif(const QString& gifPath) = 0;
    // Where the item's GIF lives.
    virtual QString filePath(const GifHistoryItem& item) const = 0;
};

// Shows a GIF in the floating preview panel; `historyItemId` is absent for a GIF that could not
// be kept in the history.
class PreviewPresenter
{
public:
    virtual ~PreviewPresenter() = default;
    virtual void show(const QString& gifPath, const std::optional<QUuid>& historyItemId) = 0;
    virtual void dismiss() = 0;
    // Fits the GIF shown under `budget` bytes, in the panel, and keeps only the result; one that
    // cannot fit is kept as it is, and the panel says so.
    virtual void fitShownReplacing(qint64 budget) = 0;
};

// The window of kept GIFs.
class HistoryWindowPresenter
{
public:
    virtual ~HistoryWindowPresenter() = default;
    virtual void show() = 0;
    std::function<void(const GifHistoryItem& item)> onSelectItem;
};

} // namespace vantalo
