#pragma once

#include <QDateTime>
#include <QString>
#include <QUrl>
#include <QUuid>

#include <optional>

namespace vantalo {

struct GifHistoryItem
{
    QUuid id;
    QString filename;
    QDateTime createdAt;
    qint64 fileSize = 0;
    std::optional<QUrl> uploadURL;

    friend bool operator==(const GifHistoryItem&, const GifHistoryItem&) = default;
};

} // namespace vantalo
