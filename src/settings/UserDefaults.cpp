#include "UserDefaults.h"

#include <QRegularExpression>

namespace vantalo {

UserDefaults::UserDefaults()
    : m_settings(std::make_unique<QSettings>(QStringLiteral("Vantalo"), QStringLiteral("Vantalo")))
{
}

UserDefaults::UserDefaults(const QString& iniFilePath)
    : m_settings(std::make_unique<QSettings>(iniFilePath, QSettings::IniFormat))
{
}

UserDefaults::~UserDefaults() = default;

void UserDefaults::registerDefaults(const QVariantMap& defaults)
{
    for (auto it = defaults.cbegin(); it != defaults.cend(); ++it) {
        m_registered.insert(it.key(), it.value());
    }
}

std::optional<QVariant> UserDefaults::objectForKey(const QString& key) const
{
    if (m_settings->contains(key)) {
        return m_settings->value(key);
    }
    if (const auto it = m_registered.constFind(key); it != m_registered.cend()) {
        return it.value();
    }
    return std::nullopt;
}

std::optional<qint64> UserDefaults::integerValue(const QVariant& value)
{
    switch (value.typeId()) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::UShort:
        return value.toLongLong();
    case QMetaType::ULong:
    case QMetaType::ULongLong: {
        bool ok = false;
        const qint64 v = value.toLongLong(&ok);
        return ok ? std::optional<qint64>(v) : std::nullopt;
    }
    case QMetaType::QString:
    case QMetaType::QByteArray: {
        static const QRegularExpression wholeDecimal(QStringLiteral("^[+-]?[0-9]+$"));
        const QString text = value.toString();
        if (!wholeDecimal.match(text).hasMatch()) {
            return std::nullopt;
        }
        bool ok = false;
        const qint64 v = text.toLongLong(&ok);
        return ok ? std::optional<qint64>(v) : std::nullopt;
    }
    default:
        return std::nullopt;
    }
}

std::optional<QString> UserDefaults::stringForKey(const QString& key) const
{
    const auto object = objectForKey(key);
    if (!object) {
        return std::nullopt;
    }
    // An INI file stores an empty string as an empty value, which QSettings reads back as an
    // invalid or empty variant: either way the key is present and the answer is "".
    if (!object->isValid() || object->isNull()) {
        return QString();
    }
    if (object->canConvert<QString>()) {
        return object->toString();
    }
    return std::nullopt;
}

void UserDefaults::setInteger(const QString& key, qint64 value)
{
    m_settings->setValue(key, value);
}

void UserDefaults::setString(const QString& key, const QString& value)
{
    m_settings->setValue(key, value);
}

void UserDefaults::sync()
{
    m_settings->sync();
}

} // namespace vantalo
