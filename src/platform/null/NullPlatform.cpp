#include "NullPlatform.h"

namespace vantalo {

std::unique_ptr<HotkeyRegistrar> NullPlatform::createHotkeyManager(LinePrinter print)
{
    return std::make_unique<UnavailableHotkeyRegistrar>(std::move(print));
}

std::unique_ptr<FrameRecorder> NullPlatform::createScreenRecorder()
{
    return std::make_unique<UnavailableRecorder>(m_reason);
}

} // namespace vantalo
