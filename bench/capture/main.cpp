// Records a region of the current X display while a window animates inside it, and reports what
// the recorder achieved next to Qt's own screen grab on the same region. The capture is the one
// the application would pick; with VANTALO_CAPTURE=portal it records a Wayland desktop through
// its screen-cast portal (run inside tests/wayland/with-mutter.sh), the animation then being a
// native Wayland window of its own process, full screen.
#include "platform/Platform.h"
#include "recording/GifEncoder.h"
#include "recording/ScreenRecorder.h"

#include "../common/ProcessStats.h"

#include <QApplication>
#include <QBuffer>
#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QImageReader>
#include <QPainter>
#include <QProcess>
#include <QScreen>
#include <QThread>
#include <QTimer>
#include <QWidget>

#include <cstdio>

using namespace vantalo;
using vantalo::bench::cpuSeconds;
using vantalo::bench::peakRssMb;

namespace {

// A moving square, a counter and a colour sweep: every frame differs from the one before.
class AnimatedWindow : public QWidget
{
public:
    explicit AnimatedWindow(bool animate)
    {
        setWindowFlags(Qt::FramelessWindowHint | Qt::X11BypassWindowManagerHint);
        setAttribute(Qt::WA_OpaquePaintEvent);
        if (animate) {
            connect(&m_tick, &QTimer::timeout, this, [this] {
                ++m_frame;
                update();
            });
            m_tick.start(16);
        }
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter p(this);
        p.fillRect(rect(), QColor::fromHsv(m_frame % 360, 60, 230));
        const int side = std::min(width(), height()) / 5;
        const int x = (m_frame * 7) % std::max(1, width() - side);
        const int y = (m_frame * 3) % std::max(1, height() - side);
        p.fillRect(x, y, side, side, QColor(30, 60, 200));
        p.setPen(Qt::black);
        QFont font = p.font();
        font.setPixelSize(std::max(12, height() / 10));
        p.setFont(font);
        p.drawText(rect(), Qt::AlignCenter, QString::number(m_frame));
    }

private:
    QTimer m_tick;
    int m_frame = 0;
};

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    const QCommandLineOption seconds(QStringLiteral("seconds"), QStringLiteral("Recording length."),
                                     QStringLiteral("s"), QStringLiteral("30"));
    const QCommandLineOption size(QStringLiteral("size"),
                                  QStringLiteral("Region WxH in points, or 'screen'."), QStringLiteral("WxH"),
                                  QStringLiteral("800x600"));
    const QCommandLineOption still(QStringLiteral("static"), QStringLiteral("Nothing moves in the region."));
    const QCommandLineOption encode(
        QStringLiteral("encode"),
        QStringLiteral("Hand frames to a GIF session as they come, as the application does."));
    const QCommandLineOption animateOnly(QStringLiteral("animate-full-screen"),
                                         QStringLiteral("Only show the animation, full screen."));
    const QCommandLineOption input(
        QStringLiteral("input"),
        QStringLiteral(
            "Show clicks and all keys, with xdotool clicking and typing 10 times a second (X11)."));
    parser.addOptions({seconds, size, still, encode, animateOnly, input});
    parser.process(app);
    if (parser.isSet(animateOnly)) {
        AnimatedWindow window(true);
        window.showFullScreen();
        return QApplication::exec();
    }
    Platform platform =
        loadPlatform({.restoreToken = [] { return qEnvironmentVariable("VANTALO_SCREENCAST_TOKEN"); },
                      .storeRestoreToken = {}});
    if (!platform.capture) {
        qFatal("No screen capture here: %s", qPrintable(platform.choice.noCaptureReason));
    }
    const bool portal = platform.choice.capture == CaptureService::portal;

    const QRect screen = QGuiApplication::primaryScreen()->geometry();
    QRect region = screen;
    if (parser.value(size) != QLatin1String("screen")) {
        const QStringList parts = parser.value(size).split(QLatin1Char('x'));
        region = QRect(QPoint(), QSize(parts.value(0).toInt(), parts.value(1).toInt()));
        region.moveCenter(screen.center());
    }
    const double durationSeconds = parser.value(seconds).toDouble();

    AnimatedWindow window(!parser.isSet(still));
    // On Wayland the animation is a native window in a process of its own, so that this
    // process's CPU time is the recorder's.
    QProcess nativeWindow;
    double qtGrabMs = 0;
    if (portal) {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("wayland"));
        nativeWindow.setProcessEnvironment(env);
        nativeWindow.start(QCoreApplication::applicationFilePath(),
                           {QStringLiteral("--animate-full-screen")});
        QThread::msleep(2000);
    } else {
        window.setGeometry(region);
        window.show();
        // The peer: Qt's own grab of the same rectangle, timed over a few calls before recording.
        QScreen* primary = QGuiApplication::primaryScreen();
        QElapsedTimer clock;
        QCoreApplication::processEvents();
        constexpr int kQtGrabs = 20;
        clock.start();
        for (int i = 0; i < kQtGrabs; ++i) {
            const QPixmap grabbed =
                primary->grabWindow(0, region.x(), region.y(), region.width(), region.height());
            Q_UNUSED(grabbed.toImage().constBits());
        }
        qtGrabMs = clock.nsecsElapsed() / 1e6 / kQtGrabs;
    }

    ScreenRecorder recorder(std::move(platform.capture), [](const QString&) { return 1.0; });
    // Clicks and keys at 10 a second in the middle of the region, each drawn into the frames.
    QProcess clicking;
    QProcess typing;
    if (parser.isSet(input)) {
        recorder.setInputSource(std::move(platform.input));
        recorder.inputShown = InputShown{true, KeysShown::all, {}};
        const int repeats = int(durationSeconds * 5) + 10;
        clicking.start(QStringLiteral("xdotool"),
                       {QStringLiteral("mousemove"), QString::number(region.center().x()),
                        QString::number(region.center().y()), QStringLiteral("click"),
                        QStringLiteral("--repeat"), QString::number(repeats), QStringLiteral("--delay"),
                        QStringLiteral("200"), QStringLiteral("1")});
        typing.start(QStringLiteral("xdotool"),
                     {QStringLiteral("key"), QStringLiteral("--repeat"), QString::number(repeats),
                      QStringLiteral("--delay"), QStringLiteral("200"), QStringLiteral("ctrl+shift+p")});
    }
    double cpuAtStart = 0;
    std::shared_ptr<GifEncodingSession> session;
    FrameList frames; // without the encoder: filled on the capture thread, read once the stop has joined it
    if (parser.isSet(encode)) {
        session = std::make_shared<GifEncodingSession>();
        recorder.frameSink = [session](const Frame& frame) { session->addFrame(frame); };
        recorder.frameSinkIsBehind = [session] { return session->isBehind(); };
    } else {
        recorder.frameSink = [&frames](const Frame& frame) { frames.append(frame); };
    }
    bool stopped = false;
    QElapsedTimer stopRequested; // Stop → GIF is timed from here
    recorder.startRecording(
        QRectF(region), QString(), 15, durationSeconds + 10, [&](std::expected<void, Failure> ok) {
            if (!ok) {
                std::fprintf(stderr, "start failed: %s\n", qPrintable(ok.error().description));
                QCoreApplication::exit(1);
                return;
            }
            cpuAtStart = cpuSeconds();
            QTimer::singleShot(int(durationSeconds * 1000), Qt::PreciseTimer, &app, [&] {
                stopRequested.start();
                recorder.stopRecording([&](std::expected<void, Failure>) {
                    stopped = true;
                    QCoreApplication::quit();
                });
            });
        });
    const int exit = QApplication::exec();
    const double recordingCpuMs = (cpuSeconds() - cpuAtStart) * 1000;
    nativeWindow.kill();
    nativeWindow.waitForFinished();
    for (QProcess* driver : {&clicking, &typing}) {
        driver->kill();
        driver->waitForFinished();
    }
    if (exit != 0 || !stopped) {
        return 1;
    }

    double tailSeconds = 0;
    qsizetype gifBytes = 0;
    int gifFrames = 0;
    double gifSeconds = 0;
    if (session) {
        auto gif = session->finish(1.0 / 15);
        tailSeconds = stopRequested.nsecsElapsed() / 1e9;
        gifBytes = gif ? gif->size() : 0;
        // The GIF as a player reads it: its frames and the sum of their delays.
        QBuffer buffer(gif ? &*gif : nullptr);
        QImageReader reader(&buffer, "gif");
        while (gif && reader.canRead() && !reader.read().isNull()) {
            ++gifFrames;
            gifSeconds += reader.nextImageDelay() / 1000.0;
        }
    }
    const CaptureStats stats = recorder.lastStats();
    const double n = std::max<long long>(1, stats.pictures);
    std::printf("region %dx%d for %.1f s%s%s%s: %lld frames, %lld new pictures (%lld stored once for being "
                "unchanged)\n",
                region.width(), region.height(), durationSeconds, parser.isSet(still) ? ", static" : "",
                session ? ", encoded while recording" : "",
                parser.isSet(input) ? ", clicks and keys shown (10 a second)" : "", stats.frames,
                stats.pictures, stats.sharedFrames);
    if (session) {
        std::printf("gif bytes=%lld finished %.3f s after the stop\n", static_cast<long long>(gifBytes),
                    tailSeconds);
        const GifEncodingSession::Timings t = session->timings();
        const auto perFrame = [n](qint64 ns) { return ns / 1e6 / n; };
        std::printf(
            "encoding ms per new picture: differencing %.2f, quantising %.2f (%lld frames through "
            "libimagequant), doubling %.2f, lzw %.2f; after the stop: waiting %.0f ms, assembling %.0f ms\n",
            perFrame(t.stages.differencingNs), perFrame(t.stages.quantisingNs),
            static_cast<long long>(t.stages.reducedFrames), perFrame(t.stages.doublingNs),
            perFrame(t.stages.lzwNs), t.finishWaitNs / 1e6, t.assembleNs / 1e6);
    }
    // The last line, for scripts; Stop → GIF only where the GIF was encoded while recording. The
    // portal's frames are cut on the stream's own thread, so there the CPU time is the process's
    // (with the encoder's when it runs), and the frames the desktop sent are counted.
    QString tail;
    if (portal) {
        tail += QStringLiteral(" backend=portal delivered=%1").arg(stats.sourceFrames);
    }
    if (session) {
        tail += QStringLiteral(" stop_to_gif_s=%1 seconds=%2 gif_frames=%3 gif_seconds=%4")
                    .arg(tailSeconds, 0, 'f', 3)
                    .arg(stats.seconds, 0, 'f', 3)
                    .arg(gifFrames)
                    .arg(gifSeconds, 0, 'f', 2);
    }
    // New pictures a second; the other frames repeat the picture before (late, or the encoder
    // behind).
    const double pictures = std::max<long long>(1, stats.pictures);
    std::printf("capture fps=%.2f late=%lld repeated=%lld encoder_behind=%lld cpu_ms_per_picture=%.2f "
                "grab_ms=%.2f qt_grab_ms=%.2f peak_rss_mb=%.0f%s\n",
                stats.pictures / std::max(0.001, stats.seconds), stats.late, stats.frames - stats.pictures,
                stats.encoderBehind, (portal ? recordingCpuMs : stats.threadCpuMs) / pictures,
                stats.grabMsTotal / pictures, qtGrabMs, peakRssMb(), qPrintable(tail));
    return 0;
}
