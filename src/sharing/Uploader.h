#pragma once

#include "common/Failure.h"

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <expected>
#include <functional>

namespace vantalo {

struct UploadResult
{
    QUrl url;        // the public link
    qint64 size = 0; // bytes sent
};

using UploadOutcome = std::expected<UploadResult, Failure>;

// Puts one finished GIF somewhere public and answers with its link. Both callbacks run on the
// thread that called `upload` (the main thread); `progress` may never run, and `total` is 0 while
// the size is not known. Destroying the uploader abandons its uploads without calling back.
class Uploader
{
public:
    using Progress = std::function<void(qint64 sent, qint64 total)>;
    using Completion = std::function<void(const UploadOutcome& outcome)>;

    virtual ~Uploader() = default;
    virtual void upload(const QByteArray& data, const QString& filename, Progress progress,
                        Completion done) = 0;
};

} // namespace vantalo
