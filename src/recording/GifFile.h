#pragma once

#include "common/Failure.h"

#include <QByteArray>
#include <QString>

#include <expected>

namespace vantalo {

// Writes a finished recording as "vantalo_<seconds>.gif" into `directory`, readable by the user
// alone; answers its path.
std::expected<QString, Failure> writeGifFile(const QByteArray& gif, const QString& directory);

} // namespace vantalo
