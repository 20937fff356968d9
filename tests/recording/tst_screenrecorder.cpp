// The screen recorder on a real X server (tests/with-xvfb.sh, 1920 × 1080): what comes back is
// exactly what is on screen, doubled, with the pointer painted in.
#include "platform/x11/X11CaptureBackend.h"
#include "recording/CapturePlan.h"
#include "recording/ScreenRecorder.h"

#include <QApplication>
#include <QPainter>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QWidget>

using namespace vantalo;
using namespace std::chrono_literals;

namespace {

// A window of four known colours in quadrants, with a one-pixel white line on its left edge.
class PatternWindow : public QWidget
{
public:
    PatternWindow()
    {
        setWindowFlags(Qt::FramelessWindowHint | Qt::X11BypassWindowManagerHint);
        setAttribute(Qt::WA_OpaquePaintEvent);
    }
    static QColor expected(int x, int y, int width, int height)
    {
        if (x == 0) {
            return Qt::white;
        }
        const bool right = x >= width / 2;
        const bool bottom = y >= height / 2;
        return right ? (bottom ? QColor(0, 0, 255) : QColor(0, 255, 0))
                     : (bottom ? QColor(255, 255, 0) : QColor(255, 0, 0));
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter p(this);
        const int w = width() / 2;
        const int h = height() / 2;
        p.fillRect(0, 0, w, h, QColor(255, 0, 0));
        p.fillRect(w, 0, width() - w, h, QColor(0, 255, 0));
        p.fillRect(0, h, w, height() - h, QColor(255, 255, 0));
        p.fillRect(w, h, width() - w, height() - h, QColor(0, 0, 255));
        p.fillRect(0, 0, 1, height(), Qt::white);
    }
};

// Two displays side by side on the one Xvfb screen (Xvfb itself cannot present two monitors).
class SplitDisplays final : public CaptureBackend
{
public:
    std::expected<QList<CaptureDisplay>, Failure> displays() override
    {
        return QList<CaptureDisplay>{{QStringLiteral("left"), QRect(0, 0, 1000, 1080)},
                                     {QStringLiteral("right"), QRect(1000, 100, 920, 700)}};
    }
    std::expected<std::unique_ptr<CaptureStream>, Failure> openStream(const QRect& rect) override
    {
        return m_x11.openStream(rect);
    }

private:
    X11CaptureBackend m_x11;
};

struct Recording
{
    std::optional<Failure> startError;
    FrameList frames;
};

} // namespace

class TestScreenRecorder : public QObject
{
    Q_OBJECT

    QStringList m_printed;

    std::unique_ptr<ScreenRecorder> makeRecorder(std::unique_ptr<CaptureBackend> backend = nullptr)
    {
        if (!backend) {
            backend = std::make_unique<X11CaptureBackend>();
        }
        return std::make_unique<ScreenRecorder>(
            std::move(backend), [] { return 1.0; }, [this](const QString& line) { m_printed << line; });
    }
    static std::optional<Failure> start(ScreenRecorder& recorder, const QRectF& region,
                                        double maxSeconds = 30, const QString& displayName = {})
    {
        bool done = false;
        std::optional<Failure> error;
        recorder.startRecording(region, displayName, 15, maxSeconds,
                                [&](std::expected<void, Failure> started) {
                                    done = true;
                                    if (!started) {
                                        error = started.error();
                                    }
                                });
        if (!QTest::qWaitFor([&] { return done; }, 5000)) {
            return Failure{QStringLiteral("start never completed")};
        }
        return error;
    }
    static FrameList stop(ScreenRecorder& recorder)
    {
        bool done = false;
        FrameList frames;
        recorder.stopRecording([&](std::expected<FrameList, Failure> stopped) {
            done = true;
            if (stopped) {
                frames = *stopped;
            }
        });
        if (!QTest::qWaitFor([&] { return done; }, 5000)) {
            qWarning("stop never completed");
        }
        return frames;
    }
    static Recording record(ScreenRecorder& recorder, const QRectF& region, std::chrono::milliseconds length,
                            const QString& displayName = {})
    {
        Recording recording;
        recording.startError = start(recorder, region, 30, displayName);
        if (!recording.startError) {
            QTest::qWait(int(length.count()));
            recording.frames = stop(recorder);
        }
        return recording;
    }
    static void movePointer(const QPoint& position)
    {
        QProcess::execute(
            QStringLiteral("xdotool"),
            {QStringLiteral("mousemove"), QString::number(position.x()), QString::number(position.y())});
    }

private Q_SLOTS:
    void init() { m_printed.clear(); }

    void planningTheCapture_data()
    {
        QTest::addColumn<QRectF>("region");
        QTest::addColumn<QString>("chosen");
        QTest::addColumn<double>("dpr");
        QTest::addColumn<QString>("display");
        QTest::addColumn<QRect>("native");
        QTest::addColumn<int>("scale");
        QTest::addColumn<QSize>("output");
        QTest::newRow("whole points doubled") << QRectF(10, 20, 100.9, 50.5) << QString() << 1.0 << "left"
                                              << QRect(10, 20, 100, 50) << 2 << QSize(200, 100);
        QTest::newRow("two pixels a point") << QRectF(10, 20, 100.9, 50.5) << QString() << 2.0 << "left"
                                            << QRect(20, 40, 200, 100) << 1 << QSize(200, 100);
        QTest::newRow("fits the first: the first") << QRectF(900, 10, 100, 100) << QString() << 1.0 << "left"
                                                   << QRect(900, 10, 100, 100) << 2 << QSize(200, 200);
        QTest::newRow("fits the first, chosen on the second")
            << QRectF(900, 10, 100, 100) << "right" << 1.0 << "right" << QRect(1900, 110, 100, 100) << 2
            << QSize(200, 200);
        QTest::newRow("chosen display too small: first fit")
            << QRectF(0, 0, 1000, 1050) << "right" << 1.0 << "left" << QRect(0, 0, 1000, 1050) << 2
            << QSize(2000, 2100);
        QTest::newRow("only the second holds it") << QRectF(950, 10, 100, 100) << QString() << 1.0 << "right"
                                                  << QRect(1950, 110, 100, 100) << 2 << QSize(200, 200);
        QTest::newRow("exactly a whole display") << QRectF(0, 0, 1000, 1080) << QString() << 1.0 << "left"
                                                 << QRect(0, 0, 1000, 1080) << 2 << QSize(2000, 2160);
        QTest::newRow("in no display: the first") << QRectF(5000, 5000, 10, 10) << QString() << 1.0 << "left"
                                                  << QRect(5000, 5000, 10, 10) << 2 << QSize(20, 20);
        QTest::newRow("fractional ratio resampled") << QRectF(0, 0, 100, 100) << QString() << 1.5 << "left"
                                                    << QRect(0, 0, 150, 150) << 1 << QSize(200, 200);
    }
    void planningTheCapture()
    {
        QFETCH(QRectF, region);
        QFETCH(QString, chosen);
        QFETCH(double, dpr);
        QFETCH(QString, display);
        QFETCH(QRect, native);
        QFETCH(int, scale);
        QFETCH(QSize, output);
        const QList<CaptureDisplay> displays{{QStringLiteral("left"), QRect(0, 0, 1000, 1080)},
                                             {QStringLiteral("right"), QRect(1000, 100, 1200, 1000)}};
        const auto plan = planCapture(displays, region, dpr, chosen);
        QVERIFY(plan);
        QCOMPARE(plan->display.name, display);
        QCOMPARE(plan->nativeRect, native);
        QCOMPARE(plan->scale, scale);
        QCOMPARE(plan->outputSize, output);
        QVERIFY(!planCapture({}, region, dpr));
    }

    void pacingKeepsTheScheduleWithoutBursts_data()
    {
        QTest::addColumn<long long>("slot");
        QTest::addColumn<long long>("elapsedMs");
        QTest::addColumn<long long>("next");
        QTest::addColumn<long long>("skipped");
        QTest::newRow("on time") << 0LL << 10LL << 1LL << 0LL;
        QTest::newRow("next slot already due") << 3LL << 270LL << 4LL << 0LL;
        QTest::newRow("fell two slots behind") << 3LL << 340LL << 5LL << 1LL;
        QTest::newRow("long stall") << 10LL << 2000LL << 30LL << 19LL;
    }
    void pacingKeepsTheScheduleWithoutBursts()
    {
        QFETCH(long long, slot);
        QFETCH(long long, elapsedMs);
        QFETCH(long long, next);
        QFETCH(long long, skipped);
        const PacingStep step = nextFrameSlot(slot, std::chrono::milliseconds(elapsedMs), 15);
        QCOMPARE(step.nextSlot, next);
        QCOMPARE(step.skipped, skipped);
        // Slot times come from the slot number, so 450 slots end at exactly 30 s.
        QCOMPARE(slotTime(450, 15), std::chrono::nanoseconds(30s));
        QCOMPARE(slotTime(1, 15).count(), 66'666'666);
    }

    void theScreenComesBackDoubledWithThePointer()
    {
        PatternWindow window;
        window.setGeometry(300, 200, 200, 120);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        movePointer(QPoint(1500, 900)); // out of the way first
        QTest::qWait(200);

        auto recorder = makeRecorder();
        // The region takes in two pixels of the desktop left of the window and all four colours.
        const QRectF region(298, 200, 150.7, 100.2);
        const Recording recording = record(*recorder, region, 400ms);
        QVERIFY2(!recording.startError,
                 qPrintable(recording.startError ? recording.startError->description : QString()));
        QVERIFY(recording.frames.size() >= 3);
        const Frame& frame = recording.frames.first();
        QCOMPARE(frame.size(), QSize(300, 200));
        QCOMPARE(frame.scale, 2);
        const QImage full = frame.fullSize();
        QCOMPARE(full.size(), QSize(300, 200));
        int mismatches = 0;
        for (int y = 0; y < 200; ++y) {
            for (int x = 0; x < 300; ++x) {
                const int screenX = 298 + x / 2;
                const int screenY = 200 + y / 2;
                const QColor want = screenX < 300
                                        ? full.pixelColor(0, 0)
                                        : PatternWindow::expected(screenX - 300, screenY - 200, 200, 120);
                mismatches += full.pixelColor(x, y) != want;
            }
        }
        QCOMPARE(mismatches, 0);
        // The desktop left of the window is not the window's white edge.
        QVERIFY(full.pixelColor(0, 0) != QColor(Qt::white));
        QCOMPARE(full.pixelColor(4, 0), QColor(Qt::white));
        QCOMPARE(full.pixelColor(5, 0), QColor(Qt::white));
        QCOMPARE(full.pixelColor(6, 0), QColor(255, 0, 0));

        // An unchanged screen is stored once, however many frames it lasts.
        for (const Frame& later : recording.frames) {
            QCOMPARE(later.pixels.constBits(), frame.pixels.constBits());
        }
        QCOMPARE(recorder->lastStats().sharedFrames, recording.frames.size() - 1);

        // With the pointer over the red quadrant, its shape is painted into every frame.
        movePointer(QPoint(330, 230));
        QTest::qWait(200);
        const Recording withPointer = record(*recorder, region, 300ms);
        QVERIFY(!withPointer.frames.isEmpty());
        const QImage pointed = withPointer.frames.last().fullSize();
        int changed = 0;
        for (int y = 56; y < 100; ++y) {
            for (int x = 60; x < 100; ++x) {
                changed += pointed.pixelColor(x, y) != QColor(255, 0, 0);
            }
        }
        QVERIFY2(changed > 20, qPrintable(QString::number(changed)));
        QCOMPARE(pointed.pixelColor(250, 180), QColor(0, 0, 255));
    }

    void aRegionOnTheSecondDisplayIsRelativeToItsCorner()
    {
        PatternWindow window;
        window.setGeometry(1100, 150, 100, 60); // (100, 50) on the display at (1000, 100)
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        movePointer(QPoint(10, 1000));
        QTest::qWait(200);
        auto recorder = makeRecorder(std::make_unique<SplitDisplays>());
        const Recording recording =
            record(*recorder, QRectF(100, 50, 100, 60), 300ms, QStringLiteral("right"));
        QVERIFY(!recording.startError);
        QVERIFY(!recording.frames.isEmpty());
        const QImage full = recording.frames.first().fullSize();
        QCOMPARE(full.size(), QSize(200, 120));
        QCOMPARE(full.pixelColor(0, 0), QColor(Qt::white));
        QCOMPARE(full.pixelColor(10, 10), QColor(255, 0, 0));
        QCOMPARE(full.pixelColor(190, 110), QColor(0, 0, 255));
    }

    void startAndStopRules()
    {
        auto recorder = makeRecorder();
        // Stop while idle: an empty list, no error.
        QVERIFY(stop(*recorder).isEmpty());

        QVERIFY(!start(*recorder, QRectF(0, 0, 64, 64)));
        QVERIFY(recorder->isRecording());
        QTest::qWait(300);
        // A second start changes nothing and keeps the frames.
        QVERIFY(!start(*recorder, QRectF(100, 100, 32, 32)));
        QTest::qWait(100);
        const FrameList first = stop(*recorder);
        QVERIFY(first.size() >= 4);
        QCOMPARE(first.first().size(), QSize(128, 128));
        QVERIFY(!recorder->isRecording());

        // The next recording starts from an empty list.
        QVERIFY(!start(*recorder, QRectF(0, 0, 64, 64)));
        const FrameList second = stop(*recorder);
        QVERIFY(second.size() < first.size());

        // A stop right after the start leaves no duration timer behind.
        QVERIFY(!start(*recorder, QRectF(0, 0, 64, 64), 0.3));
        stop(*recorder);
        QTest::qWait(50);
        QVERIFY(!recorder->isDurationTimerActive());
    }

    void theMaximumDurationIsReportedOnce()
    {
        auto recorder = makeRecorder();
        int reached = 0;
        recorder->onMaxDurationReached = [&reached] { ++reached; };
        QVERIFY(!start(*recorder, QRectF(0, 0, 32, 32), 0.6));
        QTest::qWait(1800);
        QCOMPARE(reached, 1);
        // It only reports: the frames keep coming until the stop.
        QVERIFY(recorder->isRecording());
        const FrameList frames = stop(*recorder);
        QVERIFY2(frames.size() >= 20, qPrintable(QString::number(frames.size())));
    }

    void aVanishingXServerStopsTheStream()
    {
        // A server of its own, so this test can take it away. It picks a free display number itself
        // and writes it once it accepts clients; it must not reset when the probe below leaves (a
        // server resets when its last client goes, and refuses connections meanwhile).
        QProcess xvfb;
        xvfb.start(QStringLiteral("Xvfb"),
                   {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-noreset"),
                    QStringLiteral("-screen"), QStringLiteral("0"), QStringLiteral("640x480x24"),
                    QStringLiteral("-nolisten"), QStringLiteral("tcp")});
        QVERIFY(xvfb.waitForStarted());
        QByteArray number;
        QTRY_VERIFY_WITH_TIMEOUT((number += xvfb.readAllStandardOutput(), number.endsWith('\n')), 10000);
        const int display = number.trimmed().toInt();
        const auto serverAnswers = [display] {
            QProcess probe;
            probe.setStandardOutputFile(QProcess::nullDevice());
            probe.setStandardErrorFile(QProcess::nullDevice());
            probe.start(QStringLiteral("xdpyinfo"),
                        {QStringLiteral("-display"), QStringLiteral(":%1").arg(display)});
            return probe.waitForFinished(5000) && probe.exitCode() == 0;
        };
        QTRY_VERIFY_WITH_TIMEOUT(serverAnswers(), 10000);

        auto recorder =
            makeRecorder(std::make_unique<X11CaptureBackend>(QByteArray(":") + QByteArray::number(display)));
        const auto started = start(*recorder, QRectF(0, 0, 100, 100));
        QVERIFY2(!started, qPrintable(started ? started->description : QString()));
        QTest::qWait(200);
        // Terminated, the server drops every client at once and still removes its lock and socket.
        xvfb.terminate();
        QVERIFY(xvfb.waitForFinished(10000));
        QTRY_VERIFY(!recorder->isRecording());
        QCOMPARE(m_printed.size(), 1);
        QVERIFY2(m_printed.first().startsWith(QStringLiteral("Stream stopped with error: ")),
                 qPrintable(m_printed.first()));
        QVERIFY(!recorder->isDurationTimerActive());
        QVERIFY(stop(*recorder).isEmpty());
        // And the next recording is refused with the display's own reason.
        const auto error = start(*recorder, QRectF(0, 0, 100, 100));
        QVERIFY(error);
        QVERIFY2(error->description.contains(QStringLiteral("X display")), qPrintable(error->description));
    }
};

QTEST_MAIN(TestScreenRecorder)
#include "tst_screenrecorder.moc"
