#pragma once

#include "PortalRequest.h"
#include "common/Console.h"
#include "hotkey/HotkeyRegistrar.h"

#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QObject>

namespace vantalo {

// The shortcut through the desktop's GlobalShortcuts portal (org.freedesktop.portal.
// GlobalShortcuts), where a Wayland desktop lets applications have one. The desktop decides the
// keys: Vantalo proposes its shortcut, and what the desktop bound is what the menu shows.
// A registration makes a new session with the shortcut already in CreateSession (some desktops
// register only those), lists what the session has and binds only what is missing. Where the
// desktop has no such portal, it says so once and points to `vantalo --toggle`.
class PortalShortcut final : public QObject, public HotkeyRegistrar
{
    Q_OBJECT
public:
    static inline const QString shortcutId = QStringLiteral("toggle-recording");

    // The dialog's time limit is BindShortcuts', where the desktop may ask the user for the keys.
    explicit PortalShortcut(LinePrinter print, QDBusConnection bus = QDBusConnection::sessionBus(),
                            PortalTimeouts timeouts = {});
    ~PortalShortcut() override;

    void registerHotkey(const Shortcut& shortcut, std::function<void()> handler) override;
    void unregisterHotkey() override;
    std::optional<QString> desktopTrigger() const override;

    // The shortcut in the portal's words (the XDG shortcut syntax): "CTRL+g", "SHIFT+CTRL+5".
    static QString preferredTrigger(const Shortcut& shortcut);

private Q_SLOTS:
    void onActivated(const QDBusObjectPath& session, const QString& id, qulonglong timestamp,
                     const QVariantMap& options);

private:
    enum class Availability
    {
        unknown,
        present,
        missing,
    };
    // A request for registration `generation`: `answered` gets the results while that
    // registration is in force; a failure is reported as the registration's.
    void ask(int generation, const QString& method, const QVariantList& arguments, const QVariantMap& options,
             std::chrono::milliseconds timeout, std::function<void(const QVariantMap&)> answered);
    void createSession(int generation);
    void listShortcuts(int generation);
    void bindShortcuts(int generation);
    void fail(const QString& why);
    void close(const QString& session);
    void closeSession();

    LinePrinter m_print;
    QDBusConnection m_bus;
    PortalTimeouts m_timeouts;
    Shortcut m_shortcut;
    std::function<void()> m_handler;
    Availability m_availability = Availability::unknown;
    QString m_session;
    QString m_trigger;
    bool m_refused = false; // the last registration failed
    // Each registration counts up; answers to an earlier one are dropped.
    int m_generation = 0;
};

} // namespace vantalo
