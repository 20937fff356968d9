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
    // Fits the GIF shown under `budget` bytes, in the panel, into a new history entry; with
    // `replacing`, only the result is kept. A GIF that cannot fit is kept as it is, and the panel
    // says so.
    virtual void fitShown(qint64 budget, bool replacing) = 0;
    // Told when the panel has added to the history or taken from it.
    std::function<void()> onHistoryChanged;
    // "Trim and more…" for the GIF shown.
    std::function<void(const QString& gifPath, const std::optional<QUuid>& historyItemId)> onTrim;
};

// The window of kept GIFs.
class HistoryWindowPresenter
{
public:
    virtual ~HistoryWindowPresenter() = default;
    virtual void show() = 0;
    // Reads the list again, if the window is open.
    virtual void reload() = 0;
    std::function<void(const GifHistoryItem& item)> onSelectItem;
    std::function<void(const GifHistoryItem& item, qint64 budget)> onFitItem;
    std::function<void(const GifHistoryItem& item)> onTrimItem;
    std::function<void(const GifHistoryItem& item)> onCopyItem;
};

} // namespace vantalo
