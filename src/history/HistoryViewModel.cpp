#include "HistoryViewModel.h"

#include "GifHistoryStore.h"

namespace vantalo {

HistoryViewModel::HistoryViewModel(GifHistoryStore& store) : m_items(store.loadItems()), m_store(store)
{
    // Whoever changed the list (a new recording, a fit, a delete in the panel), it shows at once.
    connect(&store, &GifHistoryStore::changed, this, &HistoryViewModel::reload);
}

void HistoryViewModel::select(const GifHistoryItem& item)
{
    if (onSelect) {
        onSelect(item);
    }
}

void HistoryViewModel::reload()
{
    m_items = m_store.loadItems();
    Q_EMIT itemsChanged();
}

void HistoryViewModel::deleteItem(const GifHistoryItem& item)
{
    // Into the desktop's trash, where it can be taken back; gone for good where there is none.
    if (!m_store.moveToTrash(item)) {
        m_store.deleteItem(item);
    }
    m_items.removeIf([&item](const GifHistoryItem& kept) { return kept.id == item.id; });
    Q_EMIT itemsChanged();
}

} // namespace vantalo
