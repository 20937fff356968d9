#include "GifFile.h"

#include <QDateTime>
#include <QDir>
#include <QFile>

namespace vantalo {

std::expected<QString, Failure> writeGifFile(const QByteArray& gif, const QString& directory)
{
    // The name's time is taken once the GIF is encoded.
    const QString path =
        QDir(directory).filePath(QStringLiteral("vantalo_%1.gif").arg(QDateTime::currentSecsSinceEpoch()));
    QFile file(path);
    const auto userOnly = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate, userOnly)) {
        return std::unexpected(Failure{file.errorString()});
    }
    // A file of that name from the same second is replaced, and may have had other permissions.
    file.setPermissions(userOnly);
    if (file.write(gif) != gif.size() || !file.flush()) {
        const QString reason = file.errorString();
        file.close();
        return std::unexpected(Failure{reason});
    }
    file.close();
    return path;
}

} // namespace vantalo
