#include "PipeWireStream.h"

#include <QMutex>
#include <QMutexLocker>
#include <unistd.h>

// libpipewire and libspa are C headers built on compound literals and designated initialisers.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic"
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
#include <pipewire/pipewire.h>
#include <spa/param/video/format-utils.h>
#include <spa/pod/builder.h>
#pragma GCC diagnostic pop

#include <atomic>
#include <cstring>
#include <mutex>

namespace vantalo {

struct PipeWireStream::Private
{
    LatestFrame latest;
    QRectF region;
    QSize logicalSize;
    pw_thread_loop* loop = nullptr;
    pw_context* context = nullptr;
    pw_core* core = nullptr;
    pw_stream* stream = nullptr;
    spa_hook listener{};
    // Set on the stream thread, read anywhere.
    mutable QMutex mutex;
    std::optional<Failure> failure;
    // Stream thread only.
    spa_video_format format = SPA_VIDEO_FORMAT_UNKNOWN;
    int width = 0; // of the buffers, in pixels
    bool streamed = false;
    std::optional<QRect> crop;
    std::atomic<long long> delivered = 0;

    void fail(const QString& what)
    {
        const QMutexLocker lock(&mutex);
        if (!failure) {
            failure = Failure{what};
        }
    }
};

namespace {

// Runs pw_init once for the process.
void initPipeWire()
{
    static std::once_flag once;
    std::call_once(once, [] { pw_init(nullptr, nullptr); });
}

void onStateChanged(void* data, pw_stream_state, pw_stream_state state, const char* error)
{
    auto* d = static_cast<PipeWireStream::Private*>(data);
    if (state == PW_STREAM_STATE_STREAMING) {
        d->streamed = true;
    } else if (state == PW_STREAM_STATE_ERROR) {
        d->fail(
            QStringLiteral("the screen-cast stream failed (%1)").arg(QString::fromUtf8(error ? error : "")));
    } else if (state == PW_STREAM_STATE_UNCONNECTED || (state == PW_STREAM_STATE_PAUSED && d->streamed)) {
        // Nothing here pauses a stream once it runs: the source went away (the share was stopped,
        // the monitor unplugged).
        d->fail(QStringLiteral("the screen share was stopped"));
    }
}

void onParamChanged(void* data, uint32_t id, const spa_pod* param)
{
    auto* d = static_cast<PipeWireStream::Private*>(data);
    if (id != SPA_PARAM_Format) {
        return;
    }
    if (!param) {
        // The format is taken back when the source goes away.
        if (d->crop) {
            d->fail(QStringLiteral("the screen share was stopped"));
        }
        return;
    }
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic"
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
    spa_video_info_raw info{};
    if (spa_format_video_raw_parse(param, &info) < 0) {
        d->fail(QStringLiteral("the screen-cast stream has a format Vantalo cannot read"));
        return;
    }
    d->format = info.format;
    d->width = int(info.size.width);
    d->crop = bufferRect(d->region, d->logicalSize, QSize(int(info.size.width), int(info.size.height)));
    if (!d->crop) {
        d->fail(QStringLiteral("the shared screen changed size and no longer holds the region"));
        return;
    }
    // Shared memory only: there is no GPU pipeline to hand DMA buffers to.
    uint8_t buffer[256];
    spa_pod_builder builder = SPA_POD_BUILDER_INIT(buffer, sizeof(buffer));
    const spa_pod* params[] = {static_cast<const spa_pod*>(spa_pod_builder_add_object(
        &builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_dataType,
        SPA_POD_Int((1 << SPA_DATA_MemFd) | (1 << SPA_DATA_MemPtr))))};
#pragma GCC diagnostic pop
    pw_stream_update_params(d->stream, params, 1);
}

// The stream's thread calls this once for any number of buffers that arrived since the last time
// (a busy machine runs it late). All of them go back to the source, or its pool runs dry and it
// stops sending; only the newest is read.
void onProcess(void* data)
{
    auto* d = static_cast<PipeWireStream::Private*>(data);
    pw_buffer* buffer = nullptr;
    while (pw_buffer* next = pw_stream_dequeue_buffer(d->stream)) {
        if (buffer) {
            pw_stream_queue_buffer(d->stream, buffer);
        }
        buffer = next;
    }
    if (!buffer) {
        return;
    }
    const spa_data& plane = buffer->buffer->datas[0];
    const auto* header = static_cast<const spa_meta_header*>(
        spa_buffer_find_meta_data(buffer->buffer, SPA_META_Header, sizeof(spa_meta_header)));
    const bool corrupted = header && (header->flags & SPA_META_HEADER_FLAG_CORRUPTED);
    if (plane.data && plane.chunk && !corrupted && d->crop) {
        const QRect crop = *d->crop;
        // Some sources leave the stride out: their rows are packed.
        const auto stride =
            plane.chunk->stride > 0 ? qsizetype(plane.chunk->stride) : qsizetype(d->width) * 4;
        const auto* bytes = static_cast<const uchar*>(plane.data) + plane.chunk->offset;
        const bool swapRedBlue = d->format == SPA_VIDEO_FORMAT_RGBx || d->format == SPA_VIDEO_FORMAT_RGBA;
        if (qsizetype(crop.bottom() + 1) * stride <= qsizetype(plane.maxsize)) {
            // BGRx in memory is 0xxxRRGGBB on a little-endian machine: Qt's RGB32.
            QImage frame(crop.size(), QImage::Format_RGB32);
            for (int y = 0; y < crop.height(); ++y) {
                const auto* from =
                    reinterpret_cast<const quint32*>(bytes + (crop.y() + y) * stride) + crop.x();
                auto* to = reinterpret_cast<quint32*>(frame.scanLine(y));
                for (int x = 0; x < crop.width(); ++x) {
                    const quint32 p = from[x];
                    to[x] =
                        0xff000000u |
                        (swapRedBlue ? ((p & 0xff) << 16) | (p & 0xff00) | ((p >> 16) & 0xff) : p & 0xffffff);
                }
            }
            d->latest.put(std::move(frame));
            ++d->delivered;
        }
    }
    pw_stream_queue_buffer(d->stream, buffer);
}

const pw_stream_events kEvents = [] {
    pw_stream_events events{};
    events.version = PW_VERSION_STREAM_EVENTS;
    events.state_changed = onStateChanged;
    events.param_changed = onParamChanged;
    events.process = onProcess;
    return events;
}();

} // namespace

PipeWireStream::PipeWireStream() : d(std::make_unique<Private>()) {}

std::expected<std::unique_ptr<PipeWireStream>, Failure>
PipeWireStream::open(int fd, quint32 nodeId, const QRectF& region, QSize logicalSize)
{
    initPipeWire();
    std::unique_ptr<PipeWireStream> self(new PipeWireStream);
    Private& d = *self->d;
    d.region = region;
    d.logicalSize = logicalSize;
    d.loop = pw_thread_loop_new("vantalo-capture", nullptr);
    if (!d.loop) {
        ::close(fd);
        return std::unexpected(Failure{QStringLiteral("PipeWire could not be started")});
    }
    pw_thread_loop_lock(d.loop);
    d.context = pw_context_new(pw_thread_loop_get_loop(d.loop), nullptr, 0);
    d.core = d.context ? pw_context_connect_fd(d.context, fd, nullptr, 0) : nullptr;
    if (!d.core) {
        pw_thread_loop_unlock(d.loop);
        return std::unexpected(Failure{QStringLiteral("the screen-cast stream cannot be reached")});
    }
    d.stream = pw_stream_new(d.core, "Vantalo",
                             pw_properties_new(PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CATEGORY, "Capture",
                                               PW_KEY_MEDIA_ROLE, "Screen", nullptr));
    pw_stream_add_listener(d.stream, &d.listener, &kEvents, &d);

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic"
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
    // Any size, four byte orders, any frame rate (desktops send frames as the screen changes), at
    // most 15 a second asked for (a source may send more).
    uint8_t buffer[1024];
    spa_pod_builder builder = SPA_POD_BUILDER_INIT(buffer, sizeof(buffer));
    const spa_rectangle defaultSize = SPA_RECTANGLE(1920, 1080);
    const spa_rectangle minSize = SPA_RECTANGLE(1, 1);
    const spa_rectangle maxSize = SPA_RECTANGLE(16384, 16384);
    const spa_fraction noRate = SPA_FRACTION(0, 1);
    const spa_fraction wanted = SPA_FRACTION(15, 1);
    const spa_fraction minRate = SPA_FRACTION(0, 1);
    const spa_fraction maxRate = SPA_FRACTION(360, 1);
    const spa_pod* params[] = {static_cast<const spa_pod*>(spa_pod_builder_add_object(
        &builder, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat, SPA_FORMAT_mediaType,
        SPA_POD_Id(SPA_MEDIA_TYPE_video), SPA_FORMAT_mediaSubtype, SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw),
        SPA_FORMAT_VIDEO_format,
        SPA_POD_CHOICE_ENUM_Id(5, SPA_VIDEO_FORMAT_BGRx, SPA_VIDEO_FORMAT_BGRx, SPA_VIDEO_FORMAT_BGRA,
                               SPA_VIDEO_FORMAT_RGBx, SPA_VIDEO_FORMAT_RGBA),
        SPA_FORMAT_VIDEO_size, SPA_POD_CHOICE_RANGE_Rectangle(&defaultSize, &minSize, &maxSize),
        SPA_FORMAT_VIDEO_framerate, SPA_POD_CHOICE_RANGE_Fraction(&noRate, &minRate, &maxRate),
        SPA_FORMAT_VIDEO_maxFramerate, SPA_POD_CHOICE_RANGE_Fraction(&wanted, &minRate, &maxRate)))};
#pragma GCC diagnostic pop
    const int connected = pw_stream_connect(
        d.stream, PW_DIRECTION_INPUT, nodeId,
        pw_stream_flags(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS), params, 1);
    pw_thread_loop_unlock(d.loop);
    if (connected < 0 || pw_thread_loop_start(d.loop) < 0) {
        return std::unexpected(Failure{QStringLiteral("the screen-cast stream cannot be opened")});
    }
    return self;
}

PipeWireStream::~PipeWireStream()
{
    if (!d->loop) {
        return;
    }
    // Disconnected while the loop still runs, so that the source hears of it and takes back the
    // buffers it lent (a source whose buffers stay lent stops sending to the next stream).
    pw_thread_loop_lock(d->loop);
    if (d->stream) {
        pw_stream_disconnect(d->stream);
        pw_stream_destroy(d->stream);
    }
    if (d->core) {
        pw_core_disconnect(d->core);
    }
    pw_thread_loop_unlock(d->loop);
    pw_thread_loop_stop(d->loop);
    if (d->context) {
        pw_context_destroy(d->context);
    }
    pw_thread_loop_destroy(d->loop);
}

std::optional<QImage> PipeWireStream::latest() const
{
    return d->latest.take();
}

std::optional<Failure> PipeWireStream::failure() const
{
    const QMutexLocker lock(&d->mutex);
    return d->failure;
}

long long PipeWireStream::delivered() const
{
    return d->delivered;
}

} // namespace vantalo
