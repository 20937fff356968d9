#pragma once

#include "common/Geometry.h"

#include <QList>
#include <QRectF>
#include <QString>

#include <optional>

namespace vantalo {

class UserDefaults;

// The region of the last recording and the display it was on (y-up, global), kept in the settings
// as "lastRegion" so the next capture can offer it again, in this run or the next.
struct LastRegion
{
    QRectF region;
    DisplayInfo display;

    friend bool operator==(const LastRegion&, const LastRegion&) = default;
};

void storeLastRegion(UserDefaults& defaults, const LastRegion& last);
// The stored region while its display is still there with the same frame; otherwise it is
// forgotten and nothing is returned.
std::optional<LastRegion> recallLastRegion(UserDefaults& defaults, const QList<DisplayInfo>& displays);

} // namespace vantalo
