#include "LastRegion.h"

#include "settings/SettingsKeys.h"
#include "settings/UserDefaults.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

namespace vantalo {

namespace {
QJsonArray rectJson(const QRectF& r)
{
    return QJsonArray{r.x(), r.y(), r.width(), r.height()};
}

std::optional<QRectF> rectFrom(const QJsonValue& value)
{
    const QJsonArray a = value.toArray();
    if (a.size() != 4 || !std::ranges::all_of(a, [](const QJsonValue& v) { return v.isDouble(); })) {
        return std::nullopt;
    }
    const QRectF r(a[0].toDouble(), a[1].toDouble(), a[2].toDouble(), a[3].toDouble());
    return r.isValid() ? std::optional(r) : std::nullopt;
}
} // namespace

void storeLastRegion(UserDefaults& defaults, const LastRegion& last)
{
    const QJsonObject json{{QStringLiteral("region"), rectJson(last.region)},
                           {QStringLiteral("display"), last.display.name},
                           {QStringLiteral("displayFrame"), rectJson(last.display.frame)}};
    defaults.setString(SettingsKey::lastRegion,
                       QString::fromUtf8(QJsonDocument(json).toJson(QJsonDocument::Compact)));
}

std::optional<LastRegion> recallLastRegion(UserDefaults& defaults, const QList<DisplayInfo>& displays)
{
    const QString stored = defaults.stringForKey(SettingsKey::lastRegion).value_or(QString());
    if (stored.isEmpty()) {
        return std::nullopt;
    }
    const QJsonObject json = QJsonDocument::fromJson(stored.toUtf8()).object();
    const std::optional<QRectF> region = rectFrom(json.value(QStringLiteral("region")));
    const std::optional<QRectF> frame = rectFrom(json.value(QStringLiteral("displayFrame")));
    const DisplayInfo display{json.value(QStringLiteral("display")).toString(), frame.value_or(QRectF())};
    if (region && frame && displays.contains(display) && frame->intersects(*region)) {
        return LastRegion{*region, display};
    }
    // Its monitor is gone or changed (or the value is not ours): it is not offered again.
    defaults.setString(SettingsKey::lastRegion, QString());
    return std::nullopt;
}

} // namespace vantalo
