#include "CodecThreadPool.h"

#include <QThread>
#include <QThreadPool>

#include <sys/resource.h>

namespace vantalo {

namespace {
// Nice 10: a tenth of the share of a thread at the default priority when the two compete, and
// the whole of an otherwise idle computer.
constexpr int kCodecNiceValue = 10;
} // namespace

QThreadPool& codecThreadPool()
{
    static QThreadPool pool;
    return pool;
}

void yieldToInteractiveWork()
{
    thread_local bool lowered = false;
    if (lowered || !codecThreadPool().contains(QThread::currentThread())) {
        return;
    }
    lowered = true;
#ifdef Q_OS_LINUX
    // Linux keeps a nice value for each thread: `0` names the calling thread alone.
    setpriority(PRIO_PROCESS, 0, kCodecNiceValue);
#else
    QThread::currentThread()->setPriority(QThread::LowPriority);
#endif
}

} // namespace vantalo
