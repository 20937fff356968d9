#include "X11InputSource.h"

#include "XcbReply.h"

#include <QLoggingCategory>

#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>
#include <xcb/xinput.h>
#include <xkbcommon/xkbcommon.h>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <set>

Q_LOGGING_CATEGORY(lcInput, "vantalo.input", QtInfoMsg)

namespace vantalo {

namespace {

// The modifiers a label names, by keysym.
QString modifierName(xcb_keysym_t keysym)
{
    switch (keysym) {
    case XKB_KEY_Control_L:
    case XKB_KEY_Control_R:
        return QStringLiteral("Ctrl");
    case XKB_KEY_Alt_L:
    case XKB_KEY_Alt_R:
    case XKB_KEY_Meta_L:
    case XKB_KEY_Meta_R:
    case XKB_KEY_ISO_Level3_Shift:
        return QStringLiteral("Alt");
    case XKB_KEY_Shift_L:
    case XKB_KEY_Shift_R:
        return QStringLiteral("Shift");
    case XKB_KEY_Super_L:
    case XKB_KEY_Super_R:
        return QStringLiteral("Super");
    default:
        return {};
    }
}

// The name of a key that types nothing; empty for one that types.
QString specialName(xcb_keysym_t keysym)
{
    if (keysym >= XKB_KEY_F1 && keysym <= XKB_KEY_F24) {
        return QStringLiteral("F%1").arg(keysym - XKB_KEY_F1 + 1);
    }
    switch (keysym) {
    case XKB_KEY_Return:
    case XKB_KEY_KP_Enter:
        return QStringLiteral("Enter");
    case XKB_KEY_Tab:
    case XKB_KEY_ISO_Left_Tab:
        return QStringLiteral("Tab");
    case XKB_KEY_Escape:
        return QStringLiteral("Esc");
    case XKB_KEY_BackSpace:
        return QStringLiteral("Backspace");
    case XKB_KEY_Delete:
        return QStringLiteral("Delete");
    case XKB_KEY_Insert:
        return QStringLiteral("Insert");
    case XKB_KEY_Home:
        return QStringLiteral("Home");
    case XKB_KEY_End:
        return QStringLiteral("End");
    case XKB_KEY_Prior:
        return QStringLiteral("Page Up");
    case XKB_KEY_Next:
        return QStringLiteral("Page Down");
    case XKB_KEY_Left:
        return QStringLiteral("\u2190");
    case XKB_KEY_Up:
        return QStringLiteral("\u2191");
    case XKB_KEY_Right:
        return QStringLiteral("\u2192");
    case XKB_KEY_Down:
        return QStringLiteral("\u2193");
    default:
        return {};
    }
}

QString typedName(xcb_keysym_t keysym)
{
    if (keysym == XKB_KEY_space) {
        return QStringLiteral("Space");
    }
    char text[16] = {};
    if (xkb_keysym_to_utf8(keysym, text, sizeof text) > 1 && static_cast<unsigned char>(text[0]) >= 0x20) {
        return QString::fromUtf8(text);
    }
    char name[64] = {};
    return xkb_keysym_get_name(keysym, name, sizeof name) > 0 ? QString::fromLatin1(name) : QString();
}

struct Watch
{
    xcb_connection_t* connection = nullptr;
    xcb_window_t root = 0;
    quint8 opcode = 0;
};

// Connects and asks for the raw presses on the root window; nothing where the server has no
// XInput 2.2.
std::optional<Watch> watch(const QByteArray& displayName, InputShown shown)
{
    Watch w;
    w.connection = xcb_connect(displayName.isEmpty() ? nullptr : displayName.constData(), nullptr);
    if (xcb_connection_has_error(w.connection)) {
        xcb_disconnect(w.connection);
        return std::nullopt;
    }
    const xcb_query_extension_reply_t* extension = xcb_get_extension_data(w.connection, &xcb_input_id);
    const auto version = xcbReply<xcb_input_xi_query_version_reply_t>(
        extension && extension->present
            ? xcb_input_xi_query_version_reply(w.connection, xcb_input_xi_query_version(w.connection, 2, 2),
                                               nullptr)
            : nullptr);
    if (!version || version->major_version < 2 ||
        (version->major_version == 2 && version->minor_version < 2)) {
        xcb_disconnect(w.connection);
        return std::nullopt;
    }
    w.opcode = extension->major_opcode;
    w.root = xcb_setup_roots_iterator(xcb_get_setup(w.connection)).data->root;
    struct
    {
        xcb_input_event_mask_t head;
        uint32_t mask;
    } mask{};
    mask.head.deviceid = XCB_INPUT_DEVICE_ALL_MASTER;
    mask.head.mask_len = 1;
    if (shown.clicks) {
        mask.mask |= XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_PRESS;
    }
    if (shown.keys != KeysShown::none) {
        mask.mask |= XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS | XCB_INPUT_XI_EVENT_MASK_RAW_KEY_RELEASE;
    }
    xcb_input_xi_select_events(w.connection, w.root, 1, &mask.head);
    xcb_flush(w.connection);
    return w;
}

} // namespace

X11InputSource::X11InputSource(QByteArray displayName) : m_displayName(std::move(displayName)) {}

X11InputSource::~X11InputSource()
{
    stop();
}

bool X11InputSource::start(InputShown shown, std::shared_ptr<InputEventLog> log)
{
    stop();
    if (!shown.any()) {
        return true;
    }
    const std::optional<Watch> w = watch(m_displayName, shown);
    if (!w) {
        qCWarning(lcInput, "no XInput 2.2 on this X server: clicks and keys are not shown");
        return false;
    }
    m_wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    m_thread = std::jthread([w = *w, wake = m_wake, log = std::move(log)] {
        xcb_key_symbols_t* symbols = xcb_key_symbols_alloc(w.connection);
        std::set<QString> held; // modifiers down, by name
        std::multiset<xcb_keycode_t> heldCodes;
        pollfd fds[2] = {{xcb_get_file_descriptor(w.connection), POLLIN, 0}, {wake, POLLIN, 0}};
        for (;;) {
            while (xcb_generic_event_t* raw = xcb_poll_for_event(w.connection)) {
                const std::unique_ptr<xcb_generic_event_t, decltype(&std::free)> owned(raw, &std::free);
                if ((raw->response_type & 0x7f) != XCB_GE_GENERIC) {
                    continue;
                }
                const auto* generic = reinterpret_cast<const xcb_ge_generic_event_t*>(raw);
                if (generic->extension != w.opcode) {
                    continue;
                }
                InputEvent event;
                event.at = InputEvent::Clock::now();
                if (generic->event_type == XCB_INPUT_RAW_BUTTON_PRESS) {
                    const auto* press = reinterpret_cast<const xcb_input_raw_button_press_event_t*>(raw);
                    if (press->detail < 1 || press->detail > 3) {
                        continue; // the wheel's steps
                    }
                    const auto pointer = xcbReply<xcb_query_pointer_reply_t>(xcb_query_pointer_reply(
                        w.connection, xcb_query_pointer(w.connection, w.root), nullptr));
                    if (!pointer) {
                        continue;
                    }
                    event.kind = InputEvent::Kind::click;
                    event.button = int(press->detail);
                    event.position = QPoint(pointer->root_x, pointer->root_y);
                    log->add(event);
                    continue;
                }
                if (generic->event_type != XCB_INPUT_RAW_KEY_PRESS &&
                    generic->event_type != XCB_INPUT_RAW_KEY_RELEASE) {
                    continue;
                }
                const auto* key = reinterpret_cast<const xcb_input_raw_key_press_event_t*>(raw);
                const auto code = static_cast<xcb_keycode_t>(key->detail);
                const xcb_keysym_t base = xcb_key_symbols_get_keysym(symbols, code, 0);
                const QString modifier = modifierName(base);
                if (!modifier.isEmpty()) {
                    if (generic->event_type == XCB_INPUT_RAW_KEY_PRESS) {
                        held.insert(modifier);
                        heldCodes.insert(code);
                    } else if (auto it = heldCodes.find(code); it != heldCodes.end()) {
                        heldCodes.erase(it);
                        // Down while another key of the same modifier is.
                        bool still = false;
                        for (const xcb_keycode_t other : heldCodes) {
                            still = still ||
                                    modifierName(xcb_key_symbols_get_keysym(symbols, other, 0)) == modifier;
                        }
                        if (!still) {
                            held.erase(modifier);
                        }
                    }
                    continue;
                }
                if (generic->event_type != XCB_INPUT_RAW_KEY_PRESS) {
                    continue;
                }
                const bool shift = held.contains(QStringLiteral("Shift"));
                const xcb_keysym_t keysym = shift ? xcb_key_symbols_get_keysym(symbols, code, 1) : base;
                event.kind = InputEvent::Kind::key;
                event.special = !specialName(base).isEmpty();
                event.key = event.special ? specialName(base) : typedName(keysym ? keysym : base);
                for (const char* name : {"Ctrl", "Alt", "Shift", "Super"}) {
                    if (held.contains(QString::fromLatin1(name))) {
                        event.modifiers << QString::fromLatin1(name);
                    }
                }
                if (!event.key.isEmpty()) {
                    log->add(event);
                }
            }
            if (xcb_connection_has_error(w.connection)) {
                break;
            }
            if (poll(fds, 2, -1) < 0 && errno != EINTR) {
                break;
            }
            if (fds[1].revents & POLLIN) {
                break;
            }
        }
        xcb_key_symbols_free(symbols);
        xcb_disconnect(w.connection);
    });
    return true;
}

void X11InputSource::stop()
{
    if (m_thread.joinable()) {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = ::write(m_wake, &one, sizeof one);
        m_thread.join();
    }
    if (m_wake >= 0) {
        ::close(m_wake);
        m_wake = -1;
    }
}

} // namespace vantalo
