// The screen-cast portal client against the real xdg-desktop-portal frontend, with a test backend
// that shares one PipeWire source (tests/wayland/with-portal.sh): what it asks for, what it gets,
// and every way the desktop can say no.
#include "../support/RecorderSteps.h"
#include "platform/portal/PipeWireStream.h"
#include "platform/portal/PortalCaptureBackend.h"
#include "platform/portal/PortalScreenCast.h"
#include "platform/portal/PortalShortcut.h"
#include "recording/ScreenRecorder.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>
#include <QUuid>

#include <fcntl.h>
#include <unistd.h>

using namespace vantalo;
using namespace vantalo::testing;
using namespace std::chrono_literals;

namespace {
// The options the backend received for `method`, in order.
QList<QJsonObject> requests(const QString& method)
{
    QFile log(qEnvironmentVariable("VANTALO_PORTAL_LOG"));
    QList<QJsonObject> found;
    if (log.open(QIODevice::ReadOnly)) {
        for (const QByteArray& line : log.readAll().split('\n')) {
            const QJsonObject request = QJsonDocument::fromJson(line).object();
            if (request.value(QStringLiteral("method")).toString() == method) {
                found << request.value(QStringLiteral("options")).toObject();
            }
        }
    }
    return found;
}

// Presses the shortcut on the desktop's side; answers how many sessions had it bound.
uint press()
{
    QDBusMessage call =
        QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.impl.portal.desktop.vantalotest"),
                                       QStringLiteral("/org/freedesktop/portal/desktop"),
                                       QStringLiteral("org.vantalo.PortalTest"), QStringLiteral("Activate"));
    call.setArguments({PortalShortcut::shortcutId});
    const QDBusMessage reply = QDBusConnection::sessionBus().call(call);
    return reply.arguments().value(0).toUInt();
}

// Run on KDE Plasma's own portal (tests/wayland/with-kde.sh).
bool onPlasma()
{
    return qEnvironmentVariable("XDG_CURRENT_DESKTOP") == QLatin1String("KDE");
}

// What the desktop shares of `region` (a monitor of `logical` size), from a session of its own.
QImage sharedPicture(const QRectF& region, QSize logical)
{
    PortalScreenCast portal;
    const auto grant = portal.start(QString());
    const auto fd = grant ? portal.openPipeWireRemote(grant->session) : std::unexpected(grant.error());
    auto stream = fd ? PipeWireStream::open(*fd, grant->streams.first().nodeId, region, logical)
                     : std::unexpected(fd.error());
    if (!stream) {
        qWarning("no stream: %s", qPrintable(stream.error().description));
        return {};
    }
    if (!QTest::qWaitFor([&] { return (*stream)->latest().has_value(); }, 30000)) {
        qWarning("the desktop sent no picture");
    }
    const QImage picture = (*stream)->latest().value_or(QImage());
    portal.close(grant->session);
    return picture;
}

// The test source's colour bars, as GStreamer draws them (BGRx bytes).
QImage testBars()
{
    QFile raw(qEnvironmentVariable("VANTALO_TEST_SOURCE_PICTURE"));
    const QByteArray bytes = raw.open(QIODevice::ReadOnly) ? raw.readAll() : QByteArray();
    if (bytes.size() != 640 * 480 * 4) {
        return {};
    }
    QImage bars(640, 480, QImage::Format_RGB32);
    for (int i = 0; i < 640 * 480; ++i) {
        const auto* p = reinterpret_cast<const uchar*>(bytes.constData()) + 4 * i;
        bars.setPixel(i % 640, i / 640, qRgb(p[2], p[1], p[0]));
    }
    return bars;
}

void answerNext(const QByteArray& mode)
{
    QFile file(qEnvironmentVariable("VANTALO_PORTAL_MODE"));
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(mode);
}
} // namespace

class TestPortalScreenCast : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (!qEnvironmentVariableIsSet("VANTALO_TEST_NODES") && !onPlasma()) {
            QSKIP("needs the portal session of tests/wayland/with-portal.sh or with-kde.sh");
        }
        // The frontend starts beside the test; wait until it answers.
        QTRY_VERIFY_WITH_TIMEOUT(QDBusConnection::sessionBus().interface()->isServiceRegistered(
                                     QStringLiteral("org.freedesktop.portal.Desktop")),
                                 10000);
    }

    void aMonitorIsSharedAndRemembered()
    {
        PortalScreenCast portal;
        const auto grant = portal.start(QString());
        QVERIFY2(grant, grant ? "" : qPrintable(grant.error().description));
        QCOMPARE(grant->streams.size(), 1);
        QVERIFY(qEnvironmentVariable("VANTALO_TEST_NODES")
                    .split(QLatin1Char(','))
                    .contains(QString::number(grant->streams.first().nodeId)));
        QCOMPARE(grant->streams.first().placement.position, QPoint(0, 0));
        QCOMPARE(grant->streams.first().placement.size, QSize(640, 480));
        // One monitor, the pointer drawn in (the desktop offers it), the permission kept.
        const QJsonObject selected = requests(QStringLiteral("SelectSources")).last();
        QCOMPARE(selected.value(QStringLiteral("types")).toString(), QStringLiteral("1"));
        QCOMPARE(selected.value(QStringLiteral("cursor_mode")).toString(), QStringLiteral("2"));
        QCOMPARE(selected.value(QStringLiteral("persist_mode")).toString(), QStringLiteral("2"));
        QVERIFY(!QUuid(grant->restoreToken).isNull());

        // The PipeWire connection is a descriptor of our own.
        const auto fd = portal.openPipeWireRemote(grant->session);
        QVERIFY2(fd, fd ? "" : qPrintable(fd.error().description));
        QVERIFY(fcntl(*fd, F_GETFD) != -1);
        ::close(*fd);
        portal.close(grant->session);

        // The token brings the same monitor back: the desktop gets what it stored with it.
        const auto again = portal.start(grant->restoreToken);
        QVERIFY2(again, again ? "" : qPrintable(again.error().description));
        QVERIFY2(requests(QStringLiteral("SelectSources")).last().contains(QStringLiteral("restore_data")),
                 qPrintable(QJsonDocument(requests(QStringLiteral("SelectSources")).last()).toJson()));
        QVERIFY(!again->restoreToken.isEmpty());
        portal.close(again->session);
    }

    // The recorder on the portal: its own 15 fps clock whatever the source sends (30 fps, or a
    // frame every 3 s: then each tick repeats the last picture, stored once), the region cut and
    // doubled as on X11, the permission's token handed on for next time. First of the streams:
    // the test source (GStreamer's pipewiresink) does not take back the buffers it lent to a
    // stream that went away, and after a few such streams it has too few left to keep sending.
    void aRecordingThroughThePortal_data()
    {
        QTest::addColumn<QByteArray>("source");
        QTest::newRow("30 fps") << QByteArray("share");
        QTest::newRow("still") << QByteArray("still");
    }
    void aRecordingThroughThePortal()
    {
        QFETCH(QByteArray, source);
        answerNext(source);
        const auto reset = qScopeGuard([] { answerNext("share"); });
        QImage shown = testBars().copy(10, 20, 100, 50);
        if (source == "still") {
            shown.fill(QColor(0x33, 0xcc, 0x66));
        }
        QString stored;
        // The session's screens: the shared monitor, and one beside it that is not shared.
        const auto screens = [] {
            return QList<CaptureDisplay>{{QStringLiteral("left"), QRect(0, 0, 640, 480)},
                                         {QStringLiteral("right"), QRect(640, 0, 800, 600)}};
        };
        ScreenRecorder recorder(
            std::make_unique<PortalCaptureBackend>(
                QString(), [&stored](const QString& token) { stored = token; }, PortalTimeouts{}, screens),
            [](const QString&) { return 1.0; }, [](const QString&) {});
        const auto started = startRecording(recorder, QRectF(10, 20, 100, 50), QStringLiteral("left"));
        QVERIFY2(!started, started ? qPrintable(started->description) : "");
        QTest::qWait(2000);
        const FrameList frames = stopRecording(recorder);
        const CaptureStats stats = recorder.lastStats();
        // A frame a slot of the recording's own time.
        QCOMPARE(frames.size(), stats.frames);
        QVERIFY2(qAbs(frames.size() - stats.seconds * 15) <= 1 && stats.seconds >= 2,
                 qPrintable(QStringLiteral("%1 frames over %2 s").arg(frames.size()).arg(stats.seconds)));
        QCOMPARE(frames.first().size(), QSize(200, 100));
        QCOMPARE(frames.last().fullSize(),
                 shown.scaled(200, 100).convertToFormat(frames.last().fullSize().format()));
        QVERIFY(!QUuid(stored).isNull());

        // A region on the screen that is not shared is not taken from the shared one, and the
        // permission kept is dropped so the next recording asks which screen to share.
        const auto refused = startRecording(recorder, QRectF(10, 20, 100, 50), QStringLiteral("right"));
        QVERIFY(refused);
        QCOMPARE(
            refused->description,
            QStringLiteral("the region is on a screen that was not shared; the next recording asks which "
                           "screen to share"));
        QCOMPARE(stored, QString());
        if (source == "still") {
            QVERIFY2(
                stats.sourceFrames <= 2 && stats.sharedFrames >= frames.size() - 2,
                qPrintable(
                    QStringLiteral("%1 sent, %2 shared").arg(stats.sourceFrames).arg(stats.sharedFrames)));
        } else {
            QVERIFY2(stats.sourceFrames >= 50, qPrintable(QString::number(stats.sourceFrames)));
        }
    }

    // The test source is 640 x 480 of colour bars, in BGRx: a cut is exactly those pixels as
    // GStreamer draws them, also where the buffer has two pixels a point.
    void framesComeCutToTheRegion()
    {
        const QImage bars = testBars();
        QCOMPARE(bars.size(), QSize(640, 480));
        QCOMPARE(sharedPicture(QRectF(10, 300, 100, 50), QSize(640, 480)), bars.copy(10, 300, 100, 50));
        QCOMPARE(sharedPicture(QRectF(10, 150, 100, 50), QSize(320, 240)), bars.copy(20, 300, 200, 100));
    }

    // The shortcut portal: the shortcut proposed in CreateSession is what a Plasma-like desktop
    // registers, so nothing is bound twice; a desktop that binds only on request gets
    // BindShortcuts; each press reaches the handler of the session in force, and only that.
    void theShortcutThroughThePortal()
    {
        QStringList printed;
        int presses = 0;
        PortalShortcut shortcut([&printed](const QString& line) { printed << line; });
        shortcut.registerHotkey(Shortcut{}, [&presses] { ++presses; });
        QTRY_COMPARE(shortcut.desktopTrigger(), std::optional(QStringLiteral("Ctrl+G")));
        QCOMPARE(requests(QStringLiteral("CreateShortcutSession")).last().value(PortalShortcut::shortcutId),
                 QStringLiteral("CTRL+g"));
        QVERIFY(requests(QStringLiteral("BindShortcuts")).isEmpty());
        QCOMPARE(press(), 1u);
        QTRY_COMPARE(presses, 1);

        // A shortcut recorded in Preferences: a new session, bound on request.
        answerNext("bind-only");
        const auto reset = qScopeGuard([] { answerNext("share"); });
        shortcut.registerHotkey(Shortcut{23, ModifierFlag::shift | ModifierFlag::command},
                                [&presses] { presses += 10; });
        QTRY_COMPARE(shortcut.desktopTrigger(), std::optional(QStringLiteral("Shift+Ctrl+5")));
        QCOMPARE(requests(QStringLiteral("BindShortcuts")).last().value(PortalShortcut::shortcutId),
                 QStringLiteral("SHIFT+CTRL+5"));
        QCOMPARE(press(), 1u); // the first session is closed
        QTRY_COMPARE(presses, 11);

        shortcut.unregisterHotkey();
        QTRY_COMPARE(press(), 0u);
        QTest::qWait(100);
        QCOMPARE(presses, 11);
        QVERIFY(printed.isEmpty());
    }

    // Every way the desktop says no, to a screen cast and to a shortcut, has its line; the
    // session asked for is closed again.
    void everyNoHasItsLine()
    {
        const struct
        {
            QByteArray mode;
            QString screenCast, shortcut;
        } rows[] = {
            {"cancel", QStringLiteral("Screen capture was not allowed"),
             QStringLiteral("the desktop did not allow a global shortcut")},
            {"error", QStringLiteral("the screen-cast portal failed at Start"),
             QStringLiteral("the shortcut portal failed at BindShortcuts")},
            {"hang", QStringLiteral("the screen-cast portal did not answer Start"),
             QStringLiteral("the shortcut portal did not answer BindShortcuts")},
        };
        const auto reset = qScopeGuard([] { answerNext("share"); });
        for (const auto& row : rows) {
            answerNext(row.mode);
            const qsizetype closed = requests(QStringLiteral("Close")).size();
            PortalScreenCast portal(QDBusConnection::sessionBus(), {2s, 2s});
            const auto grant = portal.start(QString());
            QVERIFY(!grant);
            QCOMPARE(grant.error().description, row.screenCast);
            QTRY_VERIFY(requests(QStringLiteral("Close")).size() > closed);
            QStringList printed;
            int refusals = 0;
            PortalShortcut shortcut([&printed](const QString& text) { printed << text; },
                                    QDBusConnection::sessionBus(), {2s, 2s});
            shortcut.onPermissionDenied = [&refusals] { ++refusals; };
            shortcut.registerHotkey(Shortcut{}, [] {});
            QTRY_COMPARE_WITH_TIMEOUT(refusals, 1, 30000);
            QCOMPARE(printed,
                     QStringList{QStringLiteral("Failed to register global shortcut — ") + row.shortcut});
            QCOMPARE(shortcut.desktopTrigger(), std::optional(QString())); // the menu names the command
        }
    }

    // On Plasma itself: the shortcut proposed in CreateSession is registered with KDE's shortcut
    // daemon, and a press there (as the keys would make it) reaches the handler.
    void theShortcutOnPlasma()
    {
        if (!onPlasma()) {
            QSKIP("runs on KDE Plasma (tests/wayland/with-kde.sh)");
        }
        QStringList printed;
        int presses = 0;
        PortalShortcut shortcut([&printed](const QString& line) { printed << line; });
        shortcut.registerHotkey(Shortcut{}, [&presses] { ++presses; });
        QTRY_COMPARE_WITH_TIMEOUT(shortcut.desktopTrigger(), std::optional(QStringLiteral("Ctrl+G")), 15000);
        // The daemon names the component after the session's token. Run alone, this catches a
        // shortcut that is the process's first use of object paths over D-Bus, as in the app.
        QDBusMessage press = QDBusMessage::createMethodCall(
            QStringLiteral("org.kde.kglobalaccel"), QStringLiteral("/component/vantalo"),
            QStringLiteral("org.kde.kglobalaccel.Component"), QStringLiteral("invokeShortcut"));
        press.setArguments({PortalShortcut::shortcutId});
        const QDBusMessage reply = QDBusConnection::sessionBus().call(press);
        QVERIFY2(reply.type() == QDBusMessage::ReplyMessage, qPrintable(reply.errorMessage()));
        QTRY_COMPARE(presses, 1);
        QVERIFY(printed.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestPortalScreenCast)
#include "tst_portalscreencast.moc"
