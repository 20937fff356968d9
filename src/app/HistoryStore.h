#pragma once

#include "common/Failure.h"
#include "common/GifHistoryItem.h"

#include <QString>

#include <expected>

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

} // namespace vantalo
