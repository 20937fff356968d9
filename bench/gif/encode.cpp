// Encodes a PNG sequence with Vantalo's GIF encoder and reports time, memory and size:
//   vantalo-bench-gif --frames DIR --fps 15 --out FILE [--stream]
// With --stream the frames are fed to an encoding session at the frame rate, as a recording
// would, and the time from the last frame to the finished file is reported too.
#include "recording/GifEncoder.h"
#include "recording/GifRecoder.h"

#include "../common/ProcessStats.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QThread>
#include <QtConcurrent/QtConcurrentMap>

#include <cstdio>

using namespace vantalo;
using vantalo::bench::cpuSeconds;
using vantalo::bench::peakRssMb;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    const QCommandLineOption framesOption(QStringLiteral("frames"), QStringLiteral("PNG sequence"),
                                          QStringLiteral("dir"));
    const QCommandLineOption fpsOption(QStringLiteral("fps"), QStringLiteral("Frame rate"),
                                       QStringLiteral("n"), QStringLiteral("15"));
    const QCommandLineOption outOption(QStringLiteral("out"), QStringLiteral("GIF to write"),
                                       QStringLiteral("file"));
    const QCommandLineOption streamOption(QStringLiteral("stream"),
                                          QStringLiteral("Feed frames at the frame rate"));
    const QCommandLineOption speedOption(
        QStringLiteral("speed"), QStringLiteral("libimagequant speed (tuning)"), QStringLiteral("1-10"));
    const QCommandLineOption ditherOption(QStringLiteral("dither"),
                                          QStringLiteral("Dithering level (tuning)"), QStringLiteral("0-1"));
    parser.addOptions({framesOption, fpsOption, outOption, streamOption, speedOption, ditherOption});
    parser.process(app);

    QDir dir(parser.value(framesOption));
    const QStringList names = dir.entryList({QStringLiteral("*.png")}, QDir::Files, QDir::Name);
    if (names.isEmpty() || !parser.isSet(outOption)) {
        std::fprintf(stderr, "usage: --frames DIR --fps 15 --out FILE [--stream]\n");
        return 2;
    }
    const double fps = parser.value(fpsOption).toDouble();
    QuantizerSettings settings;
    if (parser.isSet(speedOption)) {
        settings.speed = parser.value(speedOption).toInt();
    }
    if (parser.isSet(ditherOption)) {
        settings.dithering = parser.value(ditherOption).toFloat();
    }
    FrameList frames = QtConcurrent::blockingMapped(
        names, [&](const QString& name) { return frameAtScale(QImage(dir.filePath(name)), 2); });

    QByteArray gif;
    QElapsedTimer wall;
    double cpuBefore = 0;
    if (parser.isSet(streamOption)) {
        GifEncodingSession session(settings);
        wall.start();
        cpuBefore = cpuSeconds();
        for (qsizetype k = 0; k < frames.size(); ++k) {
            const qint64 dueNs = qint64(k * 1e9 / fps);
            const qint64 waitNs = dueNs - wall.nsecsElapsed();
            if (waitNs > 0) {
                QThread::usleep(static_cast<unsigned long>(waitNs / 1000));
            }
            session.addFrame(frames[k]);
        }
        QElapsedTimer tail;
        tail.start();
        auto result = session.finish(1.0 / fps);
        const double tailSeconds = tail.nsecsElapsed() / 1e9;
        if (!result) {
            std::fprintf(stderr, "%s\n", qPrintable(result.error().description));
            return 1;
        }
        gif = *result;
        std::printf("stream tail_s=%.3f frames=%lld bytes=%lld\n", tailSeconds,
                    static_cast<long long>(frames.size()), static_cast<long long>(gif.size()));
    } else {
        wall.start();
        cpuBefore = cpuSeconds();
        auto result = GifEncoder(settings).encode(frames, 1.0 / fps);
        if (!result) {
            std::fprintf(stderr, "%s\n", qPrintable(result.error().description));
            return 1;
        }
        gif = *result;
    }
    const double wallSeconds = wall.nsecsElapsed() / 1e9;
    const double cpu = cpuSeconds() - cpuBefore;
    QFile out(parser.value(outOption));
    if (!out.open(QIODevice::WriteOnly) || out.write(gif) != gif.size()) {
        std::fprintf(stderr, "cannot write %s\n", qPrintable(out.fileName()));
        return 1;
    }
    std::printf("encode wall_s=%.3f cpu_s=%.3f peak_rss_mb=%.0f frames=%lld bytes=%lld\n", wallSeconds, cpu,
                peakRssMb(), static_cast<long long>(frames.size()), static_cast<long long>(gif.size()));
    return 0;
}
