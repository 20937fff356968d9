#pragma once

#include "recording/InputSource.h"

#include <QByteArray>

#include <atomic>
#include <thread>

namespace vantalo {

// Clicks and key presses from XInput 2 raw events on the root window: every press, whichever
// window has the pointer or the focus, with no privileges. A connection and a thread of its own
// while started; the pointer's position is asked at each click, the key's name read from the
// server's keyboard mapping (the layout's own, Shift applied).
class X11InputSource final : public InputSource
{
public:
    explicit X11InputSource(QByteArray displayName = {});
    ~X11InputSource() override;

    bool start(InputShown shown, std::shared_ptr<InputEventLog> log) override;
    void stop() override;

private:
    QByteArray m_displayName;
    std::jthread m_thread;
    int m_wake = -1; // an eventfd the thread polls beside the connection, written to stop it
};

} // namespace vantalo
