// Recording a Wayland desktop: which session Vantalo is in, where the region lies in a screen-cast
// buffer whatever the scaling, and the newest frame taken on our own clock.
#include "app/DesktopSession.h"
#include "recording/StreamMapping.h"

#include <QTest>

using namespace vantalo;

class TestStreamMapping : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void theSession()
    {
        const auto session = [](std::initializer_list<std::pair<const char*, const char*>> variables) {
            QProcessEnvironment environment;
            for (const auto& [name, value] : variables) {
                environment.insert(QString::fromLatin1(name), QString::fromLatin1(value));
            }
            return desktopSession(environment);
        };
        QCOMPARE(session({{"DISPLAY", ":0"}}), DesktopSession::x11);
        QCOMPARE(session({{"DISPLAY", ":0"}, {"WAYLAND_DISPLAY", "wayland-0"}}),
                 DesktopSession::waylandWithXWayland);
        QCOMPARE(session({{"DISPLAY", ":0"}, {"XDG_SESSION_TYPE", "wayland"}}),
                 DesktopSession::waylandWithXWayland);
        QCOMPARE(session({{"WAYLAND_DISPLAY", "wayland-0"}}), DesktopSession::waylandOnly);
        QCOMPARE(session({{"XDG_SESSION_TYPE", "x11"}}), DesktopSession::none);
    }

    void theScreenEachMonitorShows()
    {
        const QList<QRect> screens{QRect(0, 0, 1920, 1080), QRect(1920, 0, 1280, 1024),
                                   QRect(3200, 0, 1280, 1024)};
        const auto stream = [](std::optional<QPoint> position, QSize size) {
            return StreamPlacement{position, size};
        };
        QCOMPARE(screenOfStream(stream(QPoint(1920, 0), QSize(1280, 1024)), screens),
                 std::optional<qsizetype>(1));
        QCOMPARE(screenOfStream(stream(QPoint(3200, 0), QSize(1280, 1024)), screens),
                 std::optional<qsizetype>(2));
        // KWin tells no position: the size decides.
        QCOMPARE(screenOfStream(stream(std::nullopt, QSize(1280, 1024)), screens),
                 std::optional<qsizetype>(1));
        QCOMPARE(screenOfStream(stream(std::nullopt, QSize(1920, 1080)), screens),
                 std::optional<qsizetype>(0));
        QCOMPARE(screenOfStream(stream(QPoint(0, 0), QSize(1280, 1024)), screens), std::nullopt);
        QCOMPARE(screenOfStream(stream(QPoint(0, 0), QSize(2560, 1440)), screens), std::nullopt);
    }

    void regionInTheBuffer_data()
    {
        QTest::addColumn<QRectF>("region");
        QTest::addColumn<QSize>("logical");
        QTest::addColumn<QSize>("buffer");
        QTest::addColumn<QRect>("expected"); // empty: refused
        QTest::newRow("one pixel a point")
            << QRectF(10, 20, 100, 50) << QSize(1920, 1080) << QSize(1920, 1080) << QRect(10, 20, 100, 50);
        QTest::newRow("two pixels a point")
            << QRectF(10, 20, 100, 50) << QSize(960, 540) << QSize(1920, 1080) << QRect(20, 40, 200, 100);
        // 125 %: edges that fall between pixels are taken outward.
        QTest::newRow("fractional") << QRectF(10, 10, 101, 33) << QSize(1536, 864) << QSize(1920, 1080)
                                    << QRect(12, 12, 127, 42);
        QTest::newRow("each axis its own factor") << QRectF(100, 100, 200, 100) << QSize(1920, 1080)
                                                  << QSize(2400, 1080) << QRect(125, 100, 250, 100);
        QTest::newRow("the whole display")
            << QRectF(0, 0, 1536, 864) << QSize(1536, 864) << QSize(1920, 1080) << QRect(0, 0, 1920, 1080);
        QTest::newRow("past the edge")
            << QRectF(1900, 0, 40, 10) << QSize(1920, 1080) << QSize(1920, 1080) << QRect();
        QTest::newRow("no buffer yet") << QRectF(0, 0, 10, 10) << QSize(1920, 1080) << QSize() << QRect();
    }
    void regionInTheBuffer()
    {
        QFETCH(QRectF, region);
        QFETCH(QSize, logical);
        QFETCH(QSize, buffer);
        QFETCH(QRect, expected);
        QCOMPARE(bufferRect(region, logical, buffer).value_or(QRect()), expected);
    }

    void theNewestFrameOnEveryTick()
    {
        LatestFrame latest;
        QCOMPARE(latest.take(), std::nullopt);
        QImage first(4, 4, QImage::Format_RGB32);
        first.fill(Qt::red);
        latest.put(first);
        // A tick with nothing new takes the same pixels again, shared.
        QCOMPARE(latest.take()->constBits(), first.constBits());
        QCOMPARE(latest.take()->constBits(), first.constBits());
        QImage second(4, 4, QImage::Format_RGB32);
        second.fill(Qt::blue);
        latest.put(first);
        latest.put(second);
        QCOMPARE(latest.take()->pixel(0, 0), qRgb(0, 0, 255));
    }
};

QTEST_GUILESS_MAIN(TestStreamMapping)
#include "tst_streammapping.moc"
