#pragma once

#include "common/GifHistoryItem.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QUuid>

#include <optional>

namespace vantalo {

// The history file ("history.json"), both ways: a JSON array of entries, newest first, written
// with its members in a fixed order and times in whole seconds, as other readers expect it.
QByteArray encodeHistory(const QList<GifHistoryItem>& items);

struct DecodedHistory
{
    QList<GifHistoryItem> items;
    int ignored = 0; // entries left out: they could not be used
};
// Nothing when the file is not such an array.
std::optional<DecodedHistory> decodeHistory(const QByteArray& json);

// An id as the file writes it (upper case, no braces).
QString uuidText(const QUuid& id);
// A stored file name must be one path component, kept exactly when written as UTF-8.
bool isPlainFilename(const QString& name);

} // namespace vantalo
