#include "PortalShortcut.h"

#include "hotkey/KeyCodes.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QTimer>

#include <xkbcommon/xkbcommon.h>

namespace vantalo {

namespace {

const QString kService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kInterface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");
// The same session name at every launch: a desktop that keys its shortcut settings by it keeps
// the user's choice of keys.
const QString kSessionToken = QStringLiteral("vantalo");

// One entry of the portal's shortcut lists: a(sa{sv}).
struct ShortcutEntry
{
    QString id;
    QVariantMap properties;
};

QDBusArgument& operator<<(QDBusArgument& argument, const ShortcutEntry& entry)
{
    argument.beginStructure();
    argument << entry.id << entry.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, ShortcutEntry& entry)
{
    argument.beginStructure();
    argument >> entry.id >> entry.properties;
    argument.endStructure();
    return argument;
}

} // namespace

} // namespace vantalo

Q_DECLARE_METATYPE(vantalo::ShortcutEntry)

namespace vantalo {

namespace {

QList<ShortcutEntry> readEntries(const QVariant& value)
{
    QList<ShortcutEntry> entries;
    if (value.canConvert<QDBusArgument>()) {
        value.value<QDBusArgument>() >> entries;
    }
    return entries;
}

// The keys the desktop reports for Vantalo's shortcut in an answer's shortcut list, if it is there.
std::optional<QString> boundTrigger(const QVariantMap& answer)
{
    for (const ShortcutEntry& entry : readEntries(answer.value(QStringLiteral("shortcuts")))) {
        if (entry.id == PortalShortcut::shortcutId) {
            return entry.properties.value(QStringLiteral("trigger_description")).toString();
        }
    }
    return std::nullopt;
}

// What Vantalo asks the desktop for: its one shortcut, with the keys it would like.
QList<ShortcutEntry> proposed(const Shortcut& shortcut)
{
    return {{PortalShortcut::shortcutId,
             {{QStringLiteral("description"), QStringLiteral("Record a GIF")},
              {QStringLiteral("preferred_trigger"), PortalShortcut::preferredTrigger(shortcut)}}}};
}

} // namespace

PortalShortcut::PortalShortcut(LinePrinter print, QDBusConnection bus, PortalTimeouts timeouts)
    : m_print(std::move(print)), m_bus(std::move(bus)), m_timeouts(timeouts)
{
    qDBusRegisterMetaType<ShortcutEntry>();
    qDBusRegisterMetaType<QList<ShortcutEntry>>();
    // QtDBus finds the slot's parameter types by name, so each must be known by then; nothing
    // else may have used an object path yet when the shortcut is the first thing registered.
    qRegisterMetaType<QDBusObjectPath>();
    m_bus.connect(kService, kPath, kInterface, QStringLiteral("Activated"), this,
                  SLOT(onActivated(QDBusObjectPath, QString, qulonglong, QVariantMap)));
}

PortalShortcut::~PortalShortcut()
{
    closeSession();
}

QString PortalShortcut::preferredTrigger(const Shortcut& shortcut)
{
    QString trigger;
    const std::pair<quint64, const char*> modifiers[] = {{ModifierFlag::control, "LOGO+"},
                                                         {ModifierFlag::option, "ALT+"},
                                                         {ModifierFlag::shift, "SHIFT+"},
                                                         {ModifierFlag::command, "CTRL+"}};
    for (const auto& [flag, name] : modifiers) {
        if (shortcut.modifiers & flag) {
            trigger += QLatin1String(name);
        }
    }
    const KeyInfo* key = keyInfo(shortcut.keyCode);
    char name[64] = {};
    if (!key || xkb_keysym_get_name(key->keysym, name, sizeof name) <= 0) {
        return {};
    }
    return trigger + QLatin1String(name);
}

std::optional<QString> PortalShortcut::desktopTrigger() const
{
    if (m_availability == Availability::missing || m_refused) {
        return QString(); // no keys at all
    }
    if (!m_trigger.isEmpty()) {
        return m_trigger;
    }
    return std::nullopt;
}

void PortalShortcut::registerHotkey(const Shortcut& shortcut, std::function<void()> handler)
{
    const int generation = ++m_generation;
    m_shortcut = shortcut;
    m_handler = std::move(handler);
    m_trigger.clear();
    m_refused = false;
    // One bind per session: a changed shortcut takes a new session.
    closeSession();
    if (m_availability == Availability::missing) {
        return; // said once already
    }
    if (m_availability == Availability::present) {
        createSession(generation);
        return;
    }
    QDBusMessage get = QDBusMessage::createMethodCall(
        kService, kPath, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    get.setArguments({kInterface, QStringLiteral("version")});
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(get, int(m_timeouts.request.count())), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, generation](QDBusPendingCallWatcher* call) {
                call->deleteLater();
                if (m_availability != Availability::unknown) {
                    // A registration made while the first question was out: it asked again.
                    if (m_availability == Availability::present && generation == m_generation) {
                        createSession(generation);
                    }
                    return;
                }
                if (call->isError()) {
                    m_availability = Availability::missing;
                    m_print(QStringLiteral(
                        "This desktop offers applications no global shortcuts: bind the command "
                        "\u201Cvantalo --toggle\u201D to a key in your desktop's keyboard "
                        "settings"));
                    return;
                }
                m_availability = Availability::present;
                if (generation == m_generation) {
                    createSession(generation);
                }
            });
}

void PortalShortcut::ask(int generation, const QString& method, const QVariantList& arguments,
                         const QVariantMap& options, std::chrono::milliseconds timeout,
                         std::function<void(const QVariantMap&)> answered)
{
    portalRequest(
        Portal{m_bus, kInterface, QStringLiteral("the shortcut portal")}, method, arguments, options, timeout,
        QStringLiteral("the desktop did not allow a global shortcut"), this,
        [this, generation, answered = std::move(answered)](std::expected<QVariantMap, Failure> result) {
            if (generation != m_generation) {
                // A registration since replaced: its answers go, and a session it made too.
                if (result) {
                    close(result->value(QStringLiteral("session_handle")).toString());
                }
                return;
            }
            if (!result) {
                fail(result.error().description);
                return;
            }
            answered(*result);
        });
}

void PortalShortcut::createSession(int generation)
{
    // The shortcut goes into CreateSession too: some desktops register only what comes there.
    ask(generation, QStringLiteral("CreateSession"), {},
        {{QStringLiteral("session_handle_token"), kSessionToken},
         {QStringLiteral("shortcuts"), QVariant::fromValue(proposed(m_shortcut))}},
        m_timeouts.request, [this, generation](const QVariantMap& created) {
            m_session = created.value(QStringLiteral("session_handle")).toString();
            listShortcuts(generation);
        });
}

void PortalShortcut::listShortcuts(int generation)
{
    ask(generation, QStringLiteral("ListShortcuts"), {QVariant::fromValue(QDBusObjectPath(m_session))}, {},
        m_timeouts.request, [this, generation](const QVariantMap& listed) {
            if (const auto trigger = boundTrigger(listed)) {
                m_trigger = *trigger;
            } else {
                bindShortcuts(generation);
            }
        });
}

void PortalShortcut::bindShortcuts(int generation)
{
    ask(generation, QStringLiteral("BindShortcuts"),
        {QVariant::fromValue(QDBusObjectPath(m_session)), QVariant::fromValue(proposed(m_shortcut)),
         QString()},
        {}, m_timeouts.dialog, [this](const QVariantMap& result) {
            if (const auto trigger = boundTrigger(result)) {
                m_trigger = *trigger;
            } else {
                fail(QStringLiteral("the desktop did not bind it"));
            }
        });
}

void PortalShortcut::fail(const QString& why)
{
    m_refused = true;
    m_print(QStringLiteral("Failed to register global shortcut — ") + why);
    if (onPermissionDenied) {
        onPermissionDenied();
    }
}

void PortalShortcut::close(const QString& session)
{
    if (!session.isEmpty()) {
        m_bus.call(QDBusMessage::createMethodCall(kService, session,
                                                  QStringLiteral("org.freedesktop.portal.Session"),
                                                  QStringLiteral("Close")),
                   QDBus::NoBlock);
    }
}

void PortalShortcut::closeSession()
{
    close(std::exchange(m_session, QString()));
}

void PortalShortcut::unregisterHotkey()
{
    ++m_generation;
    m_handler = nullptr;
    m_trigger.clear();
    closeSession();
}

void PortalShortcut::onActivated(const QDBusObjectPath& session, const QString& id, qulonglong,
                                 const QVariantMap&)
{
    if (m_session.isEmpty() || session.path() != m_session || id != shortcutId) {
        return;
    }
    QTimer::singleShot(0, this, [this] {
        if (m_handler) {
            m_handler();
        }
    });
}

} // namespace vantalo
