#include "OutputPreferences.h"

#include "SettingsKeys.h"
#include "UserDefaults.h"

namespace vantalo {

StoredOutputPreferences readOutputPreferences(const UserDefaults& defaults)
{
    StoredOutputPreferences stored;
    OutputPreferences& out = stored.preferences;
    const auto read = [&](const QString& key, auto usable, auto& field) {
        const auto value = defaults.objectForKey(key);
        if (!value) {
            return;
        }
        const auto number = UserDefaults::integerValue(*value);
        if (number && usable(*number)) {
            field = static_cast<std::remove_reference_t<decltype(field)>>(*number);
            return;
        }
        stored.problems.append(QStringLiteral("The setting %1 (%2) cannot be used; %3 is used instead")
                                   .arg(key, value->toString())
                                   .arg(field));
    };
    read(
        SettingsKey::outputScale, [](qint64 v) { return outputScales.contains(int(v)); }, out.scale);
    read(
        SettingsKey::outputFrameRate, [](qint64 v) { return outputFrameRates.contains(int(v)); },
        out.frameRate);
    read(
        SettingsKey::fitUnderBytes, [](qint64 v) { return v == 0 || v >= minimumFitBudget; },
        out.fitUnderBytes);
    read(
        SettingsKey::countdownSeconds, [](qint64 v) { return countdownChoices.contains(int(v)); },
        out.countdownSeconds);
    read(
        SettingsKey::showClicks, [](qint64 v) { return v == 0 || v == 1; }, out.showClicks);
    read(
        SettingsKey::showKeys, [](qint64 v) { return showKeysChoices.contains(int(v)); }, out.showKeys);
    return stored;
}

void storeOutputPreferences(UserDefaults& defaults, const OutputPreferences& preferences)
{
    defaults.setInteger(SettingsKey::outputScale, preferences.scale);
    defaults.setInteger(SettingsKey::outputFrameRate, preferences.frameRate);
    defaults.setInteger(SettingsKey::fitUnderBytes, preferences.fitUnderBytes);
    defaults.setInteger(SettingsKey::countdownSeconds, preferences.countdownSeconds);
    defaults.setInteger(SettingsKey::showClicks, preferences.showClicks);
    defaults.setInteger(SettingsKey::showKeys, preferences.showKeys);
}

} // namespace vantalo
