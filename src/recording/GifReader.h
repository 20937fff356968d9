#pragma once

#include "common/Failure.h"

#include <QFile>
#include <QImage>
#include <QList>
#include <QString>

#include <expected>
#include <memory>
#include <vector>

namespace vantalo {

// Reads a GIF file a frame at a time, as a viewer shows it: each frame drawn over the picture
// left by the ones before, after the disposal they asked for. Only the picture and the current
// frame's indices are held, never the whole animation, so a GIF of any length can be read.
// Anything that is not a readable GIF (not one at all, cut short, a code the table does not
// hold, a picture too large to hold) ends the reading with an error naming the file.
class GifReader
{
public:
    static std::expected<std::unique_ptr<GifReader>, Failure> open(const QString& path);

    QSize screenSize() const { return m_picture.size(); }
    // The next frame, or false after the last one. Afterwards `picture()` is what a viewer shows.
    std::expected<bool, Failure> readFrame();
    const QImage& picture() const { return m_picture; }
    // The frame's delay in hundredths of a second, and whether it changed any pixel.
    int delay() const { return m_delay; }
    bool changed() const { return m_changed; }
    int framesRead() const { return m_frames; }
    // How far through the file the reading is, 0 to 1.
    double progress() const;

private:
    explicit GifReader(const QString& path) : m_file(path) {}
    Failure truncated() const;
    Failure corrupt(const QString& what) const;
    std::expected<quint8, Failure> byte();
    std::expected<QByteArray, Failure> bytes(qint64 count);
    std::expected<void, Failure> skipSubBlocks();
    std::expected<void, Failure> readPalette(QList<QRgb>& palette, int bits);
    std::expected<void, Failure> decodeImage(int minCodeSize, qsizetype pixelCount);
    void dispose();

    QFile m_file;
    QString m_name;
    QImage m_picture;
    QList<QRgb> m_globalPalette;
    std::vector<quint8> m_indices;
    // What the last frame asked to be done with its rectangle before the next one is drawn.
    int m_disposal = 0;
    QRect m_lastRect;
    QImage m_saved; // the rectangle before the last frame, for a disposal that restores it
    int m_delay = 0;
    bool m_changed = false;
    int m_frames = 0;
    bool m_ended = false;
};

} // namespace vantalo
