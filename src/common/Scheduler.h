#pragma once

#include <QHash>
#include <QObject>

#include <chrono>
#include <functional>

namespace vantalo {

// One-shot delayed calls on the main thread. Behind an interface so that the rules about when a
// window closes by itself can be checked with a clock the test moves.
class Scheduler
{
public:
    using TaskId = quint64;
    virtual ~Scheduler() = default;
    // Runs `task` once after `delay` unless cancelled first.
    virtual TaskId schedule(std::chrono::milliseconds delay, std::function<void()> task) = 0;
    // Cancelling a task that already ran, or was never scheduled, does nothing.
    virtual void cancel(TaskId id) = 0;
};

// The real clock: a single-shot QTimer per task.
class TimerScheduler final : public Scheduler
{
public:
    TimerScheduler();
    ~TimerScheduler() override;
    TaskId schedule(std::chrono::milliseconds delay, std::function<void()> task) override;
    void cancel(TaskId id) override;

private:
    QObject m_context;
    QHash<TaskId, QObject*> m_timers;
    TaskId m_nextId = 1;
};

} // namespace vantalo
