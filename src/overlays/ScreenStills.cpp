#include "ScreenStills.h"

#include <QPixmap>
#include <QScreen>

namespace vantalo {

QImage ScreenStills::stillOf(QScreen* screen)
{
    auto found = m_stills.find(screen->name());
    if (found == m_stills.end()) {
        found = m_stills.insert(screen->name(), screen->grabWindow(0).toImage());
    }
    return *found;
}

} // namespace vantalo
