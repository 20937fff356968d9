#include "GifTimeline.h"

#include "GifReader.h"

#include <QBuffer>
#include <QElapsedTimer>

namespace vantalo {

QImage GifTimeline::preview(int index) const
{
    if (index < 0 || index >= previews.size()) {
        return {};
    }
    return QImage::fromData(previews[index], "JPG");
}

namespace {
std::optional<QRgb> flatColour(const QImage& picture)
{
    const QImage image = picture.convertToFormat(QImage::Format_ARGB32);
    if (image.isNull()) {
        return std::nullopt;
    }
    const QRgb first = image.pixel(0, 0);
    for (int y = 0; y < image.height(); ++y) {
        const auto* line = reinterpret_cast<const QRgb*>(image.constScanLine(y));
        if (std::any_of(line, line + image.width(), [first](QRgb p) { return p != first; })) {
            return std::nullopt;
        }
    }
    return first;
}
} // namespace

FrameSpan GifTimeline::suggestedSpan(int still) const
{
    const int count = frameCount();
    if (count < 2) {
        return {};
    }
    // Blank frames at the start, unless the GIF shows that blank again later (or is all blank).
    int begin = 0;
    if (flat.size() == count) {
        const auto picture = std::find(flat.begin(), flat.end(), std::optional<QRgb>());
        const auto blankAgain = [&](const std::optional<QRgb>& colour) {
            return colour && std::find(flat.begin(), picture, colour) != picture;
        };
        if (picture != flat.end() && std::none_of(picture, flat.end(), blankAgain)) {
            begin = int(picture - flat.begin());
        }
    }
    // The still start: the first frame and the unchanged frames after it; the last of them stays.
    int first = begin;
    qint64 held = delays[first];
    while (first + 1 < count && !changed[first + 1]) {
        ++first;
        held += delays[first];
    }
    if (held <= still || first == count - 1) {
        first = begin;
    }
    // The still end: the last changed frame and the unchanged ones after it; the first stays.
    int last = count - 1;
    held = delays[last];
    while (last > first && !changed[last]) {
        --last;
        held += delays[last];
    }
    if (held <= still) {
        last = count - 1;
    }
    return {first, last + 1};
}

std::expected<GifTimeline, Failure> readGifTimeline(const QString& path, QSize previewBox,
                                                    std::stop_token stop)
{
    auto reader = GifReader::open(path);
    if (!reader) {
        return std::unexpected(reader.error());
    }
    GifTimeline timeline;
    timeline.size = (*reader)->screenSize();
    const QSize fitted = timeline.size.scaled(previewBox, Qt::KeepAspectRatio).boundedTo(timeline.size);
    for (;;) {
        if (stop.stop_requested()) {
            return std::unexpected(Failure{cancelledText});
        }
        const auto read = (*reader)->readFrame();
        if (!read) {
            return std::unexpected(read.error());
        }
        if (!*read) {
            break;
        }
        timeline.starts.append(timeline.starts.isEmpty() ? 0
                                                         : timeline.starts.last() + timeline.delays.last());
        timeline.delays.append((*reader)->delay());
        timeline.changed.append(timeline.delays.size() == 1 || (*reader)->changed());
        timeline.flat.append(timeline.changed.last() ? flatColour((*reader)->picture())
                                                     : timeline.flat.last());
        QByteArray jpeg;
        QBuffer buffer(&jpeg);
        buffer.open(QIODevice::WriteOnly);
        (*reader)
            ->picture()
            .scaled(fitted, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
            .save(&buffer, "JPG", 88);
        timeline.previews.append(std::move(jpeg));
    }
    if (!timeline.delays.isEmpty()) {
        timeline.starts.append(timeline.starts.last() + timeline.delays.last());
    }
    if (timeline.delays.isEmpty()) {
        return std::unexpected(Failure{QStringLiteral("%1 has no frames").arg(path)});
    }
    return timeline;
}

std::expected<SizeEstimate, Failure> estimateGifBytes(const QString& source, const OutputSettings& settings,
                                                      FrameSpan frames, std::chrono::milliseconds time,
                                                      std::stop_token stop)
{
    QBuffer output;
    output.open(QIODevice::WriteOnly);
    std::stop_source enough;
    const std::stop_callback forward(stop, [&enough] { enough.request_stop(); });
    // The time runs from the first kept frame: reading the frames before a span is no encoding.
    // The first frame (the header, and a whole picture) is counted apart from the frames after
    // it, which only draw what changed: those are the ones the rest of the span is made of.
    QElapsedTimer clock;
    struct Point
    {
        double fraction = 0.0;
        qint64 bytes = 0;
    };
    std::optional<Point> first;
    Point last;
    RecodeControl control;
    control.frames = frames;
    control.stop = enough.get_token();
    control.encoded = [&](double fraction, qint64 bytes) {
        last = {fraction, bytes};
        if (!first) {
            first = last;
            clock.start();
        } else if (clock.elapsed() >= time.count()) {
            enough.request_stop();
        }
    };
    const auto written = recodeGif(source, output, settings, -1, control);
    if (written) {
        return SizeEstimate{written->bytes, true};
    }
    if (stop.stop_requested() || written.error().description != cancelledText || !first ||
        last.fraction <= first->fraction) {
        return std::unexpected(written.error());
    }
    const double rest =
        double(last.bytes - first->bytes) * (1.0 - first->fraction) / (last.fraction - first->fraction);
    return SizeEstimate{first->bytes + qint64(rest) + 1, false}; // and the trailer
}

} // namespace vantalo
