#pragma once

#include <QMovie>
#include <QSize>
#include <QString>

#include <memory>
#include <optional>

namespace vantalo {

// A GIF's movie whose frames come out fitted into `bounds` (up or down, keeping the aspect
// ratio), and that fitted size. Absent when the file is not a GIF that can be read.
struct FittedMovie
{
    std::unique_ptr<QMovie> movie;
    QSize size;
};
std::optional<FittedMovie> openFittedMovie(const QString& path, QSize bounds);

} // namespace vantalo
