// The global shortcut as a passive grab on a real X server (tests/with-xvfb.sh), driven with
// xdotool as a user's keyboard would. The shortcut with Caps Lock or Num Lock on, and one recorded
// anew taking over from the old one: the end-to-end flow (tests/e2e/flow.py).
#include "platform/x11/X11HotkeyManager.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QProcess>
#include <QTest>
#include <QWidget>

#include <xcb/xcb_keysyms.h>

#include <cstdlib>
#include <memory>

using namespace vantalo;

namespace {

// A focused window that notes every key it receives.
class KeyWindow : public QWidget
{
public:
    QStringList keys;

protected:
    void keyPressEvent(QKeyEvent* event) override
    {
        // Not the modifiers' and locks' own presses (Shift to Scroll Lock).
        if (event->key() < Qt::Key_Shift || event->key() > Qt::Key_ScrollLock) {
            keys << QKeySequence(event->modifiers() | event->key()).toString();
        }
    }
};

void xdotool(const QStringList& args)
{
    QProcess::execute(QStringLiteral("xdotool"), args);
}

void press(const QString& keys)
{
    xdotool({QStringLiteral("key"), keys});
}

} // namespace

class TestX11Hotkey : public QObject
{
    Q_OBJECT

    xcb_connection_t* m_connection = nullptr;
    xcb_window_t m_root = 0;
    QStringList m_printed;
    std::unique_ptr<KeyWindow> m_window;

    std::unique_ptr<X11HotkeyManager> makeManager()
    {
        return std::make_unique<X11HotkeyManager>(m_connection, m_root,
                                                  [this](const QString& line) { m_printed << line; });
    }

private Q_SLOTS:
    void initTestCase()
    {
        auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
        QVERIFY(x11);
        m_connection = x11->connection();
        m_root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
        m_window = std::make_unique<KeyWindow>();
        m_window->setGeometry(100, 100, 300, 200);
        m_window->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    }
    void init()
    {
        m_printed.clear();
        m_window->keys.clear();
        xdotool(
            {QStringLiteral("windowfocus"), QStringLiteral("--sync"), QString::number(m_window->winId())});
        xdotool({QStringLiteral("mousemove"), QStringLiteral("200"), QStringLiteral("200")});
    }

    void theShortcutIsTakenAndNothingElse()
    {
        auto manager = makeManager();
        int presses = 0;
        manager->registerHotkey(Shortcut{5, 0x100000}, [&presses] { ++presses; });
        QVERIFY(m_printed.isEmpty());
        press(QStringLiteral("ctrl+g"));
        QTRY_COMPARE(presses, 1);
        // It did not reach the window in front; other keys do, and are not taken.
        press(QStringLiteral("ctrl+shift+g"));
        press(QStringLiteral("g"));
        QTRY_COMPARE(m_window->keys, (QStringList{QStringLiteral("Ctrl+Shift+G"), QStringLiteral("G")}));
        QCOMPARE(presses, 1);
    }

    void aShortcutHeldElsewhereIsRefusedOnce()
    {
        // Another client holds Ctrl+G (with Num Lock, as a careful application would).
        xcb_connection_t* other = xcb_connect(nullptr, nullptr);
        QVERIFY(!xcb_connection_has_error(other));
        xcb_key_symbols_t* symbols = xcb_key_symbols_alloc(other);
        std::unique_ptr<xcb_keycode_t, decltype(&std::free)> g(xcb_key_symbols_get_keycode(symbols, 'g'),
                                                               &std::free);
        xcb_key_symbols_free(symbols);
        std::unique_ptr<xcb_generic_error_t, decltype(&std::free)> error(
            xcb_request_check(other,
                              xcb_grab_key_checked(other, 1, m_root, XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_2,
                                                   g.get()[0], XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC)),
            &std::free);
        QVERIFY(!error);

        auto manager = makeManager();
        int denied = 0;
        manager->onPermissionDenied = [&denied] { ++denied; };
        manager->registerHotkey(Shortcut{5, 0x100000}, [] {});
        QCOMPARE(denied, 1);
        QCOMPARE(m_printed, QStringList{QStringLiteral(
                                "Failed to register global shortcut — another application may be using it")});
        xcb_disconnect(other);

        // The grabs that did succeed were let go: with the other client gone, Ctrl+G reaches the window.
        press(QStringLiteral("ctrl+g"));
        QTRY_COMPARE(m_window->keys.size(), 1);

        // The next registration tries again, and now succeeds.
        int presses = 0;
        manager->registerHotkey(Shortcut{5, 0x100000}, [&presses] { ++presses; });
        QCOMPARE(denied, 1);
        press(QStringLiteral("ctrl+g"));
        QTRY_COMPARE(presses, 1);
    }
};

QTEST_MAIN(TestX11Hotkey)
#include "tst_x11hotkey.moc"
