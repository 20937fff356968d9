#include "CodecThreadPool.h"

#include <QThreadPool>

namespace vantalo {

QThreadPool& codecThreadPool()
{
    static QThreadPool pool;
    return pool;
}

} // namespace vantalo
