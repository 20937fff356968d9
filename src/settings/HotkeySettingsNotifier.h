#pragma once

#include <QObject>
#include <QString>

namespace vantalo {

// Tells the running application that a new recording shortcut has been stored. The preferences
// post it; the application delegate observes it and registers the shortcut again. One instance is
// made by the application and handed to both.
class HotkeySettingsNotifier : public QObject
{
    Q_OBJECT
public:
    static inline const QString name = QStringLiteral("com.vantalo.hotkeySettingsChanged");

    using QObject::QObject;

    void post() { Q_EMIT hotkeySettingsChanged(); }

Q_SIGNALS:
    void hotkeySettingsChanged();
};

} // namespace vantalo
