#pragma once

#include "common/GifHistoryItem.h"

#include <QList>
#include <QObject>

#include <functional>

namespace vantalo {

class GifHistoryStore;

// The list the history window shows; it shrinks as the window deletes.
class HistoryViewModel : public QObject
{
    Q_OBJECT
public:
    explicit HistoryViewModel(GifHistoryStore& store);

    const QList<GifHistoryItem>& items() const { return m_items; }
    GifHistoryStore& store() const { return m_store; }
    // The actions on an item, besides deleting it.
    std::function<void(const GifHistoryItem&)> onSelect;
    std::function<void(const GifHistoryItem&, qint64 budget)> onFit;
    std::function<void(const GifHistoryItem&)> onTrim;
    std::function<void(const GifHistoryItem&)> onCopy;
    std::function<void(const GifHistoryItem&)> onOpen;

    void select(const GifHistoryItem& item);
    // Moves the GIF to the desktop's trash (deletes it where there is none) and unlists it.
    void deleteItem(const GifHistoryItem& item);
    // Reads the list again.
    void reload();

Q_SIGNALS:
    void itemsChanged();

private:
    QList<GifHistoryItem> m_items;
    GifHistoryStore& m_store;
};

} // namespace vantalo
