#pragma once

#include <QFuture>
#include <QtConcurrent/QtConcurrentRun>

#include <utility>

class QThreadPool;

namespace vantalo {

// The threads that encode and decode frames, one a core. Never Qt's global pool: Qt's raster
// painter splits large fills across that pool and waits for the parts, so frames queued there
// would hold up every repaint of the application (and with it the event loop that takes Stop)
// for as long as the encoder is behind.
QThreadPool& codecThreadPool();

// `work` as a task on the codec threads.
template<typename Work> auto runOnCodecThreads(Work work)
{
    return QtConcurrent::run(&codecThreadPool(), std::move(work));
}

} // namespace vantalo
