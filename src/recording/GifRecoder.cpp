#include "GifRecoder.h"

#include "CodecThreadPool.h"
#include "FrameEncoding.h"
#include "GifReader.h"
#include "GifWriter.h"
#include "common/Formatting.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>
#include <QTemporaryFile>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <future>
#include <mutex>

namespace vantalo {

QString OutputSettings::label() const
{
    QString text = QStringLiteral("%1×, %2 fps").arg(scale).arg(frameRate);
    if (lossy > 0) {
        text += QStringLiteral(", lossy %1").arg(lossy);
    }
    return text;
}

const QList<FitPreset>& fitPresets()
{
    static const QList<FitPreset> presets{
        {QStringLiteral("Under 15 MB (X)"), 15'000'000},
        {QStringLiteral("Under 10 MB (GitHub, Discord)"), 10'000'000},
        {QStringLiteral("Under 5 MB"), 5'000'000},
        {QStringLiteral("Under 1 MB"), 1'000'000},
    };
    return presets;
}

namespace {

bool isPixelDoubled(const QImage& picture)
{
    if (picture.width() % 2 || picture.height() % 2) {
        return false;
    }
    for (int y = 0; y < picture.height(); y += 2) {
        const auto* a = reinterpret_cast<const QRgb*>(picture.constScanLine(y));
        const auto* b = reinterpret_cast<const QRgb*>(picture.constScanLine(y + 1));
        if (std::memcmp(a, b, size_t(picture.width()) * 4) != 0) {
            return false;
        }
        for (int x = 0; x < picture.width(); x += 2) {
            if (a[x] != a[x + 1]) {
                return false;
            }
        }
    }
    return true;
}

// Every other pixel of every other row: the picture of a doubled one.
QImage halvedExactly(const QImage& picture)
{
    QImage out(picture.size() / 2, QImage::Format_RGB32);
    for (int y = 0; y < out.height(); ++y) {
        const auto* in = reinterpret_cast<const QRgb*>(picture.constScanLine(2 * y));
        auto* row = reinterpret_cast<QRgb*>(out.scanLine(y));
        for (int x = 0; x < out.width(); ++x) {
            row[x] = in[2 * x];
        }
    }
    return out;
}

// The mean of each 2 × 2 block (an odd last row or column is counted twice).
QImage halvedByAverage(const QImage& picture)
{
    const int width = std::max(1, picture.width() / 2);
    const int height = std::max(1, picture.height() / 2);
    QImage out(width, height, QImage::Format_RGB32);
    for (int y = 0; y < height; ++y) {
        const auto* a =
            reinterpret_cast<const QRgb*>(picture.constScanLine(std::min(2 * y, picture.height() - 1)));
        const auto* b =
            reinterpret_cast<const QRgb*>(picture.constScanLine(std::min(2 * y + 1, picture.height() - 1)));
        auto* row = reinterpret_cast<QRgb*>(out.scanLine(y));
        for (int x = 0; x < width; ++x) {
            const int x0 = std::min(2 * x, picture.width() - 1);
            const int x1 = std::min(2 * x + 1, picture.width() - 1);
            const auto mean = [&](int (*channel)(QRgb)) {
                return (channel(a[x0]) + channel(a[x1]) + channel(b[x0]) + channel(b[x1]) + 2) / 4;
            };
            row[x] = qRgb(mean(qRed), mean(qGreen), mean(qBlue));
        }
    }
    return out;
}

} // namespace

Frame frameAtScale(const QImage& given, int scale)
{
    const QImage picture =
        given.format() == QImage::Format_RGB32 ? given : given.convertToFormat(QImage::Format_RGB32);
    const bool doubled = isPixelDoubled(picture);
    if (scale >= 2) {
        return doubled ? Frame{halvedExactly(picture), 2} : Frame{picture.copy(), 1};
    }
    return Frame{doubled ? halvedExactly(picture) : halvedByAverage(picture), 1};
}

namespace {

struct Picked
{
    Frame frame;
    qint64 start = 0;      // hundredths of a second from the first frame
    double progress = 0.0; // how far through the source
};

// The source's frames that the output keeps, each at the time it is first shown. Frames are
// sampled on the source's own timeline, so a span keeps the frames the whole GIF would.
class FramePicker
{
public:
    FramePicker(std::unique_ptr<GifReader> reader, const OutputSettings& settings, FrameSpan span)
        : m_reader(std::move(reader)), m_settings(settings), m_span(span)
    {
    }

    std::expected<std::optional<Picked>, Failure> next()
    {
        for (;;) {
            if (m_span.end >= 0 && m_reader->framesRead() >= m_span.end) {
                return std::nullopt;
            }
            const auto read = m_reader->readFrame();
            if (!read) {
                return std::unexpected(read.error());
            }
            if (!*read) {
                return std::nullopt;
            }
            const int index = m_reader->framesRead() - 1;
            const qint64 start = m_time;
            m_time += m_reader->delay();
            if (index < m_span.first) {
                m_spanStart = m_time;
                continue;
            }
            // The frame is kept if it is on screen at one of the output's sample times.
            while (sampleTime(m_sample) < start) {
                ++m_sample;
            }
            if (index == m_span.first || (m_reader->changed() && sampleTime(m_sample) < m_time)) {
                return Picked{frameAtScale(m_reader->picture(), m_settings.scale), start - m_spanStart,
                              progress(index)};
            }
        }
    }
    qint64 totalTime() const { return m_time - m_spanStart; }

private:
    qint64 sampleTime(qint64 k) const
    {
        return std::llround(double(k) * 100.0 / std::max(1, m_settings.frameRate));
    }
    double progress(int index) const
    {
        if (m_span.end > m_span.first) {
            return double(index + 1 - m_span.first) / double(m_span.end - m_span.first);
        }
        return m_reader->progress();
    }

    std::unique_ptr<GifReader> m_reader;
    OutputSettings m_settings;
    FrameSpan m_span;
    qint64 m_time = 0;
    qint64 m_spanStart = 0;
    qint64 m_sample = 0;
};

// The encoded frames, each with its delay once the next one's start gives it, written to the
// device when the last has come: only then can frames share a colour table. Counts the bytes as
// the file would be with every frame's own table, which sharing only makes smaller.
class FrameCollector
{
public:
    FrameCollector(QIODevice& output, qint64 limit) : m_output(output), m_limit(limit) {}
    bool overLimit() const { return m_limit >= 0 && m_bytes > m_limit; }
    // The frames with a delay, and the header.
    qint64 bytes() const { return m_bytes; }
    // With the frame that waits for its delay.
    qint64 encodedBytes() const { return m_bytes + m_pendingBytes; }

    void add(EncodedFrame frame, qint64 start, QSize screen)
    {
        if (!m_screen.isValid()) {
            QByteArray header;
            appendGifHeader(header, screen);
            m_bytes = header.size();
            m_screen = screen;
        } else {
            m_delays.append(delayUntil(start));
            m_bytes += m_pendingBytes;
            m_frames.append(std::move(m_pending));
        }
        m_pending = std::move(frame);
        m_pendingStart = start;
        // Its size is known already: the delay's field is there whatever the delay.
        QByteArray pending;
        appendGifFrame(pending, m_pending, 0);
        m_pendingBytes = pending.size();
    }
    std::expected<qint64, Failure> finish(qint64 end)
    {
        m_delays.append(delayUntil(end));
        m_frames.append(std::move(m_pending));
        const QByteArray gif = assembleGif(m_screen, std::move(m_frames), m_delays);
        if (m_output.write(gif) != gif.size()) {
            return std::unexpected(
                Failure{QStringLiteral("Cannot write the GIF: %1").arg(m_output.errorString())});
        }
        return gif.size();
    }

private:
    int delayUntil(qint64 time) const { return int(std::clamp<qint64>(time - m_pendingStart, 0, 0xffff)); }

    QIODevice& m_output;
    qint64 m_limit;
    qint64 m_bytes = 0;
    QSize m_screen; // valid once the first frame has come
    QList<EncodedFrame> m_frames;
    QList<int> m_delays;
    EncodedFrame m_pending;
    qint64 m_pendingStart = 0;
    qint64 m_pendingBytes = 0;
};

} // namespace

std::expected<RecodeResult, Failure> recodeGif(const QString& source, QIODevice& output,
                                               const OutputSettings& settings, qint64 byteLimit,
                                               const RecodeControl& control)
{
    auto reader = GifReader::open(source);
    if (!reader) {
        return std::unexpected(reader.error());
    }
    FramePicker picker(std::move(*reader), settings, control.frames);
    FrameCollector collector(output, byteLimit);
    QuantizerSettings quantizer;
    CanvasEncoder lossy(quantizer, settings.lossy);
    std::optional<Frame> previous;
    QSize screen;
    RecodeResult result;

    // The next frame is read while this one is encoded.
    auto upcoming = runOnCodecThreads([&picker] { return picker.next(); });
    for (;;) {
        auto picked = upcoming.result();
        if (!picked) {
            return std::unexpected(picked.error());
        }
        if (!*picked) {
            break;
        }
        if (control.stop.stop_requested()) {
            return std::unexpected(Failure{cancelledText});
        }
        upcoming = runOnCodecThreads([&picker] { return picker.next(); });
        const Frame& frame = (*picked)->frame;
        if (!screen.isValid()) {
            screen = frame.size();
        }
        EncodedFrame encoded = settings.lossy > 0
                                   ? lossy.encode(frame)
                                   : encodeFrame(frame, previous ? &*previous : nullptr, quantizer);
        previous = frame;
        collector.add(std::move(encoded), (*picked)->start, screen);
        ++result.frames;
        if (control.encoded) {
            control.encoded((*picked)->progress, collector.encodedBytes());
        }
        // Written bytes grow with the source read: once a quarter is read, an output heading for
        // well over the limit is given up early.
        const double read = (*picked)->progress;
        if (byteLimit >= 0 && read > 0.25 && double(collector.bytes()) / read > 1.1 * double(byteLimit)) {
            upcoming.waitForFinished();
            result.bytes = collector.bytes();
            result.overLimit = true;
            return result;
        }
        if (collector.overLimit()) {
            upcoming.waitForFinished();
            result.bytes = collector.bytes();
            result.overLimit = true;
            return result;
        }
        if (control.progress) {
            control.progress((*picked)->progress);
        }
    }
    if (result.frames == 0) {
        return std::unexpected(
            Failure{QStringLiteral("%1 has no frames to keep").arg(QDir::toNativeSeparators(source))});
    }
    const auto written = collector.finish(picker.totalTime());
    if (!written) {
        return std::unexpected(written.error());
    }
    result.bytes = *written;
    result.overLimit = byteLimit >= 0 && *written > byteLimit;
    return result;
}

namespace {

// A file next to `target` that takes its place only when renamed over it.
std::expected<std::unique_ptr<QTemporaryFile>, Failure> temporaryBeside(const QString& target)
{
    const QFileInfo info(target);
    auto file = std::make_unique<QTemporaryFile>(info.absolutePath() + QStringLiteral("/.") +
                                                 info.fileName() + QStringLiteral(".XXXXXX"));
    if (!file->open()) {
        return std::unexpected(Failure{QStringLiteral("Cannot write %1: %2")
                                           .arg(QDir::toNativeSeparators(target), file->errorString())});
    }
    return file;
}

std::expected<void, Failure> replaceWith(QTemporaryFile& file, const QString& target)
{
    if (!file.flush()) {
        return std::unexpected(Failure{
            QStringLiteral("Cannot write %1: %2").arg(QDir::toNativeSeparators(target), file.errorString())});
    }
    file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther);
    file.close();
    if (std::rename(QFile::encodeName(file.fileName()).constData(), QFile::encodeName(target).constData()) !=
        0) {
        return std::unexpected(Failure{
            QStringLiteral("Cannot write %1: %2")
                .arg(QDir::toNativeSeparators(target), QString::fromLocal8Bit(std::strerror(errno)))});
    }
    file.setAutoRemove(false);
    return {};
}

} // namespace

std::expected<RecodeResult, Failure> recodeGifFile(const QString& source, const QString& target,
                                                   const OutputSettings& settings,
                                                   const RecodeControl& control)
{
    auto file = temporaryBeside(target);
    if (!file) {
        return std::unexpected(file.error());
    }
    auto result = recodeGif(source, **file, settings, -1, control);
    if (!result) {
        return result;
    }
    if (auto replaced = replaceWith(**file, target); !replaced) {
        return std::unexpected(replaced.error());
    }
    return result;
}

QList<OutputSettings> fitLadder(bool pixelDoubled)
{
    QList<OutputSettings> ladder{{2, 15, 0}};
    if (!pixelDoubled) {
        ladder.append({{2, 15, 20}, {2, 15, 40}});
    }
    for (const int level : {0, 20, 40, 60, 80, 100}) {
        ladder.append({1, 15, level});
    }
    for (const int level : {60, 80, 100}) {
        ladder.append({1, 10, level});
    }
    for (const int level : {80, 100}) {
        ladder.append({1, 5, level});
    }
    return ladder;
}

std::expected<FitResult, FitFailure> fitGif(const QString& source, qint64 budget, const QString& target,
                                            const RecodeControl& control)
{
    const auto fail = [](const Failure& failure) {
        return std::unexpected(FitFailure{failure, std::nullopt});
    };
    // The source must be readable whatever its size; a GIF that already fits is kept as it is.
    auto reader = GifReader::open(source);
    if (!reader) {
        return fail(reader.error());
    }
    const qint64 sourceBytes = QFileInfo(source).size();
    const bool doubled = [&] {
        const auto first = (*reader)->readFrame();
        return first && *first && isPixelDoubled((*reader)->picture());
    }();
    if (control.stop.stop_requested()) {
        return fail(Failure{cancelledText});
    }
    if (sourceBytes <= budget && control.frames.whole()) {
        for (;;) {
            const auto read = (*reader)->readFrame();
            if (!read) {
                return fail(read.error());
            }
            if (!*read) {
                break;
            }
        }
        auto file = temporaryBeside(target);
        QFile in(source);
        if (!file || !in.open(QIODevice::ReadOnly)) {
            return fail(file ? Failure{QStringLiteral("Cannot read %1").arg(QDir::toNativeSeparators(source))}
                             : file.error());
        }
        while (!in.atEnd()) {
            if ((*file)->write(in.read(1 << 20)) < 0) {
                return fail(Failure{QStringLiteral("Cannot write %1").arg(QDir::toNativeSeparators(target))});
            }
        }
        if (auto replaced = replaceWith(**file, target); !replaced) {
            return fail(replaced.error());
        }
        return FitResult{sourceBytes, OutputSettings{}, true, 0};
    }
    reader->reset();

    const QList<OutputSettings> ladder = fitLadder(doubled);
    struct Attempt
    {
        std::expected<RecodeResult, Failure> result = std::unexpected(Failure{});
        std::unique_ptr<QTemporaryFile> file;
    };
    std::mutex progressMutex;
    int round = 0;
    const auto attempt = [&](qsizetype index) {
        Attempt out;
        auto file = temporaryBeside(target);
        if (!file) {
            out.result = std::unexpected(file.error());
            return out;
        }
        const bool last = index == ladder.size() - 1;
        RecodeControl each;
        each.frames = control.frames;
        each.progress = [&](double fraction) {
            const std::lock_guard lock(progressMutex);
            if (control.progress) {
                control.progress(std::min(1.0, (round + fraction) / 3.0));
            }
        };
        each.stop = control.stop;
        out.result = recodeGif(source, **file, ladder[index], last ? -1 : budget, each);
        out.file = std::move(*file);
        return out;
    };
    const auto fits = [budget](const Attempt& a) {
        return !a.result->overLimit && a.result->bytes <= budget;
    };

    // The best step that fits, by two encodes at a time (one a core): first the two lossless ones
    // (2× and 1×, the quickest to encode, and often enough), then at a third and two thirds of the
    // steps left. An encode stops once it is over the budget, or heading well over it; the
    // smallest settings run to the end, to say how small the GIF can get.
    FitResult fit;
    std::unique_ptr<QTemporaryFile> best;
    std::optional<qint64> smallest;
    qsizetype low = 0;
    qsizetype high = ladder.size(); // the best step known to fit; none yet
    for (; low < high; ++round) {
        const qsizetype span = high - low;
        qsizetype first = low + span / 3;
        qsizetype second = span > 1 ? std::max(first + 1, low + 2 * span / 3) : -1;
        if (round == 0) {
            first = 0;
            second = ladder.indexOf(OutputSettings{1, 15, 0});
        }
        auto secondRun =
            second >= 0 ? std::async(std::launch::async, attempt, second) : std::future<Attempt>();
        Attempt a = attempt(first);
        std::optional<Attempt> b;
        if (secondRun.valid()) {
            b = secondRun.get();
        }
        fit.encodes += b ? 2 : 1;
        for (const Attempt* done : {&a, b ? &*b : nullptr}) {
            if (done && !done->result) {
                return fail(done->result.error());
            }
        }
        const auto keep = [&](Attempt& found, qsizetype index) {
            best = std::move(found.file);
            fit.bytes = found.result->bytes;
            fit.settings = ladder[index];
            high = index;
        };
        if (first == ladder.size() - 1) {
            smallest = a.result->bytes;
        }
        if (second == ladder.size() - 1) {
            smallest = b->result->bytes;
        }
        if (fits(a)) {
            keep(a, first);
        } else if (b && fits(*b)) {
            low = first + 1;
            keep(*b, second);
        } else {
            low = (b ? second : first) + 1;
        }
    }
    if (!best) {
        return std::unexpected(FitFailure{
            Failure{QStringLiteral("%1 cannot be made %2 or smaller: the smallest settings (%3) give %4")
                        .arg(QDir::toNativeSeparators(source), fileSizeLabel(budget, QLocale::c()),
                             ladder.last().label(), fileSizeLabel(smallest.value_or(0), QLocale::c()))},
            smallest});
    }
    if (auto replaced = replaceWith(*best, target); !replaced) {
        return fail(replaced.error());
    }
    if (control.progress) {
        control.progress(1.0);
    }
    return fit;
}

} // namespace vantalo
