#pragma once

#include "common/GifHistoryItem.h"

#include <QtGlobal>

#include <functional>

namespace vantalo {

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
