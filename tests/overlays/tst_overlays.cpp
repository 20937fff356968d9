// The overlays, toolbar and border on a real X server (tests/with-xvfb.sh), driven with xdotool,
// once without and once with a compositing manager (xcompmgr); and the region's geometry where the
// screen does not reach: resizing past the opposite edge, hit testing at the edges, the labels near
// a display's sides, negative origins.
#include "../support/RecorderSteps.h"
#include "capture/RecordingBorderOverlay.h"
#include "capture/RecordingToolbarWindowController.h"
#include "common/RegionGeometry.h"
#include "overlays/RegionPreviewOverlay.h"
#include "overlays/RegionSelectionWindowController.h"
#include "platform/Platform.h"
#include "recording/CapturePlan.h"
#include "recording/ScreenRecorder.h"

#include <QApplication>
#include <QMouseEvent>
#include <QPainter>
#include <QProcess>
#include <QScreen>
#include <QTest>

#include <xcb/xcb.h>

#include <poll.h>

#include <atomic>
#include <thread>

using namespace vantalo;
using namespace vantalo::geometry;

namespace {

const QColor kBackdrop(200, 100, 50);
const QRectF kScreen(0, 0, 1920, 1080); // the display, y-up

// Fills the screen with one colour and notes the clicks it gets.
class Backdrop : public QWidget
{
public:
    Backdrop() : QWidget(nullptr, Qt::FramelessWindowHint | Qt::X11BypassWindowManagerHint)
    {
        setAttribute(Qt::WA_OpaquePaintEvent);
    }
    QList<QPoint> clicks;

protected:
    void paintEvent(QPaintEvent*) override { QPainter(this).fillRect(rect(), kBackdrop); }
    void mousePressEvent(QMouseEvent* event) override { clicks << event->globalPosition().toPoint(); }
};

// Runs xdotool with the words of `command` ("mousemove 300 250 click 1") and answers its output.
QString xdotool(const QString& command)
{
    QProcess process;
    process.start(QStringLiteral("xdotool"), command.split(QLatin1Char(' ')));
    process.waitForFinished();
    return QString::fromLatin1(process.readAllStandardOutput()).trimmed();
}

QColor screenPixel(int x, int y)
{
    return QGuiApplication::primaryScreen()->grabWindow(0, x, y, 1, 1).toImage().pixelColor(0, 0);
}

bool near(const QColor& a, const QColor& b, int tolerance = 6)
{
    return qAbs(a.red() - b.red()) <= tolerance && qAbs(a.green() - b.green()) <= tolerance &&
           qAbs(a.blue() - b.blue()) <= tolerance;
}

QColor dimmed(const QColor& c, double alpha)
{
    return QColor(qRound(c.red() * (1 - alpha)), qRound(c.green() * (1 - alpha)),
                  qRound(c.blue() * (1 - alpha)));
}

// Another application's window, as many toolkits make them: the X server paints its white
// background at once where it is uncovered, and the window draws its picture (one colour) 150 ms
// after each expose.
class SlowWindow
{
public:
    SlowWindow(const QRect& frame, const QColor& colour)
        : m_connection(xcb_connect(nullptr, nullptr)), m_frame(frame), m_colour(colour.rgb() & 0xffffff)
    {
        xcb_connection_t* c = m_connection;
        const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
        m_window = xcb_generate_id(c);
        const uint32_t values[] = {screen->white_pixel, 1, XCB_EVENT_MASK_EXPOSURE};
        xcb_create_window(c, XCB_COPY_FROM_PARENT, m_window, screen->root, int16_t(frame.x()),
                          int16_t(frame.y()), uint16_t(frame.width()), uint16_t(frame.height()), 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                          XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values);
        m_gc = xcb_generate_id(c);
        xcb_create_gc(c, m_gc, m_window, XCB_GC_FOREGROUND, &m_colour);
        xcb_map_window(c, m_window);
        xcb_flush(c);
        m_thread = std::thread([this] { run(); });
    }
    ~SlowWindow()
    {
        m_stop = true;
        m_thread.join();
        xcb_disconnect(m_connection);
    }

private:
    void run()
    {
        pollfd fd{xcb_get_file_descriptor(m_connection), POLLIN, 0};
        while (!m_stop) {
            bool exposed = false;
            while (xcb_generic_event_t* event = xcb_poll_for_event(m_connection)) {
                exposed |= (event->response_type & 0x7f) == XCB_EXPOSE;
                std::free(event);
            }
            if (exposed) {
                std::this_thread::sleep_for(std::chrono::milliseconds(150));
                const xcb_rectangle_t all{0, 0, uint16_t(m_frame.width()), uint16_t(m_frame.height())};
                xcb_poly_fill_rectangle(m_connection, m_window, m_gc, 1, &all);
                xcb_flush(m_connection);
            }
            poll(&fd, 1, 20);
        }
    }

    xcb_connection_t* m_connection;
    QRect m_frame;
    uint32_t m_colour;
    xcb_window_t m_window = 0;
    xcb_gcontext_t m_gc = 0;
    std::atomic<bool> m_stop = false;
    std::thread m_thread;
};

} // namespace

class TestOverlays : public QObject
{
    Q_OBJECT

    std::unique_ptr<Backdrop> m_backdrop;
    Platform m_platform = loadPlatform();
    QProcess m_compositor;
    bool m_compositing = false;

    // The toolbar as the application makes it.
    std::unique_ptr<RecordingToolbarWindowController> toolbar()
    {
        return std::make_unique<RecordingToolbarWindowController>(
            [this] { return m_compositing; },
            [this](QWindow* window, const QRegion& region) {
                m_platform.windows->setInputRegion(window, region);
            });
    }

    void setCompositing(bool on)
    {
        if (on && m_compositor.state() == QProcess::NotRunning) {
            m_compositor.start(QStringLiteral("xcompmgr"), {});
            QVERIFY(m_compositor.waitForStarted());
            QTest::qWait(500);
        } else if (!on && m_compositor.state() != QProcess::NotRunning) {
            m_compositor.kill();
            m_compositor.waitForFinished();
            QTest::qWait(300);
        }
        m_compositing = on;
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_backdrop = std::make_unique<Backdrop>();
        m_backdrop->setGeometry(QGuiApplication::primaryScreen()->geometry());
        m_backdrop->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_backdrop.get()));
        QTRY_VERIFY(near(screenPixel(50, 50), kBackdrop));
    }
    void cleanupTestCase() { setCompositing(false); }

    // A capture's overlays in the order the application shows them: selecting, adjusting, the
    // toolbar, the border.
    void theOverlaysOfACapture_data()
    {
        QTest::addColumn<bool>("compositing");
        QTest::newRow("no compositor: a still") << false;
        QTest::newRow("xcompmgr: the live screen") << true;
    }
    void theOverlaysOfACapture()
    {
        QFETCH(bool, compositing);
        setCompositing(compositing);
        // An application's window (no window manager here: its frame is its own rectangle).
        QWidget application(nullptr, Qt::FramelessWindowHint);
        application.setGeometry(1200, 300, 300, 200);
        application.show();
        QVERIFY(QTest::qWaitForWindowExposed(&application));
        Platform platform = loadPlatform();
        RegionSelectionWindowController selector([this] { return m_compositing; },
                                                 [&platform] { return platform.windows->windowFrames(); });
        std::optional<std::pair<QRectF, DisplayInfo>> selected;
        int cancels = 0;
        selector.onRegionSelected = [&](const QRectF& region, const DisplayInfo& display) {
            selected = std::pair(region, display);
        };
        selector.onCancelled = [&cancels] { ++cancels; };
        selector.show(std::nullopt);
        selector.show(std::nullopt);
        QTRY_COMPARE(selector.windows().size(), QGuiApplication::screens().size());
        QVERIFY(QTest::qWaitForWindowExposed(selector.windows().first()));
        QCOMPARE(selector.windows().first()->showsStill(), !compositing);

        xdotool(QStringLiteral("mousemove 300 250 mousedown 1"));
        xdotool(QStringLiteral("mousemove 600 400"));
        xdotool(QStringLiteral("mousemove 800 650"));
        QTest::qWait(300);
        // Dimmed at 0.3 outside; the hole shows what lies below, undimmed.
        QTRY_VERIFY2(near(screenPixel(100, 900), dimmed(kBackdrop, 0.3)),
                     qPrintable(screenPixel(100, 900).name()));
        QVERIFY2(near(screenPixel(550, 500), kBackdrop), qPrintable(screenPixel(550, 500).name()));
        QCOMPARE(screenPixel(300, 450), QColor(Qt::white)); // the outline's first dash
        QVERIFY(!selected);
        xdotool(QStringLiteral("mouseup 1"));
        // Reported in the y-up global space: the top edge at y = 1080 − 250.
        QTRY_VERIFY(selected.has_value());
        QCOMPARE(selected->first, QRectF(300, 430, 500, 400));
        QCOMPARE(selected->second.name, QGuiApplication::primaryScreen()->name());
        // From corner to corner: the whole display, its last column and row too.
        selected.reset();
        xdotool(QStringLiteral("mousemove 0 0 mousedown 1"));
        xdotool(QStringLiteral("mousemove 960 540"));
        xdotool(QStringLiteral("mousemove 1919 1079 mouseup 1"));
        QTRY_VERIFY(selected.has_value());
        QCOMPARE(selected->first, kScreen);
        // A click takes the window under the pointer, outlined while the pointer is over it; on
        // the desktop, the whole display. The hint says so.
        QVERIFY(selector.windows().first()->message().startsWith(
            QStringLiteral("Drag to select an area \u00B7 Click a window \u00B7 Click the desktop")));
        selected.reset();
        xdotool(QStringLiteral("mousemove 1300 400"));
        QTRY_VERIFY(near(screenPixel(1201, 301), QColor(48, 120, 255), 10)); // the blue edge
        xdotool(QStringLiteral("click 1"));
        QTRY_VERIFY(selected.has_value());
        QCOMPARE(selected->first, QRectF(1200, 580, 300, 200));
        selected.reset();
        xdotool(QStringLiteral("mousemove 100 900 click 1"));
        QTRY_VERIFY(selected.has_value());
        QCOMPARE(selected->first, kScreen);

        // A 10-point drag is not a selection, and the overlay says why; Escape cancels once.
        selected.reset();
        xdotool(QStringLiteral("mousemove 100 100 mousedown 1 mousemove 110 160 mouseup 1"));
        QTRY_COMPARE(selector.windows().first()->message(), RegionSelectionView::tooSmallText);
        QVERIFY(!selected);
        xdotool(QStringLiteral("key Escape"));
        QTRY_COMPARE(cancels, 1);

        // The last region, outlined with its size: Return takes it, and so does a click inside it
        // (there before the window it covers).
        const DisplayInfo display{QGuiApplication::primaryScreen()->name(), QRectF(0, 0, 1920, 1080)};
        QCOMPARE(selector.displays(), QList{display});
        const LastRegion last{QRectF(1100, 580, 500, 400), display}; // (1100, 100)-(1600, 500)
        for (const QString& take :
             {QStringLiteral("key Return"), QStringLiteral("mousemove 1250 350 click 1")}) {
            selector.show(last);
            QVERIFY(QTest::qWaitForWindowExposed(selector.windows().first()));
            QVERIFY(
                selector.windows().first()->message().contains(QStringLiteral("Return for the last region")));
            QTRY_COMPARE(screenPixel(1100, 300), QColor(Qt::white));
            selected.reset();
            xdotool(take);
            QTRY_VERIFY(selected.has_value());
            QCOMPARE(*selected, std::pair(last.region, display));
        }
        selector.dismiss();
        QTRY_VERIFY(near(screenPixel(100, 900), kBackdrop));

        // Adjusting: the region shown with its handles.
        RegionPreviewOverlay preview([this] { return m_compositing; });
        QList<QRectF> changes;
        preview.onRegionChanged = [&changes](const QRectF& region) { changes << region; };
        // (300, 250)-(800, 650) on screen.
        preview.show(display, QRectF(300, 430, 500, 400));
        QVERIFY(QTest::qWaitForWindowExposed(preview.window()));
        QTest::qWait(300);
        QTRY_VERIFY(near(screenPixel(100, 900), dimmed(kBackdrop, 0.38)));
        QVERIFY(near(screenPixel(550, 500), kBackdrop));
        // A white handle at the top-left corner, another at the bottom middle.
        QCOMPARE(screenPixel(298, 248), QColor(Qt::white));
        QCOMPARE(screenPixel(550, 652), QColor(Qt::white));
        // Return records the region as it is.
        int confirmed = 0;
        preview.onConfirmed = [&confirmed] { ++confirmed; };
        xdotool(QStringLiteral("key Return"));
        QTRY_COMPARE(confirmed, 1);
        // The arrows move it a point, ten with Shift; a typed size keeps its top-left corner, and
        // Escape leaves the size editor before it cancels anything.
        int cancelled = 0;
        preview.onCancelled = [&cancelled] { ++cancelled; };
        xdotool(QStringLiteral("key Right key shift+Up"));
        QTRY_COMPARE(preview.window()->region(), QRectF(301, 440, 500, 400));
        xdotool(QStringLiteral("key Tab"));
        QTRY_VERIFY(preview.window()->sizeEditor());
        xdotool(QStringLiteral("type 640x360"));
        xdotool(QStringLiteral("key Return"));
        QTRY_VERIFY(!preview.window()->sizeEditor());
        QCOMPARE(preview.window()->region(), QRectF(301, 480, 640, 360));
        QCOMPARE(changes.last(), preview.window()->region());
        xdotool(QStringLiteral("key Tab key Escape"));
        QTRY_VERIFY(!preview.window()->sizeEditor());
        QCOMPARE(cancelled, 0);
        // A click on the size opens the editor too; its list holds the common sizes.
        xdotool(QStringLiteral("mousemove 620 614 click 1"));
        QTRY_VERIFY(preview.window()->sizeEditor());
        QCOMPARE(preview.window()->sizeEditor()->count(), 4);
        preview.window()->sizeEditor()->activated(3); // 1920 × 1080: the whole display
        QTRY_COMPARE(preview.window()->region(), kScreen);
        xdotool(QStringLiteral("key Escape"));
        QTRY_COMPARE(cancelled, 1);

        // Every handle, with the toolbar shown above the region as when adjusting for real: its
        // padding lies over the top handle and must let the drag through. Each drag moves its
        // handle 20 points left and 30 up; the edges it holds follow.
        auto bar = toolbar();
        for (const QPoint side : {QPoint(-1, -1), QPoint(0, -1), QPoint(1, -1), QPoint(1, 0), QPoint(1, 1),
                                  QPoint(0, 1), QPoint(-1, 1), QPoint(-1, 0)}) {
            preview.show(display, QRectF(300, 430, 500, 400));
            bar->show(QRectF(300, 430, 500, 400),
                      kScreen); // above the overlay, as the application stacks them
            QVERIFY(QTest::qWaitForWindowExposed(bar->panel()));
            QVERIFY(bar->panel()->frameGeometry().contains(550, 250)); // over the top handle
            QTest::qWait(100);
            changes.clear();
            const QPoint handle(550 + side.x() * 250, 450 + side.y() * 200);
            const QPoint to = handle + QPoint(side.x() == 0 ? 0 : -20, side.y() == 0 ? 0 : -30);
            xdotool(QStringLiteral("mousemove %1 %2 mousedown 1").arg(handle.x()).arg(handle.y()));
            xdotool(QStringLiteral("mousemove %1 %2").arg(to.x() + 1).arg(to.y() + 1));
            xdotool(QStringLiteral("mousemove %1 %2 mouseup 1").arg(to.x()).arg(to.y()));
            const int left = 300 + (side.x() < 0 ? -20 : 0);
            const int right = 800 + (side.x() > 0 ? -20 : 0);
            const int top = 250 + (side.y() < 0 ? -30 : 0);
            const int bottom = 650 + (side.y() > 0 ? -30 : 0);
            const QRectF expected(left, 1080 - bottom, right - left, bottom - top);
            QTRY_VERIFY2(!changes.isEmpty() && changes.last() == expected,
                         qPrintable(QStringLiteral("handle at (%1, %2)").arg(handle.x()).arg(handle.y())));
        }
        // Dragged from inside, the region moves.
        bar->hide();
        preview.show(display, QRectF(300, 430, 500, 400));
        QTest::qWait(100);
        xdotool(QStringLiteral("mousemove 500 450 mousedown 1 mousemove 520 440 mouseup 1"));
        QTRY_COMPARE(changes.last(), QRectF(320, 440, 500, 400));
        preview.hide();

        // The toolbar never takes the focus.
        xdotool(QStringLiteral("windowfocus --sync %1").arg(m_backdrop->winId()));
        const QString focused = xdotool(QStringLiteral("getwindowfocus"));

        bar = this->toolbar();
        RecordingToolbarWindowController& toolbar = *bar;
        int starts = 0;
        int stops = 0;
        toolbar.onStart = [&starts] { ++starts; };
        toolbar.onStop = [&stops] { ++stops; };
        // Region (300, 250)-(800, 650) on screen: the bar's middle is 14 + 20 points over its top.
        toolbar.show(QRectF(300, 430, 500, 400), kScreen);
        QVERIFY(QTest::qWaitForWindowExposed(toolbar.panel()));
        QCOMPARE(toolbar.panelSize(), QSizeF(84, 80));
        QTRY_VERIFY(near(screenPixel(550, 216), QColor::fromRgbF(1.0f, 0.25f, 0.25f), 10));

        xdotool(QStringLiteral("mousemove 550 216"));
        QTRY_COMPARE(toolbar.panel()->hovered(), RecordingToolbarPanel::Button::recordStop);
        xdotool(QStringLiteral("click 1"));
        QTRY_COMPARE(starts, 1);
        QCOMPARE(xdotool(QStringLiteral("getwindowfocus")), focused);

        // The recording look: the stop square in the middle button sends Stop.
        toolbar.toolbarState().startTimer();
        QTRY_COMPARE(toolbar.panelSize(), QSizeF(245, 80));
        // Qt knows the new geometry at once; the X server a moment later.
        QTRY_COMPARE(xdotool(QStringLiteral("getwindowgeometry %1").arg(toolbar.panel()->winId()))
                         .section(QStringLiteral("Geometry: "), 1)
                         .trimmed(),
                     QStringLiteral("245x80"));
        QTest::qWait(100);
        const QRectF stopButton = toolbar.panel()->buttonRect(RecordingToolbarPanel::Button::recordStop);
        const QPoint stop = toolbar.panel()->mapToGlobal(stopButton.center().toPoint());
        xdotool(QStringLiteral("mousemove %1 %2 click 1").arg(stop.x()).arg(stop.y()));
        QTRY_COMPARE(stops, 1);
        QCOMPARE(xdotool(QStringLiteral("getwindowfocus")), focused);
        // The padding round the capsule lets clicks through to what is below.
        m_backdrop->clicks.clear();
        const QPoint margin = toolbar.panel()->mapToGlobal(QPoint(4, 4));
        xdotool(QStringLiteral("mousemove %1 %2 click 1").arg(margin.x()).arg(margin.y()));
        QTRY_COMPARE(m_backdrop->clicks.size(), 1);
        QCOMPARE(stops, 1);

        // The border round the region while recording: its stroke 2 points outside the left edge
        // is red, and it lets clicks through.
        RecordingBorderOverlay border([this] { return m_compositing; });
        border.show(QRectF(300, 430, 500, 400), kScreen); // (300, 250)-(800, 650) on screen
        QVERIFY(QTest::qWaitForWindowExposed(border.window()));
        QCOMPARE(border.window()->geometry(), QRect(296, 246, 508, 408));
        QTRY_VERIFY2(screenPixel(298, 450).red() > 200 && screenPixel(298, 450).green() < 120,
                     qPrintable(screenPixel(298, 450).name()));
        m_backdrop->clicks.clear();
        xdotool(QStringLiteral("mousemove 298 450 click 1"));
        QTRY_COMPARE(m_backdrop->clicks.size(), 1);
        // Nothing of the toolbar (its padding and shadow reach below the region's top edge) or of
        // the border reaches the recorded pixels: the frames are the backdrop, edge to edge.
        xdotool(QStringLiteral("mousemove 1800 1000"));
        QTest::qWait(300);
        QVERIFY(platform.capture);
        auto recorder =
            std::make_unique<ScreenRecorder>(std::move(platform.capture), ScreenRecorder::screenPixelRatio);
        const FrameList frames =
            testing::record(*recorder, QRectF(300, 250, 500, 400), std::chrono::milliseconds(300),
                            QGuiApplication::primaryScreen()->name());
        QVERIFY(!frames.isEmpty());
        const QImage frame = frames.last().fullSize();
        QStringList others;
        for (int y = 0; y < frame.height(); ++y) {
            for (int x = 0; x < frame.width(); ++x) {
                if (frame.pixelColor(x, y) != kBackdrop && others.size() < 5) {
                    others << QStringLiteral("(%1, %2) %3").arg(x).arg(y).arg(frame.pixelColor(x, y).name());
                }
            }
        }
        QVERIFY2(others.isEmpty(), qPrintable(others.join(QStringLiteral(", "))));

        // Paused, the border is amber and wider, and takes the pointer: a drag moves the region,
        // never off the screen; recording again, clicks pass through once more.
        QList<QRectF> moves;
        border.onMoved = [&moves](const QRectF& region) { moves << region; };
        border.setPaused(true);
        QVERIFY(QTest::qWaitForWindowExposed(border.window()));
        QCOMPARE(border.window()->geometry(), QRect(292, 242, 516, 416));
        QTRY_VERIFY2(screenPixel(296, 450).red() > 200 && screenPixel(296, 450).green() > 140 &&
                         screenPixel(296, 450).blue() < 80,
                     qPrintable(screenPixel(296, 450).name()));
        m_backdrop->clicks.clear();
        xdotool(
            QStringLiteral("mousemove 296 450 mousedown 1 mousemove 346 420 mousemove 396 390 mouseup 1"));
        QTRY_COMPARE(moves.size() > 0 ? moves.last() : QRectF(), QRectF(400, 490, 500, 400));
        QTRY_COMPARE(border.window()->geometry(), QRect(392, 182, 516, 416));
        QVERIFY(m_backdrop->clicks.isEmpty());
        xdotool(QStringLiteral("mousemove 396 390 mousedown 1 mousemove 1900 0 mousemove 1910 10 mouseup 1"));
        QTRY_COMPARE(moves.last(), QRectF(1420, 680, 500, 400));
        border.setPaused(false);
        QVERIFY(QTest::qWaitForWindowExposed(border.window()));
        QCOMPARE(border.window()->geometry(), QRect(1416, -4, 508, 408));
        QTRY_VERIFY2(screenPixel(1418, 100).red() > 200 && screenPixel(1418, 100).green() < 120,
                     qPrintable(screenPixel(1418, 100).name()));
        m_backdrop->clicks.clear();
        xdotool(QStringLiteral("mousemove 1418 100 click 1"));
        QTRY_COMPARE(m_backdrop->clicks.size(), 1);
        border.hide();
        toolbar.hide();
        QCOMPARE(toolbar.toolbarState().elapsedSeconds(), 0.0);
        QVERIFY(!toolbar.toolbarState().isRecording());

        // For the whole screen the toolbar sits inside the region's top edge, whole on the screen,
        // and stays out of the recording.
        toolbar.show(kScreen, kScreen);
        QVERIFY(QTest::qWaitForWindowExposed(toolbar.panel()));
        QTRY_COMPARE(toolbar.panel()->geometry(), QRect(918, -6, 84, 80)); // the capsule 14 points down
        toolbar.toolbarState().startTimer();
        QTRY_VERIFY(!toolbar.panel()->isVisible());
        toolbar.hide();
    }

    // Without a compositor the windows under the overlays repaint only once the overlays have
    // gone: a recording begins when they have (so the GIF never opens on their blank backgrounds),
    // and an overlay that follows another paints the screen as it was before the first one.
    void theFirstFrameShowsTheWindowsUnderTheOverlays()
    {
        setCompositing(false);
        const QColor red(220, 30, 30);
        SlowWindow slow(QRect(1000, 300, 400, 300), red);
        QTRY_VERIFY(near(screenPixel(1200, 450), red));
        const auto stills = std::make_shared<ScreenStills>();
        RegionSelectionWindowController selector([] { return false; }, {}, stills);
        RegionPreviewOverlay preview([] { return false; }, stills);
        const DisplayInfo display{QGuiApplication::primaryScreen()->name(), kScreen};
        selector.show(std::nullopt);
        QVERIFY(QTest::qWaitForWindowExposed(selector.windows().first()));
        selector.dismiss();
        preview.show(display, QRectF(1000, 480, 400, 300)); // the window's frame
        QVERIFY(QTest::qWaitForWindowExposed(preview.window()));
        QTest::qWait(400); // the slow window has repainted under the selection's still by now
        QVERIFY2(near(screenPixel(1200, 450), red), qPrintable(screenPixel(1200, 450).name()));

        Platform platform = loadPlatform();
        ScreenRecorder recorder(std::move(platform.capture), ScreenRecorder::screenPixelRatio);
        recorder.screenBefore = preview.stillOf(display.name);
        QVERIFY(!recorder.screenBefore.isNull());
        // A flat shape that moved meanwhile (an animation) is no unpainted window; a bare
        // background over part of the region is.
        QImage before(320, 240, QImage::Format_RGB32);
        before.fill(QColor(32, 56, 92));
        QImage moved = before;
        QPainter(&moved).fillRect(100, 100, 60, 60, Qt::yellow);
        QVERIFY(!showsUnpaintedWindows(moved, before));
        QImage bare = before;
        QPainter(&bare).fillRect(0, 0, 320, 60, Qt::white);
        QVERIFY(showsUnpaintedWindows(bare, before));
        preview.hide();
        QVERIFY(preview.stillOf(display.name).isNull()); // the next capture takes its own
        const FrameList frames = testing::record(recorder, QRectF(1000, 300, 400, 300),
                                                 std::chrono::milliseconds(300), display.name);
        QVERIFY(!frames.isEmpty());
        const QImage first = frames.first().fullSize();
        QVERIFY2(near(first.pixelColor(first.width() / 2, first.height() / 2), red),
                 qPrintable(first.pixelColor(first.width() / 2, first.height() / 2).name()));
    }

    void selectingAndHitting()
    {
        QCOMPARE(dragRect({100, 100}, {40, 300}), QRectF(40, 100, 60, 200));
        QCOMPARE(dragRect({40, 300}, {100, 100}), QRectF(40, 100, 60, 200));
        // Strictly more than 10 in both directions.
        QVERIFY(!isSelectable(QRectF(0, 0, 10, 50)));
        QVERIFY(!isSelectable(QRectF(0, 0, 50, 10)));
        QVERIFY(isSelectable(QRectF(0, 0, 11, 11)));
        QCOMPARE(sizeLabel(QRectF(0, 0, 123.9, 45.2)), QStringLiteral("123 \u00D7 45"));
        // Views report in global coordinates by adding their display's origin.
        QCOMPARE(viewToGlobal(QRectF(10, 20, 30, 40), QRectF(-1920, 0, 1920, 1080)),
                 QRectF(-1910, 20, 30, 40));
        QCOMPARE(globalToView(QRectF(-1910, 20, 30, 40), QRectF(-1920, 0, 1920, 1080)),
                 QRectF(10, 20, 30, 40));

        const QRectF region(100, 100, 200, 100);
        // (111, 189) is about 15.6 from the corner: no handle, but inside, so a move.
        QVERIFY(!hitHandle({111, 189}, region));
        QVERIFY(startsMove({111, 189}, region));
        QCOMPARE(hitHandle({110, 190}, region), Handle::topLeft);
        QVERIFY(startsMove({98.5, 150}, region)); // 2 points of grace outside the edge
        QVERIFY(!startsMove({97, 150}, region));
        // Handles are tried in order: on a tiny region the first one wins.
        QCOMPARE(hitHandle({105, 105}, QRectF(100, 100, 11, 11)), Handle::topLeft);
    }

    void moveAndResize()
    {
        const QRectF region(100, 100, 200, 100);
        const struct
        {
            int handle; // -1: a move
            QRectF base;
            QPointF delta;
            QRectF result;
        } rows[] = {
            // Never under 20 points: the opposite edge stays where it is.
            {int(Handle::right), region, {-195, 0}, {100, 100, 20, 100}},
            {int(Handle::left), region, {195, 0}, {280, 100, 20, 100}},
            {int(Handle::top), {100, 100, 15, 100}, {30, -40}, {100, 100, 20, 60}}, // widened
            {int(Handle::bottom), region, {0, 150}, {100, 180, 200, 20}},
            {int(Handle::top), region, {0, -150}, {100, 100, 200, 20}},
            {int(Handle::bottomRight), region, {10, -20}, {100, 80, 210, 120}},
            {int(Handle::topLeft), region, {500, -500}, {280, 100, 20, 20}},
            {-1, region, {-500, 0}, {-400, 100, 200, 100}}, // a move is not clamped
        };
        for (const auto& [handle, base, delta, result] : rows) {
            QCOMPARE(handle < 0 ? movedRegion(base, delta) : resizedRegion(Handle(handle), base, delta),
                     result);
        }

        // The size label goes below the region, or inside it when that would leave the display,
        // and keeps 8 points inside the view's sides.
        const QSizeF text(60, 13);
        const QSizeF view(1920, 1080);
        QCOMPARE(previewLabelBox(QRectF(100, 200, 200, 100), text, view), QRectF(161, 171, 78, 21));
        QCOMPARE(previewLabelBox(QRectF(100, 20, 200, 100), text, view).y(), 28.0);
        QCOMPARE(previewLabelBox(QRectF(0, 300, 40, 40), text, view).x(), 8.0);
        QCOMPARE(previewLabelBox(QRectF(1900, 300, 20, 40), text, view).x(), 1920.0 - 78 - 8);
        // Where the toolbar had to go below the region (a region at the top), the pill goes inside.
        QCOMPARE(previewLabelBox(QRectF(100, 683, 400, 397), text, view).y(), 691.0);

        // Typed sizes: the ways people write them, and what is not one.
        for (const QString& typed : {QStringLiteral("1280 \u00D7 720"), QStringLiteral("1280x720"),
                                     QStringLiteral(" 1280 X 720 "), QStringLiteral("1280 720")}) {
            QCOMPARE(parseSize(typed), std::optional(QSizeF(1280, 720)));
        }
        for (const QString& typed : {QStringLiteral("1280"), QStringLiteral("12 x 720"),
                                     QStringLiteral("-5x9"), QStringLiteral("1280x720x3"), QString()}) {
            QVERIFY2(!parseSize(typed), qPrintable(typed));
        }
        // The top-left corner stays; what would leave the view moves back onto it, and no size is
        // larger than the view.
        QCOMPARE(resizedTo(QRectF(100, 600, 200, 100), QSizeF(640, 360), view), QRectF(100, 340, 640, 360));
        QCOMPARE(resizedTo(QRectF(1500, 100, 200, 100), QSizeF(640, 360), view), QRectF(1280, 0, 640, 360));
        QCOMPARE(resizedTo(QRectF(10, 10, 20, 20), QSizeF(2560, 1440), view), QRectF(0, 0, 1920, 1080));
    }

    // The toolbar is always whole on the region's display, so Start can always be pressed: above
    // the region, else below it, else inside its top edge, 14 points off the edge each time.
    void theToolbarStaysOnTheDisplay()
    {
        const QRectF primary(0, 0, 1920, 1080);
        const QRectF left(-1280, 200, 1280, 800); // a second monitor, its top 80 points lower
        const QSizeF panel(84, 80);               // a 44 × 40 capsule
        enum Where
        {
            above,
            below,
            inside
        };
        const struct
        {
            QRectF region;
            QRectF display;
            Where where;
            double barLeft; // y-up, global
        } rows[] = {
            {{300, 430, 500, 400}, primary, above, 528},
            {{300, 430, 500, 647}, primary, below, 528}, // dragged from y = 3
            {{300, 430, 500, 596}, primary, above, 528}, // just room above
            {{300, 430, 500, 597}, primary, below, 528},
            {primary, primary, inside, 938},              // the whole screen
            {{0, 30, 1920, 1050}, primary, inside, 938},  // nearly: no room on either side
            {{1880, 100, 40, 300}, primary, above, 1876}, // near the right side
            {{-10, 100, 40, 300}, primary, above, 0},     // past the left side
            {{-1280, 500, 400, 500}, left, below, -1102}, // the top of a monitor set lower
        };
        for (const auto& [region, display, where, barLeft] : rows) {
            const QString row = QStringLiteral("region %1,%2 %3x%4")
                                    .arg(region.x())
                                    .arg(region.y())
                                    .arg(region.width())
                                    .arg(region.height());
            const QRectF bar = toolbarBar(toolbarFrame(region, panel, display));
            QCOMPARE(bar.size(), QSizeF(44, 40));
            QVERIFY2(display.contains(bar), qPrintable(row));
            QVERIFY2(qFuzzyCompare(bar.x(), barLeft),
                     qPrintable(row + QStringLiteral(": at %1").arg(bar.x())));
            const double regionTop = region.y() + region.height();
            const double edge = where == above   ? bar.y() - regionTop
                                : where == below ? region.y() - (bar.y() + bar.height())
                                                 : std::min(regionTop, display.y() + display.height()) -
                                                       (bar.y() + bar.height());
            QVERIFY2(edge == toolbarGap, qPrintable(row + QStringLiteral(": %1 from the edge").arg(edge)));
        }
    }
};

QTEST_MAIN(TestOverlays)
#include "tst_overlays.moc"
