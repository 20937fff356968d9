#pragma once

#include <QHash>
#include <QImage>
#include <QString>

class QScreen;

namespace vantalo {

// What each display showed before Vantalo's overlays covered it, where no compositor keeps the
// covered windows' pictures: taken once a capture by the first overlay on that display, painted by
// every later one (a still taken while an earlier overlay goes away shows the windows before they
// have repainted), and handed to the recorder, which waits for the screen to show it again.
class ScreenStills
{
public:
    // The display's still of this capture, taken now if there is none yet.
    QImage stillOf(QScreen* screen);
    // The still taken of the display named so, or a null image.
    QImage takenOf(const QString& displayName) const { return m_stills.value(displayName); }
    // The capture is over: the next one takes its own.
    void forget() { m_stills.clear(); }

private:
    QHash<QString, QImage> m_stills;
};

} // namespace vantalo
