#include "Scheduler.h"

#include <QTimer>

namespace vantalo {

TimerScheduler::TimerScheduler() = default;

// The timers are children of m_context and go with it.
TimerScheduler::~TimerScheduler() = default;

Scheduler::TaskId TimerScheduler::schedule(std::chrono::milliseconds delay, std::function<void()> task)
{
    const TaskId id = m_nextId++;
    auto* timer = new QTimer(&m_context);
    timer->setSingleShot(true);
    timer->setTimerType(Qt::CoarseTimer);
    QObject::connect(timer, &QTimer::timeout, &m_context, [this, id, task = std::move(task)] {
        // Forget the timer before running the task: the task may schedule or cancel.
        if (QObject* done = m_timers.take(id)) {
            done->deleteLater();
        }
        task();
    });
    m_timers.insert(id, timer);
    timer->start(delay);
    return id;
}

void TimerScheduler::cancel(TaskId id)
{
    if (QObject* timer = m_timers.take(id)) {
        delete timer;
    }
}

} // namespace vantalo
