#pragma once

#include <QList>
#include <QString>
#include <QStringList>

namespace vantalo {

class UserDefaults;

// How recordings are written, from the settings. The defaults are what Vantalo always did.
struct OutputPreferences
{
    int scale = 2;            // 2: twice the region's points; 1: a pixel a point
    int frameRate = 15;       // 15, 10 or 5
    qint64 fitUnderBytes = 0; // 0: off; else every recording is fitted under this many bytes
    int countdownSeconds = 0; // counted down after Start before the recording begins; 0: none
    int showClicks = 0;       // 1: a ring round each click in the frames
    int showKeys = 0;         // 1: shortcuts and special keys in the frames; 2: all keys

    friend bool operator==(const OutputPreferences&, const OutputPreferences&) = default;
};

// The choices Preferences offers for each.
inline const QList<int> outputScales{2, 1};
inline const QList<int> outputFrameRates{15, 10, 5};
inline const QList<int> countdownChoices{0, 3, 5};
inline const QList<int> showKeysChoices{0, 1, 2};
// The smallest size a recording can be fitted under: below it, no GIF worth having fits.
inline constexpr qint64 minimumFitBudget = 1000;

struct StoredOutputPreferences
{
    OutputPreferences preferences;
    // One line for each stored value that could not be used (its default stands in for it).
    QStringList problems;
};

// A value is used when it is one of the choices above; anything else reads as the default and
// says so.
StoredOutputPreferences readOutputPreferences(const UserDefaults& defaults);
void storeOutputPreferences(UserDefaults& defaults, const OutputPreferences& preferences);

} // namespace vantalo
