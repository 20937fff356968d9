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

FrameSpan GifTimeline::suggestedSpan(int still) const
{
    const int count = frameCount();
    if (count < 2) {
        return {};
    }
    // The still start: frame 0 and the unchanged frames after it; the last of them stays.
    int first = 0;
    qint64 held = delays[0];
    while (first + 1 < count && !changed[first + 1]) {
        ++first;
        held += delays[first];
    }
    if (held <= still || first == count - 1) {
        first = 0;
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
    QElapsedTimer clock;
    clock.start();
    double done = 0.0;
    RecodeControl control;
    control.frames = frames;
    control.stop = enough.get_token();
    control.progress = [&](double fraction) {
        done = fraction;
        if (clock.elapsed() >= time.count()) {
            enough.request_stop();
        }
    };
    const auto written = recodeGif(source, output, settings, -1, control);
    if (written) {
        return SizeEstimate{written->bytes, true};
    }
    if (stop.stop_requested() || written.error().description != cancelledText || done <= 0.0) {
        return std::unexpected(written.error());
    }
    return SizeEstimate{qint64(double(output.size()) / done), false};
}

} // namespace vantalo
