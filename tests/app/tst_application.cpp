// The vantalo executable as a user meets it, on a real X server (tests/with-xvfb.sh).
#include <QDir>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>

#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>

#include <cstdlib>
#include <memory>

namespace {

// A running vantalo whose lines (stdout) and state changes (debug log on stderr) are collected.
class Vantalo
{
public:
    explicit Vantalo(const QStringList& args = {})
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("vantalo.*.debug=true"));
        m_process.setProcessEnvironment(env);
        m_process.start(QStringLiteral(VANTALO_BINARY), args);
    }
    ~Vantalo()
    {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.kill();
            m_process.waitForFinished(5000);
        }
    }
    QString out()
    {
        m_out += QString::fromUtf8(m_process.readAllStandardOutput());
        return m_out;
    }
    QString log()
    {
        m_log += QString::fromUtf8(m_process.readAllStandardError());
        return m_log;
    }
    // Waits until `text` has appeared `times` times in the log.
    bool waitForLog(const QString& text, int timeoutMs = 5000, qsizetype times = 1)
    {
        QDeadlineTimer deadline(timeoutMs);
        while (log().count(text) < times) {
            if (deadline.hasExpired() || m_process.state() == QProcess::NotRunning) {
                return false;
            }
            m_process.waitForReadyRead(100);
        }
        return true;
    }
    QProcess& process() { return m_process; }

private:
    QProcess m_process;
    QString m_out;
    QString m_log;
};

struct Run
{
    int exitCode;
    QString out;
};

Run run(const QString& program, const QStringList& args,
        const QProcessEnvironment& env = QProcessEnvironment::systemEnvironment())
{
    QProcess process;
    process.setProcessEnvironment(env);
    process.start(program, args);
    if (!process.waitForFinished(15000)) {
        process.kill();
        return {-1, {}};
    }
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput())};
}

QString xdotool(const QStringList& args)
{
    return run(QStringLiteral("xdotool"), args).out.trimmed();
}

} // namespace

class TestApplication : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (qEnvironmentVariableIsEmpty("DISPLAY")) {
            QSKIP("needs the X server of tests/with-xvfb.sh");
        }
    }

    void commandLineWorksWithoutADisplay()
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.remove(QStringLiteral("DISPLAY"));
        const Run version = run(QStringLiteral(VANTALO_BINARY), {QStringLiteral("--version")}, env);
        QCOMPARE(version.exitCode, 0);
        QVERIFY2(version.out.startsWith(QStringLiteral("vantalo 0.")), qPrintable(version.out));
        const Run help = run(QStringLiteral(VANTALO_BINARY), {QStringLiteral("--help")}, env);
        QCOMPARE(help.exitCode, 0);
        QVERIFY(help.out.contains(QStringLiteral("--toggle")));
        QVERIFY(run(QStringLiteral(VANTALO_BINARY), {QStringLiteral("--record-now")}, env).exitCode != 0);
    }

    void oneInstanceThatTogglesAndAnswersTheShortcut()
    {
        Vantalo first;
        QVERIFY2(first.waitForLog(QStringLiteral("launched")), qPrintable(first.log()));

        const Run second = run(QStringLiteral(VANTALO_BINARY), {});
        QCOMPARE(second.exitCode, 0);
        QCOMPARE(second.out, QStringLiteral("Vantalo is already running\n"));
        QCOMPARE(first.process().state(), QProcess::Running);

        QCOMPARE(run(QStringLiteral(VANTALO_BINARY), {QStringLiteral("--toggle")}).exitCode, 0);
        QVERIFY(first.waitForLog(QStringLiteral("state idle -> selectingRegion")));
        QCOMPARE(run(QStringLiteral(VANTALO_BINARY), {QStringLiteral("--toggle")}).exitCode, 0);
        QVERIFY(first.waitForLog(QStringLiteral("state selectingRegion -> idle")));

        // The global shortcut reaches it whichever window has the focus.
        xdotool({QStringLiteral("key"), QStringLiteral("ctrl+g")});
        QVERIFY2(first.waitForLog(QStringLiteral("state idle -> selectingRegion"), 3000, 2),
                 qPrintable(first.log()));
        xdotool({QStringLiteral("key"), QStringLiteral("ctrl+g")});
        QVERIFY2(first.waitForLog(QStringLiteral("state selectingRegion -> idle"), 3000, 2),
                 qPrintable(first.log()));
        QVERIFY2(!first.out().contains(QStringLiteral("Failed")), qPrintable(first.out()));
    }

    void toggleStartsVantaloWhenNoneRuns()
    {
        Vantalo started({QStringLiteral("--toggle")});
        QVERIFY2(started.waitForLog(QStringLiteral("state idle -> selectingRegion")),
                 qPrintable(started.log()));
    }

    void withoutATrayItSaysHowToRecord()
    {
        Vantalo vantalo;
        QVERIFY(vantalo.waitForLog(QStringLiteral("launched")));
        QTRY_VERIFY_WITH_TIMEOUT(!vantalo.out().isEmpty(), 6000);
        QCOMPARE(vantalo.out(),
                 QStringLiteral("No system tray found: Vantalo keeps running; record with the shortcut "
                                "Ctrl+G or the command \u201Cvantalo --toggle\u201D\n"));
        QCOMPARE(vantalo.process().state(), QProcess::Running);
    }

    void quitFromTheTrayMenu()
    {
        QProcess trayer;
        trayer.start(QStringLiteral("trayer"),
                     {QStringLiteral("--edge"), QStringLiteral("top"), QStringLiteral("--align"),
                      QStringLiteral("right"), QStringLiteral("--widthtype"), QStringLiteral("request"),
                      QStringLiteral("--height"), QStringLiteral("32")});
        QVERIFY(trayer.waitForStarted());
        Vantalo vantalo;
        QVERIFY(vantalo.waitForLog(QStringLiteral("launched")));
        QTest::qWait(3500);
        QVERIFY2(vantalo.out().isEmpty(), qPrintable(vantalo.out())); // the tray was found

        // Right-click the docked icon (trayer's largest window), then choose the last item,
        // "Quit Vantalo", from the keyboard.
        QRect panel;
        for (const QString& window :
             xdotool({QStringLiteral("search"), QStringLiteral("--class"), QStringLiteral("trayer")})
                 .split(QLatin1Char('\n'))) {
            const QString geometry =
                xdotool({QStringLiteral("getwindowgeometry"), QStringLiteral("--shell"), window});
            const auto value = [&](const char* key) {
                return geometry.section(QString::fromLatin1(key) + QLatin1Char('='), 1)
                    .section(QLatin1Char('\n'), 0, 0)
                    .toInt();
            };
            const QRect rect(value("X"), value("Y"), value("WIDTH"), value("HEIGHT"));
            if (rect.width() * rect.height() > panel.width() * panel.height()) {
                panel = rect;
            }
        }
        QVERIFY(panel.width() > 10);
        const int x = panel.right() - 12;
        const int y = panel.center().y();
        xdotool({QStringLiteral("mousemove"), QString::number(x), QString::number(y), QStringLiteral("click"),
                 QStringLiteral("3")});
        QTest::qWait(700);
        xdotool({QStringLiteral("key"), QStringLiteral("Up"), QStringLiteral("Return")});
        QVERIFY2(vantalo.process().waitForFinished(5000), qPrintable(vantalo.log()));
        QCOMPARE(vantalo.process().exitStatus(), QProcess::NormalExit);
        QCOMPARE(vantalo.process().exitCode(), 0);
        trayer.kill();
        trayer.waitForFinished();
    }

    void aShortcutHeldByAnotherClientRaisesTheAlert()
    {
        // This test holds Ctrl+G on the root window first, as another application would.
        const std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> connection(
            xcb_connect(nullptr, nullptr), &xcb_disconnect);
        QVERIFY(!xcb_connection_has_error(connection.get()));
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection.get())).data->root;
        const std::unique_ptr<xcb_key_symbols_t, decltype(&xcb_key_symbols_free)> symbols(
            xcb_key_symbols_alloc(connection.get()), &xcb_key_symbols_free);
        const std::unique_ptr<xcb_keycode_t, decltype(&std::free)> g(
            xcb_key_symbols_get_keycode(symbols.get(), 'g'), &std::free);
        QVERIFY(g);
        const std::unique_ptr<xcb_generic_error_t, decltype(&std::free)> error(
            xcb_request_check(connection.get(),
                              xcb_grab_key_checked(connection.get(), 1, root, XCB_MOD_MASK_CONTROL,
                                                   g.get()[0], XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC)),
            &std::free);
        QVERIFY(!error);

        Vantalo vantalo;
        QVERIFY(vantalo.waitForLog(QStringLiteral("launched")));
        QTRY_VERIFY(vantalo.out().contains(
            QStringLiteral("Failed to register global shortcut — another application may be using it\n")));
        QTRY_VERIFY_WITH_TIMEOUT(!xdotool({QStringLiteral("search"), QStringLiteral("--name"),
                                           QStringLiteral("^Shortcut Unavailable$")})
                                      .isEmpty(),
                                 5000);
        QCOMPARE(vantalo.out().count(QStringLiteral("Failed to register")), 1);
    }
};

QTEST_GUILESS_MAIN(TestApplication)
#include "tst_application.moc"
