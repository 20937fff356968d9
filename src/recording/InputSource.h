#pragma once

#include "InputOverlay.h"

#include <memory>

namespace vantalo {

// The platform's view of the user's clicks and key presses, for a recording that shows them. Its
// calls are made on the GUI thread; the events arrive on a thread of its own.
class InputSource
{
public:
    virtual ~InputSource() = default;
    // Starts putting presses into `log`: clicks if `shown` has them, keys if it has any (with no
    // keys shown none are read at all). False where this session cannot see them.
    virtual bool start(InputShown shown, std::shared_ptr<InputEventLog> log) = 0;
    virtual void stop() = 0;
};

} // namespace vantalo
