#pragma once

#include "common/Failure.h"

#include <QImage>
#include <QList>
#include <QRect>
#include <QString>

#include <expected>
#include <memory>
#include <optional>

namespace vantalo {

// One display as the capture backend sees it, in its own pixel space.
struct CaptureDisplay
{
    QString name;
    QRect nativeGeometry;
};

// An open capture of one rectangle of the screen. Used on the capture thread only.
class CaptureStream
{
public:
    virtual ~CaptureStream() = default;
    // The rectangle as it is now, the pointer painted in. Nothing when this one grab failed (the
    // frame is dropped); a failure when the stream itself has ended (the display went away).
    virtual std::expected<std::optional<QImage>, Failure> grab() = 0;
    // How many frames the source has sent, where it sends them on its own (a desktop's stream);
    // -1 where each grab reads the screen.
    virtual long long sourceFrames() const { return -1; }
};

// The platform's screen capture. Its calls run on the capture thread, except `prepare` and `abort`.
class CaptureBackend
{
public:
    virtual ~CaptureBackend() = default;
    // On the GUI thread before each recording's capture thread starts: reads what the capture
    // thread needs of the GUI (it never waits on the GUI thread, which may be waiting on it).
    virtual void prepare() {}
    // From the GUI thread, when the recorder goes away: ends at once whatever the capture thread
    // waits on (a question to the desktop, a first picture); the call in progress fails.
    virtual void abort() {}
    // The displays, the primary one first.
    virtual std::expected<QList<CaptureDisplay>, Failure> displays() = 0;
    // Opens a capture of `nativeRect` (pixels, in the same space as the display geometries).
    virtual std::expected<std::unique_ptr<CaptureStream>, Failure> openStream(const QRect& nativeRect) = 0;
};

} // namespace vantalo
