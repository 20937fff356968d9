// The screen recorder on a real X server (tests/with-xvfb.sh, 1920 × 1080): what comes back is
// exactly what is on screen, doubled, with the pointer painted in. And for a Wayland desktop: which
// session Vantalo is in, and where the region lies in a screen-cast buffer whatever the scaling.
#include "../support/RecorderSteps.h"
#include "hotkey/ShortcutLabel.h"
#include "platform/DesktopSession.h"
#include "platform/Platform.h"
#include "platform/x11/X11CaptureBackend.h"
#include "recording/CapturePlan.h"
#include "recording/CodecThreadPool.h"
#include "recording/GifEncoder.h"
#include "recording/InputOverlay.h"
#include "recording/ScreenRecorder.h"
#include "recording/StreamMapping.h"

#include <QApplication>
#include <QBuffer>
#include <QImageReader>
#include <QPainter>
#include <QProcess>
#include <QScopeGuard>
#include <QScreen>
#include <QSemaphore>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>
#include <QWidget>

#include <thread>

using namespace vantalo;
using namespace vantalo::testing;
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

    // Pixels of a 300 × 200 frame of a region that starts 2 points left of a 200 × 120 window, at
    // its top, that are not what the window and the desktop beside it show.
    static int mismatches(const QImage& frame)
    {
        int wrong = 0;
        for (int y = 0; y < 200; ++y) {
            for (int x = 0; x < 300; ++x) {
                const int windowX = x / 2 - 2;
                const QColor want = windowX < 0 ? frame.pixelColor(0, 0) : expected(windowX, y / 2, 200, 120);
                wrong += frame.pixelColor(x, y) != want;
            }
        }
        return wrong;
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

// Every grab a new picture: its red is the number of the grab. Grab `slowGrab` takes a third of
// a second.
class CountingScreen final : public CaptureBackend, public CaptureStream
{
public:
    std::expected<QList<CaptureDisplay>, Failure> displays() override
    {
        return QList<CaptureDisplay>{{QStringLiteral("screen"), QRect(0, 0, 640, 480)}};
    }
    std::expected<std::unique_ptr<CaptureStream>, Failure> openStream(const QRect& rect) override
    {
        size = rect.size();
        opened.append(rect);
        struct Borrowed final : CaptureStream
        {
            CaptureStream* screen;
            std::expected<std::optional<QImage>, Failure> grab() override { return screen->grab(); }
        };
        auto stream = std::make_unique<Borrowed>();
        stream->screen = this;
        return stream;
    }
    std::expected<std::optional<QImage>, Failure> grab() override
    {
        if (++grabs == slowGrab) {
            std::this_thread::sleep_for(330ms);
        }
        QImage picture(size, QImage::Format_RGB32);
        picture.fill(qRgb(grabs % 256, 0, 0));
        return picture;
    }
    std::atomic<int> grabs = 0;
    int slowGrab = -1;
    QSize size;
    QList<QRect> opened; // on the capture thread, read once it has been joined
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
            std::move(backend), [](const QString&) { return 1.0; },
            [this](const QString& line) { m_printed << line; });
    }
    static void movePointer(const QPoint& position)
    {
        QProcess::execute(
            QStringLiteral("xdotool"),
            {QStringLiteral("mousemove"), QString::number(position.x()), QString::number(position.y())});
        QTest::qWait(200);
    }

private Q_SLOTS:
    void init() { m_printed.clear(); }

    void thePlanAndThePace()
    {
        const QList<CaptureDisplay> displays{{QStringLiteral("left"), QRect(0, 0, 1000, 1080)},
                                             {QStringLiteral("right"), QRect(1000, 100, 1200, 1000)}};
        const struct
        {
            QRectF region;
            const char* chosen;
            double dpr;
            const char* display;
            QRect native;
            int scale;
            QSize output;
            int outputScale = 2;
        } plans[] = {
            // Whole points, doubled; where a point is two pixels, grabbed as they are.
            {{10, 20, 100.9, 50.5}, "", 1.0, "left", {10, 20, 100, 50}, 2, {200, 100}},
            {{10, 20, 100.9, 50.5}, "", 2.0, "left", {20, 40, 200, 100}, 1, {200, 100}},
            {{0, 0, 100, 100}, "", 1.5, "left", {0, 0, 150, 150}, 1, {200, 200}}, // resampled
            // At 1×: a pixel a point, grabbed as it is where a point is one pixel, else resampled.
            {{10, 20, 100.9, 50.5}, "", 1.0, "left", {10, 20, 100, 50}, 1, {100, 50}, 1},
            {{10, 20, 100.9, 50.5}, "", 2.0, "left", {20, 40, 200, 100}, 1, {100, 50}, 1},
            // The display it was chosen on, also where the region reaches past it; without one, the
            // first that holds the region.
            {{900, 10, 100, 100}, "", 1.0, "left", {900, 10, 100, 100}, 2, {200, 200}},
            {{900, 10, 100, 100}, "right", 1.0, "right", {1900, 110, 100, 100}, 2, {200, 200}},
            {{0, 0, 1000, 1050}, "right", 1.0, "right", {1000, 100, 1000, 1050}, 2, {2000, 2100}},
            {{950, 10, 100, 100}, "", 1.0, "right", {1950, 110, 100, 100}, 2, {200, 200}},
            {{0, 0, 1000, 1080}, "", 1.0, "left", {0, 0, 1000, 1080}, 2, {2000, 2160}},
            {{5000, 5000, 10, 10}, "", 1.0, "left", {5000, 5000, 10, 10}, 2, {20, 20}},
        };
        for (const auto& row : plans) {
            const auto plan =
                planCapture(displays, row.region, row.dpr, QString::fromLatin1(row.chosen), row.outputScale);
            QVERIFY(plan);
            QCOMPARE(plan->display.name, QString::fromLatin1(row.display));
            QCOMPARE(plan->nativeRect, row.native);
            QCOMPARE(plan->scale, row.scale);
            QCOMPARE(plan->outputSize, row.output);
        }
        QVERIFY(!planCapture({}, QRectF(0, 0, 10, 10), 1.0));

        // The timeline: the slot due at a moment, and how many slots a recording of a length has.
        const struct
        {
            std::chrono::nanoseconds elapsed;
            long long latest, before;
        } timeline[] = {{0ns, 0, 0},   {1ms, 0, 1},  {66'666'666ns, 1, 1}, {66'666'667ns, 1, 2},
                        {340ms, 5, 6}, {3s, 45, 45}, {3001ms, 45, 46},     {30s, 450, 450}};
        for (const auto& row : timeline) {
            QCOMPARE(std::pair(latestSlotDue(row.elapsed, 15), slotsBefore(row.elapsed, 15)),
                     std::pair(row.latest, row.before));
        }
        QCOMPARE(slotTime(1, 15).count(), 66'666'666);
    }

    void theTimelineHoldsOnABusyMachine()
    {
        // Every grab a new picture, and the second one takes a third of a second.
        // The encoder's threads are all taken for the first 1.2 s, as on a busy machine.
        QThreadPool* pool = &codecThreadPool();
        const int threads = pool->maxThreadCount();
        pool->setMaxThreadCount(1);
        QSemaphore busy;
        pool->start([&busy] { busy.acquire(); });
        const auto restore = qScopeGuard([&] {
            busy.release();
            pool->waitForDone();
            pool->setMaxThreadCount(threads);
        });

        auto backend = std::make_unique<CountingScreen>();
        backend->slowGrab = 2;
        CountingScreen* screen = backend.get();
        auto recorder = makeRecorder(std::move(backend));
        auto session = std::make_shared<GifEncodingSession>();
        int mostWaiting = 0;
        recorder->frameSink = [session, &mostWaiting](const Frame& frame) {
            session->addFrame(frame);
            mostWaiting = std::max(mostWaiting, session->waitingFrames());
        };
        recorder->frameSinkIsBehind = [session] { return session->isBehind(); };
        QVERIFY(!startRecording(*recorder, QRectF(0, 0, 32, 24)));
        QTest::qWait(1200);
        busy.release();
        QTest::qWait(800);
        stopRecording(*recorder);
        const CaptureStats stats = recorder->lastStats();

        // The capture never waited: the slots the encoder was behind for, and those of the slow
        // grab, repeat the picture before; memory stayed bounded.
        QVERIFY2(stats.encoderBehind >= 1 && stats.frames - stats.pictures - stats.encoderBehind >= 3,
                 qPrintable(QStringLiteral("%1 behind, %2 pictures of %3 frames")
                                .arg(stats.encoderBehind)
                                .arg(stats.pictures)
                                .arg(stats.frames)));
        QCOMPARE(stats.pictures, screen->grabs.load());
        QCOMPARE(mostWaiting, GifEncodingSession::defaultMaxWaitingFrames);
        QVERIFY2(stats.seconds >= 1.9, qPrintable(QString::number(stats.seconds)));

        // The GIF lasts as long as the recording: a frame a slot, 1/15 s each.
        auto gif = session->finish(1.0 / 15);
        QVERIFY(gif);
        QBuffer buffer(&*gif);
        QImageReader reader(&buffer, "gif");
        int frames = 0;
        int centiseconds = 0;
        QList<int> reds;
        while (reader.canRead()) {
            const QImage frame = reader.read();
            QVERIFY(!frame.isNull());
            reds << qRed(frame.pixel(0, 0));
            ++frames;
            centiseconds += reader.nextImageDelay() / 10;
        }
        QCOMPARE(frames, stats.frames);
        QCOMPARE(frames, slotsBefore(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                         std::chrono::duration<double>(stats.seconds)),
                                     15));
        QCOMPARE(centiseconds, int(std::lround(frames * 100.0 / 15)));
        // Within a frame of the recording, and the hundredth a GIF delay rounds to.
        QVERIFY2(std::abs(centiseconds / 100.0 - stats.seconds) < 0.07,
                 qPrintable(QStringLiteral("%1 cs for %2 s").arg(centiseconds).arg(stats.seconds)));
        // The pictures in the order they were taken, each shown at least once.
        QCOMPARE(reds.first(), 1);
        QCOMPARE(reds.last(), screen->grabs.load() % 256);
        QVERIFY(std::is_sorted(reds.cbegin(), reds.cend()));
        QCOMPARE(QSet<int>(reds.cbegin(), reds.cend()).size(), stats.pictures);
    }

    void aPauseLeavesItsTimeOut()
    {
        using Seconds = std::chrono::duration<double>;
        const auto now = [] { return std::chrono::steady_clock::now(); };
        auto backend = std::make_unique<CountingScreen>();
        CountingScreen* screen = backend.get();
        auto recorder = makeRecorder(std::move(backend));
        int reached = 0;
        recorder->onMaxDurationReached = [&reached] { ++reached; };

        // 0.4 s recorded, 0.9 s paused (no pictures taken but the one under way, the limit of
        // 0.9 s not reached), then on from a moved region at the same size until the limit.
        // Each moment the recorder sees lies between the two taken round the call.
        const auto beforeStart = now();
        QVERIFY(!startRecording(*recorder, QRectF(0, 0, 32, 24), {}, 0.9));
        const auto afterStart = now();
        QTest::qWait(400);
        const int grabsAtPause = screen->grabs;
        const auto beforePause = now();
        recorder->pauseRecording();
        const auto afterPause = now();
        QVERIFY(recorder->isPaused());
        QTest::qWait(900);
        QVERIFY(screen->grabs <= grabsAtPause + 1);
        const int grabsAtResume = screen->grabs;
        QCOMPARE(reached, 0);
        const auto beforeResume = now();
        recorder->resumeRecording(QRectF(100, 50, 32.6, 24));
        const auto afterResume = now();
        QVERIFY(!recorder->isPaused());
        QTRY_COMPARE_WITH_TIMEOUT(reached, 1, 3000);
        const auto beforeStop = now();
        const FrameList frames = stopRecording(*recorder);
        const auto afterStop = now();
        const CaptureStats stats = recorder->lastStats();

        // The timeline is the recorded time; every slot of it a frame, every picture in it in
        // order, the moved region's after the first place's, none taken while paused.
        const double least = Seconds(beforeStop - afterStart - (afterResume - beforePause)).count();
        const double most = Seconds(afterStop - beforeStart - (beforeResume - afterPause)).count();
        QVERIFY2(stats.seconds >= least && stats.seconds <= most,
                 qPrintable(QStringLiteral("%1 s on the timeline, %2 to %3 s recorded")
                                .arg(stats.seconds)
                                .arg(least)
                                .arg(most)));
        QCOMPARE(
            frames.size(),
            slotsBefore(std::chrono::duration_cast<std::chrono::nanoseconds>(Seconds(stats.seconds)), 15));
        QCOMPARE(screen->opened, (QList<QRect>{QRect(0, 0, 32, 24), QRect(100, 50, 32, 24)}));
        QList<int> reds;
        for (const Frame& frame : frames) {
            QCOMPARE(frame.size(), QSize(64, 48));
            reds << qRed(frame.pixels.pixel(0, 0));
        }
        QVERIFY(std::is_sorted(reds.cbegin(), reds.cend()));
        QCOMPARE(QSet<int>(reds.cbegin(), reds.cend()).size(), screen->grabs.load());
        QVERIFY(reds.contains(grabsAtResume) && reds.contains(grabsAtResume + 1));

        // A stop while paused ends the recording where the pause began.
        const auto beforeAgain = now();
        QVERIFY(!startRecording(*recorder, QRectF(0, 0, 32, 24)));
        const auto afterAgain = now();
        QTest::qWait(300);
        const auto beforeSecondPause = now();
        recorder->pauseRecording();
        const auto afterSecondPause = now();
        QTest::qWait(500);
        const FrameList shorter = stopRecording(*recorder);
        const double seconds = recorder->lastStats().seconds;
        QVERIFY2(seconds >= Seconds(beforeSecondPause - afterAgain).count() &&
                     seconds <= Seconds(afterSecondPause - beforeAgain).count(),
                 qPrintable(QString::number(seconds)));
        QCOMPARE(shorter.size(), recorder->lastStats().frames);
        QVERIFY(!recorder->isPaused());
    }

    // Clicks and keys drawn into a picture: a ring of the button's colour round the click for 0.3 s,
    // the label of the last keys shown at the bottom centre for 1 s, counting repeats; with keys
    // shown as shortcuts, text typed never shows.
    void clicksAndKeysInThePicture()
    {
        using namespace std::chrono;
        const auto key = [](QStringList modifiers, QString name, bool special = false) {
            InputEvent event;
            event.kind = InputEvent::Kind::key;
            event.modifiers = std::move(modifiers);
            event.key = std::move(name);
            event.special = special;
            return event;
        };
        const struct
        {
            InputEvent event;
            const char* label;
            bool asShortcut;
        } keys[] = {
            {key({QStringLiteral("Ctrl"), QStringLiteral("Shift")}, QStringLiteral("p")), "Ctrl + Shift + P",
             true},
            {key({QStringLiteral("Shift")}, QStringLiteral("P")), "P", false},
            {key({}, QStringLiteral("j")), "j", false},
            {key({}, QStringLiteral("Enter"), true), "Enter", true},
            {key({QStringLiteral("Shift")}, QStringLiteral("Tab"), true), "Shift + Tab", true},
            {key({QStringLiteral("Alt")}, QStringLiteral("\u00E9")), "Alt + \u00C9", true},
            {key({QStringLiteral("Super")}, QStringLiteral("Space")), "Super + Space", true},
        };
        for (const auto& row : keys) {
            QCOMPARE(keyLabel(row.event), QString::fromUtf8(row.label));
            QCOMPARE(keyShown(row.event, KeysShown::shortcuts), row.asShortcut);
            QVERIFY(keyShown(row.event, KeysShown::all) && !keyShown(row.event, KeysShown::none));
        }

        // Vantalo's own shortcuts are labelled the same way, to be left out.
        QCOMPARE(inputKeyLabel(Shortcut{KeyCode::g, ModifierFlag::command | ModifierFlag::shift}),
                 keyLabel(key({QStringLiteral("Ctrl"), QStringLiteral("Shift")}, QStringLiteral("g"))));

        // A 200 × 100 region at (1000, 500), drawn at 2 pixels a point: a right click at (1050, 520)
        // and "j" three times, the last 0.2 s before the picture.
        const auto t0 = InputEvent::Clock::now();
        InputEvent click;
        click.at = t0;
        click.position = QPoint(1050, 520);
        click.button = 3;
        std::vector<InputEvent> events{click};
        for (int i = 0; i < 3; ++i) {
            InputEvent j = key({}, QStringLiteral("j"));
            j.at = t0 + milliseconds(100 * i);
            events.push_back(j);
        }
        const QRect region(1000, 500, 200, 100);
        const auto draw = [&](milliseconds after, bool clicks, KeysShown keys,
                              const QStringList& hidden = {}) {
            QImage picture(400, 200, QImage::Format_RGB32);
            picture.fill(Qt::black);
            drawInput(picture, region, 2, events, t0 + after, InputShown{clicks, keys, hidden});
            return picture;
        };
        const auto reddish = [](const QImage& image, const QRect& area) {
            int count = 0;
            for (int y = area.top(); y <= area.bottom(); ++y) {
                for (int x = area.left(); x <= area.right(); ++x) {
                    const QColor c = image.pixelColor(x, y);
                    count += c.red() > 80 && c.green() < c.red() / 2;
                }
            }
            return count;
        };
        const auto light = [](const QImage& image, const QRect& area) {
            int count = 0;
            for (int y = area.top(); y <= area.bottom(); ++y) {
                for (int x = area.left(); x <= area.right(); ++x) {
                    count += image.pixelColor(x, y).lightness() > 200;
                }
            }
            return count;
        };
        const QRect round(100 - 60, 40 - 60, 120, 120); // the ring's reach round (100, 40)
        const QRect bottom(100, 120, 200, 80);
        const QImage early = draw(milliseconds(100), true, KeysShown::all);
        QVERIFY(reddish(early, round) > 100);
        QCOMPARE(reddish(early, early.rect()), reddish(early, round)); // nowhere else
        const QImage later = draw(milliseconds(350), true, KeysShown::all);
        QCOMPARE(reddish(later, later.rect()), 0); // the ring has gone
        QVERIFY(light(later, bottom) > 50);        // "j ×3"
        QCOMPARE(light(later, QRect(0, 0, 400, 110)), 0);
        QCOMPARE(light(draw(milliseconds(1250), true, KeysShown::all), bottom), 0); // 1 s after the last
        // Shown as shortcuts, or not at all: nothing of the typed letters; clicks off: no ring.
        QCOMPARE(light(draw(milliseconds(350), true, KeysShown::shortcuts), bottom), 0);
        QCOMPARE(light(draw(milliseconds(350), true, KeysShown::all, {QStringLiteral("j")}), bottom), 0);
        const QImage none = draw(milliseconds(100), false, KeysShown::none);
        QCOMPARE(reddish(none, none.rect()) + light(none, none.rect()), 0);
        // "j ×3" is wider than "j" alone.
        events.erase(events.begin() + 1, events.begin() + 3);
        QVERIFY(light(draw(milliseconds(350), false, KeysShown::all), bottom) < light(later, bottom));
    }

    void theScreenComesBackDoubledWithThePointer()
    {
        // On the second of two displays: the region is relative to its corner at (1000, 100).
        PatternWindow window;
        window.setGeometry(1300, 300, 200, 120);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        movePointer(QPoint(10, 1000)); // out of the way first

        auto recorder = makeRecorder(std::make_unique<SplitDisplays>());
        // The region takes in two pixels of the desktop left of the window and all four colours.
        const QRectF region(298, 200, 150.7, 100.2);
        const QString right = QStringLiteral("right");
        const FrameList frames = record(*recorder, region, 400ms, right);
        QVERIFY(frames.size() >= 3);
        const Frame& frame = frames.first();
        QCOMPARE(frame.size(), QSize(300, 200));
        QCOMPARE(frame.scale, 2);
        const QImage full = frame.fullSize();
        QCOMPARE(PatternWindow::mismatches(full), 0);
        // The desktop left of the window is not the window's white edge.
        QVERIFY(full.pixelColor(0, 0) != QColor(Qt::white));
        QCOMPARE(full.pixelColor(4, 0), QColor(Qt::white));
        QCOMPARE(full.pixelColor(5, 0), QColor(Qt::white));
        QCOMPARE(full.pixelColor(6, 0), QColor(255, 0, 0));

        // An unchanged screen is stored once, however many frames it lasts.
        for (const Frame& later : frames) {
            QCOMPARE(later.pixels.constBits(), frame.pixels.constBits());
        }
        QCOMPARE(recorder->lastStats().sharedFrames, recorder->lastStats().pictures - 1);

        // With the pointer over the red quadrant, its shape is painted into every frame.
        movePointer(QPoint(1330, 330));
        const FrameList withPointer = record(*recorder, region, 300ms, right);
        QVERIFY(!withPointer.isEmpty());
        const QImage pointed = withPointer.last().fullSize();
        int changed = 0;
        for (int y = 56; y < 100; ++y) {
            for (int x = 60; x < 100; ++x) {
                changed += pointed.pixelColor(x, y) != QColor(255, 0, 0);
            }
        }
        QVERIFY2(changed > 20, qPrintable(QString::number(changed)));
        QCOMPARE(pointed.pixelColor(250, 180), QColor(0, 0, 255));
    }

    // Run by tests/with-monitors.sh: A at one pixel a point, B at two and at negative x. Each
    // records its own pixels at its own scale; a region dragged past B's edge goes on onto A's
    // pixels as far as the screen goes, black beyond; one wholly off the screen is refused.
    void eachMonitorAtItsOwnScale()
    {
        const QList<QScreen*> screens = QGuiApplication::screens();
        if (screens.size() != 2) {
            QSKIP("needs the two monitors of tests/with-monitors.sh");
        }
        movePointer(QPoint(3100, 1300));
        auto recorder = std::make_unique<ScreenRecorder>(std::make_unique<X11CaptureBackend>(),
                                                         ScreenRecorder::screenPixelRatio);
        PatternWindow window;
        for (const QScreen* screen : screens) {
            window.setGeometry(QRect(screen->geometry().topLeft() + QPoint(100, 100), QSize(200, 120)));
            window.show();
            QVERIFY(QTest::qWaitForWindowExposed(&window));
            QTest::qWait(200);
            const FrameList frames = record(*recorder, QRectF(98, 100, 150.7, 100.2), 300ms, screen->name());
            QVERIFY2(!frames.isEmpty(), qPrintable(screen->name()));
            QCOMPARE(frames.last().fullSize().size(), QSize(300, 200));
            QVERIFY2(PatternWindow::mismatches(frames.last().fullSize()) == 0, qPrintable(screen->name()));
        }
        const QScreen* b = QGuiApplication::screenAt(QPoint(10, 400));
        QVERIFY(b && b->devicePixelRatio() == 2 && b->geometry().width() == 960);

        // Past B's right edge (x 960 points, 1920 pixels): A's pixels, one a pixel, from output
        // column 120 on; the window on A sits at the top-left of A's part.
        window.setGeometry(1920, 500, 200, 120);
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QTest::qWait(200);
        const FrameList across = record(*recorder, QRectF(900, 100, 120, 50), 300ms, b->name());
        QVERIFY(!across.isEmpty());
        const QImage spans = across.last().fullSize();
        QCOMPARE(spans.size(), QSize(240, 100));
        QCOMPARE(spans.pixelColor(120, 10), QColor(Qt::white));
        QCOMPARE(spans.pixelColor(130, 10), QColor(255, 0, 0));
        QCOMPARE(spans.pixelColor(230, 90), QColor(0, 0, 255));
        // Past the bottom of the screen (1400 pixels): black rows.
        const FrameList low = record(*recorder, QRectF(10, 500, 50, 50), 300ms, b->name());
        QVERIFY(!low.isEmpty());
        QCOMPARE(low.last().fullSize().pixelColor(50, 99), QColor(Qt::black));
        const auto refused = startRecording(*recorder, QRectF(5000, 100, 50, 50), b->name());
        QVERIFY(refused);
        QCOMPARE(refused->description, QStringLiteral("The region lies outside the screen"));
    }

    void startStopAndTheTimeLimit()
    {
        auto recorder = makeRecorder();
        int reached = 0;
        recorder->onMaxDurationReached = [&reached] { ++reached; };
        // Stop while idle: no error. A start with nowhere to hand the frames is refused.
        stopRecording(*recorder);
        std::optional<std::expected<void, Failure>> sinkless;
        recorder->startRecording(QRectF(0, 0, 64, 64), {}, 15, 1, [&](auto result) { sinkless = result; });
        QTRY_VERIFY(sinkless && !*sinkless && !recorder->isRecording());

        QVERIFY(!startRecording(*recorder, QRectF(0, 0, 64, 64), {}, 0.6));
        QVERIFY(recorder->isRecording());
        QTest::qWait(300);
        // A second start changes nothing and keeps the frames.
        QVERIFY(!startRecording(*recorder, QRectF(100, 100, 32, 32)));
        QTest::qWait(1500);
        // The limit is reported once, and only reported: the frames keep coming until the stop.
        QCOMPARE(reached, 1);
        QVERIFY(recorder->isRecording());
        const FrameList first = stopRecording(*recorder);
        QVERIFY2(first.size() >= 20, qPrintable(QString::number(first.size())));
        QCOMPARE(first.first().size(), QSize(128, 128));
        QVERIFY(!recorder->isRecording());

        // The next recording starts from an empty list, and a stop right after the start leaves
        // no duration timer behind.
        QVERIFY(!startRecording(*recorder, QRectF(0, 0, 64, 64), {}, 0.3));
        const FrameList second = stopRecording(*recorder);
        QVERIFY(second.size() < 5);
        QTest::qWait(400);
        QVERIFY(!recorder->isDurationTimerActive());
        QCOMPARE(reached, 1);
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
        const auto started = startRecording(*recorder, QRectF(0, 0, 100, 100));
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
        stopRecording(*recorder);
        // And the next recording is refused with the display's own reason.
        const auto error = startRecording(*recorder, QRectF(0, 0, 100, 100));
        QVERIFY(error);
        QVERIFY2(error->description.contains(QStringLiteral("X display")), qPrintable(error->description));
    }

    void theScreenEachMonitorShows()
    {
        const QList<QRect> screens{QRect(0, 0, 1920, 1080), QRect(1920, 0, 1280, 1024),
                                   QRect(3200, 0, 1280, 1024)};
        const std::tuple<std::optional<QPoint>, QSize, std::optional<qsizetype>> rows[] = {
            {QPoint(1920, 0), {1280, 1024}, 1},
            {QPoint(3200, 0), {1280, 1024}, 2},
            {std::nullopt, {1280, 1024}, 1}, // KWin tells no position: the size decides
            {std::nullopt, {1920, 1080}, 0},
            {QPoint(0, 0), {1280, 1024}, std::nullopt},
            {QPoint(0, 0), {2560, 1440}, std::nullopt},
        };
        for (const auto& [position, size, screen] : rows) {
            QCOMPARE(screenOfStream(StreamPlacement{position, size}, screens), screen);
        }

        // A Wayland session named only by its type (the end-to-end runs meet the others: X11, and
        // Wayland with and without XWayland).
        QProcessEnvironment environment;
        environment.insert(QStringLiteral("DISPLAY"), QStringLiteral(":0"));
        environment.insert(QStringLiteral("XDG_SESSION_TYPE"), QStringLiteral("wayland"));
        QCOMPARE(desktopSession(environment), DesktopSession::waylandWithXWayland);
    }

    // Capture, shortcut and window services, each picked for the session; VANTALO_CAPTURE
    // overrides the capture alone.
    void eachServicePickedForTheSession()
    {
        using C = CaptureService;
        using S = ShortcutService;
        using W = WindowService;
        using D = DesktopSession;
        const struct
        {
            const char* qpa;
            DesktopSession session;
            const char* forced;
            PlatformChoice expected;
        } rows[] = {
            {"xcb", D::x11, "", {C::xshm, S::xGrab, W::x11, {}, {}}},
            {"xcb", D::waylandWithXWayland, "", {C::portal, S::portal, W::x11, {}, {}}},
            {"xcb", D::x11, "portal", {C::portal, S::xGrab, W::x11, {}, {}}},
            {"xcb", D::waylandWithXWayland, "xshm", {C::xshm, S::portal, W::x11, {}, {}}},
            {"xcb",
             D::x11,
             "none",
             {C::none, S::xGrab, W::x11, "Screen capture is off (VANTALO_CAPTURE=none)", {}}},
            {"xcb",
             D::x11,
             "gdi",
             {C::xshm,
              S::xGrab,
              W::x11,
              {},
              "VANTALO_CAPTURE=gdi is not a capture this build has (xshm, portal, none): the session picks "
              "it"}},
            {"wayland",
             D::waylandOnly,
             "",
             {C::none,
              S::none,
              W::none,
              "Screen capture needs Vantalo's windows on XWayland: start it without QT_QPA_PLATFORM=wayland",
              {}}},
            {"offscreen",
             D::none,
             "",
             {C::none,
              S::none,
              W::none,
              "Screen capture needs an X11 display (this session runs on \"offscreen\")",
              {}}},
            {"offscreen", D::none, "portal", {C::portal, S::none, W::none, {}, {}}},
        };
        for (const auto& row : rows) {
            QProcessEnvironment environment;
            if (*row.forced) {
                environment.insert(QStringLiteral("VANTALO_CAPTURE"), QString::fromLatin1(row.forced));
            }
            const PlatformChoice choice =
                choosePlatform(QString::fromLatin1(row.qpa), row.session, environment);
            QVERIFY2(choice == row.expected,
                     qPrintable(QStringLiteral("%1 %2: %3 / %4")
                                    .arg(QString::fromLatin1(row.qpa), QString::fromLatin1(row.forced),
                                         choice.noCaptureReason, choice.problem)));
        }
    }

    void regionInTheBuffer()
    {
        const struct
        {
            QRectF region;
            QSize logical, buffer;
            QRect expected; // empty: refused
        } rows[] = {
            {{10, 20, 100, 50}, {1920, 1080}, {1920, 1080}, {10, 20, 100, 50}}, // one pixel a point
            {{10, 20, 100, 50}, {960, 540}, {1920, 1080}, {20, 40, 200, 100}},  // two pixels a point
            // 125 %: edges that fall between pixels are taken outward.
            {{10, 10, 101, 33}, {1536, 864}, {1920, 1080}, {12, 12, 127, 42}},
            {{100, 100, 200, 100}, {1920, 1080}, {2400, 1080}, {125, 100, 250, 100}}, // a factor an axis
            {{0, 0, 1536, 864}, {1536, 864}, {1920, 1080}, {0, 0, 1920, 1080}},       // the whole display
            {{1900, 0, 40, 10}, {1920, 1080}, {1920, 1080}, {}},                      // past the edge
            {{0, 0, 10, 10}, {1920, 1080}, {}, {}},                                   // no buffer yet
        };
        for (const auto& [region, logical, buffer, expected] : rows) {
            QCOMPARE(bufferRect(region, logical, buffer).value_or(QRect()), expected);
        }
    }
};

QTEST_MAIN(TestScreenRecorder)
#include "tst_screenrecorder.moc"
