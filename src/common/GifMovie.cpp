#include "GifMovie.h"

namespace vantalo {

std::optional<FittedMovie> openFittedMovie(const QString& path, QSize bounds)
{
    auto movie = std::make_unique<QMovie>(path);
    // The first frame tells the size (a QMovie knows none before it decodes one) and that the
    // file really is a GIF.
    if (!movie->isValid() || !movie->jumpToFrame(0) || movie->currentImage().isNull()) {
        return std::nullopt;
    }
    const QSize fitted = movie->currentImage().size().scaled(bounds, Qt::KeepAspectRatio);
    movie->setScaledSize(fitted);
    movie->jumpToFrame(0);
    return FittedMovie{std::move(movie), fitted};
}

} // namespace vantalo
