#pragma once

#include <QSettings>
#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <memory>
#include <optional>

namespace vantalo {

// The user's settings: a key-value store over QSettings with defaults registered at launch.
// Registered defaults answer reads of keys the user never stored, and are themselves never
// written. On Linux QSettings keeps an INI file whose values come back as text, so a value counts
// as an integer when it is an integer or a text holding a whole decimal integer.
class UserDefaults
{
public:
    // The standard store: organisation and application "Vantalo".
    UserDefaults();
    // A store kept in one INI file (tests, tools).
    explicit UserDefaults(const QString& iniFilePath);
    ~UserDefaults();

    UserDefaults(const UserDefaults&) = delete;
    UserDefaults& operator=(const UserDefaults&) = delete;

    void registerDefaults(const QVariantMap& defaults);

    // The stored value, else the registered default, else nothing.
    std::optional<QVariant> objectForKey(const QString& key) const;
    // The value as text, or nothing when there is none (a stored empty string is kept).
    std::optional<QString> stringForKey(const QString& key) const;

    void setInteger(const QString& key, qint64 value);
    void setString(const QString& key, const QString& value);

    void sync();

    static std::optional<qint64> integerValue(const QVariant& value);

private:
    std::unique_ptr<QSettings> m_settings;
    QVariantMap m_registered;
};

} // namespace vantalo
