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
    // The window follows the history by itself: every change of the list shows at once.
    virtual void show() = 0;
    std::function<void(const GifHistoryItem& item)> onSelectItem;
    std::function<void(const GifHistoryItem& item, qint64 budget)> onFitItem;
    std::function<void(const GifHistoryItem& item)> onTrimItem;
    std::function<void(const GifHistoryItem& item)> onCopyItem;
};

} // namespace vantalo
