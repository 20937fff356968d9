// GIFs read back by decoders that are not the writer's: Qt's and a strict reader that checks every
// LZW code, which must agree on every pixel and delay.
#include "recording/FrameEncoding.h"
#include "recording/GifEncoder.h"
#include "recording/GifWriter.h"
#include "support/GifReaders.h"

#include <QPainter>
#include <QRandomGenerator>
#include <QTest>

#include <cmath>
#include <numeric>

using namespace vantalo;

namespace {

constexpr double kDelay = 1.0 / 15.0;

// A moving square over a few flat colours: at most 256 colours a frame.
FrameList flatAnimation(int count, QSize size, int scale = 1)
{
    FrameList frames;
    for (int k = 0; k < count; ++k) {
        QImage image(size, QImage::Format_RGB32);
        image.fill(qRgb(240, 240, 235));
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width() / 4; ++x) {
                image.setPixel(x, y, qRgb(20 + y % 7, 40, 90)); // a striped sidebar that never moves
            }
        }
        const int side = size.height() / 3;
        const QRect square((k * 3) % (size.width() - side), size.height() / 3, side, side);
        for (int y = square.top(); y <= square.bottom(); ++y) {
            for (int x = square.left(); x <= square.right(); ++x) {
                image.setPixel(x, y, qRgb(200, 30, (k * 20) % 256));
            }
        }
        frames.append(Frame{image, scale});
    }
    return frames;
}

// A smooth colour field that drifts: thousands of colours, so the palette is quantised.
FrameList photoAnimation(int count, QSize size)
{
    FrameList frames;
    for (int k = 0; k < count; ++k) {
        QImage image(size, QImage::Format_RGB32);
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x) {
                // The left half stands still; the right half drifts.
                const double t = x < size.width() / 2 ? 0.0 : k * 0.2;
                image.setPixel(x, y,
                               qRgb(int(127 + 127 * std::sin(x * 0.05 + t)),
                                    int(127 + 127 * std::sin(y * 0.07)),
                                    int(127 + 127 * std::sin((x + y) * 0.03 + t))));
            }
        }
        frames.append(Frame{image, 1});
    }
    return frames;
}

// Every frame as a viewer shows it, each composed over the one before: what every reader reads.
QList<QImage> decode(const QByteArray& gif)
{
    const auto read = testing::readWithEveryReader(gif);
    if (!read) {
        qWarning("%s", qPrintable(read.error()));
        return {};
    }
    QList<QImage> images;
    for (const QImage& frame : read->frames) {
        images.append(frame.convertToFormat(QImage::Format_RGB32));
    }
    return images;
}

double meanError(const QImage& a, const QImage& b)
{
    double sum = 0;
    for (int y = 0; y < a.height(); ++y) {
        for (int x = 0; x < a.width(); ++x) {
            const QRgb p = a.pixel(x, y);
            const QRgb q = b.pixel(x, y);
            sum +=
                std::abs(qRed(p) - qRed(q)) + std::abs(qGreen(p) - qGreen(q)) + std::abs(qBlue(p) - qBlue(q));
        }
    }
    return sum / (3.0 * a.width() * a.height());
}

} // namespace

class TestGifEncoder : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Up to 256 colours a frame come back exactly, differencing and all: moving, doubled,
    // unchanged, and noise whose sizes fall around code-size changes and full code tables; and the
    // flat colours of a frame of a few hundred.
    void fewColoursComeBackExactly()
    {
        const auto noise = [](QSize size, int colours) {
            QImage image(size, QImage::Format_RGB32);
            QRandomGenerator random(size.width() * 31 + colours);
            for (int y = 0; y < size.height(); ++y) {
                for (int x = 0; x < size.width(); ++x) {
                    const int c = random.bounded(colours);
                    image.setPixel(x, y, qRgb(c, 255 - c, (c * 7) % 256));
                }
            }
            return FrameList{Frame{image, 1}};
        };
        const FrameList still(10, flatAnimation(1, QSize(200, 150)).first());
        const QList<FrameList> cases{flatAnimation(30, QSize(64, 48)),
                                     flatAnimation(5, QSize(50, 40), 2),
                                     still,
                                     noise(QSize(1, 1), 2),
                                     noise(QSize(97, 61), 4),
                                     noise(QSize(301, 257), 256),
                                     noise(QSize(640, 480), 256),
                                     noise(QSize(255, 255), 17)};
        for (const FrameList& frames : cases) {
            const auto gif = GifEncoder().encode(frames, kDelay);
            QVERIFY(gif);
            const QList<QImage> decoded = decode(*gif);
            QCOMPARE(decoded.size(), frames.size());
            for (qsizetype k = 0; k < frames.size(); ++k) {
                QVERIFY2(decoded[k] == frames[k].fullSize(), qPrintable(QStringLiteral("frame %1").arg(k)));
            }
        }
        // A page of flat colours with a small picture of 300 on it: quantised, yet the flat
        // colours (nearly all of the frame) come back exactly.
        QImage page(200, 150, QImage::Format_RGB32);
        const QRgb flat[] = {qRgb(250, 250, 248), qRgb(33, 37, 41), qRgb(13, 110, 253), qRgb(222, 226, 230)};
        for (int y = 0; y < page.height(); ++y) {
            for (int x = 0; x < page.width(); ++x) {
                page.setPixel(x, y, flat[(y / 10 + x / 50) % 4]);
            }
        }
        for (int k = 0; k < 300; ++k) {
            page.setPixel(10 + k % 20, 10 + k / 20, qRgb(k % 256, (k * 5) % 256, 128 + k / 3));
        }
        const QImage shown = decode(GifEncoder().encode({Frame{page, 1}}, kDelay).value()).constFirst();
        qsizetype offFlat = 0;
        for (int y = 0; y < page.height(); ++y) {
            for (int x = 0; x < page.width(); ++x) {
                offFlat += std::ranges::find(flat, page.pixel(x, y)) != std::end(flat) &&
                           shown.pixel(x, y) != page.pixel(x, y);
            }
        }
        QCOMPARE(offFlat, 0);

        // Unchanged frames stay frames of their own, at a few bytes each.
        const auto single = GifEncoder().encode(still.mid(0, 1), kDelay);
        QVERIFY(GifEncoder().encode(still, kDelay)->size() < single->size() + 9 * 40);

        // The file loops for ever, and its delays end on the exact time: 450 frames are 30 s.
        const auto read = testing::readWithEveryReader(GifEncoder().encode(cases.first(), kDelay).value());
        QVERIFY(read);
        QCOMPARE(read->loopCount, 0);
        QCOMPARE(read->delays.mid(0, 6), (QList<int>{7, 6, 7, 7, 6, 7}));
        QCOMPARE(std::accumulate(read->delays.cbegin(), read->delays.cend(), 0), 200);
        const QList<int> delays = gifDelays(450, kDelay);
        QCOMPARE(std::accumulate(delays.cbegin(), delays.cend(), 0), 3000);
        QVERIFY(std::ranges::all_of(delays, [](int d) { return d == 6 || d == 7; }));
        QCOMPARE(gifDelays(3, 0.1), (QList<int>{10, 10, 10}));
    }

    // Frames whose colours are all in one table for the whole GIF drop their own, and only the
    // colour each literal code names changes: through code-width changes and full code tables
    // (a frame of 77,000 pixels of noise), every reader sees the same pixels. A frame whose colours
    // are not in it keeps its own; a GIF that would not get smaller keeps every table.
    void framesShareOneTableWhereThatIsSmaller()
    {
        QuantizerSettings whole;
        whole.differencing = false;
        QList<EncodedFrame> encoded;
        FrameList frames;
        for (int k = 0; k < 3; ++k) {
            QImage noise(301, 257, QImage::Format_RGB32);
            QRandomGenerator random(k + 1);
            for (int y = 0; y < noise.height(); ++y) {
                for (int x = 0; x < noise.width(); ++x) {
                    const int c = random.bounded(200);
                    noise.setPixel(x, y, qRgb(c, 255 - c, (c * 7) % 256));
                }
            }
            frames.append(Frame{noise, 1});
        }
        QImage two(301, 257, QImage::Format_RGB32);
        two.fill(qRgb(1, 2, 3));
        two.setPixel(5, 5, qRgb(4, 5, 6));
        frames.append(Frame{two, 1});
        for (const Frame& frame : frames) {
            encoded.append(encodeFrame(frame, nullptr, whole));
        }
        const auto ownTables = [](const QList<EncodedFrame>& list) {
            QByteArray out;
            appendGifHeader(out, QSize(301, 257));
            for (const EncodedFrame& frame : list) {
                appendGifFrame(out, frame, 7);
            }
            out.append(gifTrailer);
            return out;
        };
        const QList<int> delays(encoded.size(), 7);
        const QByteArray shared = assembleGif(QSize(301, 257), encoded, delays);
        // Three tables of 256 entries give way to one; the two-colour frame keeps its own.
        QCOMPARE(shared.size(), ownTables(encoded).size() - 2 * 3 * 256);
        const QList<QImage> decoded = decode(shared);
        QCOMPARE(decoded.size(), frames.size());
        for (qsizetype k = 0; k < frames.size(); ++k) {
            QVERIFY2(decoded[k] == frames[k].pixels, qPrintable(QStringLiteral("frame %1").arg(k)));
        }
        QList<EncodedFrame> alone{encoded.first()};
        QCOMPARE(assembleGif(QSize(301, 257), alone, {7}), ownTables(alone));
    }

    void differencingIsInvisibleBeyondQuantisation()
    {
        const FrameList frames = photoAnimation(12, QSize(120, 90));
        QuantizerSettings whole;
        whole.differencing = false;
        const auto differenced = GifEncoder().encode(frames, kDelay);
        const auto plain = GifEncoder(whole).encode(frames, kDelay);
        QVERIFY(differenced && plain);
        const QList<QImage> a = decode(*differenced);
        const QList<QImage> b = decode(*plain);
        QCOMPARE(a.size(), 12);
        QCOMPARE(b.size(), 12);
        for (int k = 0; k < 12; ++k) {
            const double withDiff = meanError(a[k], frames[k].pixels);
            const double without = meanError(b[k], frames[k].pixels);
            QVERIFY2(withDiff < 10.0 && withDiff <= without + 1.0,
                     qPrintable(QStringLiteral("frame %1: %2 vs %3").arg(k).arg(withDiff).arg(without)));
        }
        // The static half costs nothing after the first frame.
        QVERIFY2(differenced->size() < plain->size(),
                 qPrintable(QStringLiteral("%1 vs %2").arg(differenced->size()).arg(plain->size())));
    }

    void anEmptyListAndMixedSizes()
    {
        const auto empty = GifEncoder().encode({}, kDelay);
        QVERIFY(!empty);
        QCOMPARE(empty.error().description, QStringLiteral("Failed to encode GIF"));

        // Frames of different sizes are written as they are.
        FrameList mixed = flatAnimation(1, QSize(40, 30));
        mixed.append(flatAnimation(1, QSize(60, 50)));
        const auto gif = GifEncoder().encode(mixed, kDelay);
        QVERIFY(gif);
        // Qt paints the screen beyond the first frame black; a browser leaves it clear.
        const auto read = testing::readStrictly(*gif);
        QVERIFY(read);
        QCOMPARE(read->frames.size(), 2);
        QCOMPARE(read->frames[0].copy(0, 0, 40, 30).convertToFormat(QImage::Format_RGB32), mixed[0].pixels);
        QCOMPARE(read->frames[0].pixel(50, 40), 0u); // the screen beyond the first frame shows nothing
        QCOMPARE(read->frames[1].convertToFormat(QImage::Format_RGB32), mixed[1].pixels);
    }

    void codeStreamsOfEveryLengthAreFramedRight()
    {
        // Rows of growing length give compressed streams of every size, so some end exactly on a
        // full 255-byte block; the shortest (three codes) need the closing clear already widened.
        QRandomGenerator random(7);
        int endedOnABlock = 0;
        for (int width = 1; width <= 1400; ++width) {
            QImage image(width, 1, QImage::Format_RGB32);
            for (int x = 0; x < width; ++x) {
                const int c = random.bounded(16);
                image.setPixel(x, 0, qRgb(c * 16, 255 - c * 16, c * 5));
            }
            const auto gif = GifEncoder().encode({Frame{image, 1}}, kDelay);
            QVERIFY(gif);
            const QList<QImage> decoded = decode(*gif);
            QVERIFY2(decoded.size() == 1 && decoded.first() == image, qPrintable(QString::number(width)));
            // Header 6, screen 7, looping block 19, graphic control 8: the image descriptor is at
            // 40, its colour table follows, then the code size and the sub-blocks.
            const int tableBits = (quint8(gif->at(40 + 9)) & 0x07) + 1;
            qsizetype at = 40 + 10 + 3 * (1 << tableBits) + 1;
            int last = 0;
            while (at < gif->size() && quint8(gif->at(at)) != 0) {
                last = quint8(gif->at(at));
                at += last + 1;
            }
            endedOnABlock += last == 255;
        }
        QVERIFY2(endedOnABlock > 0, "no stream ended on a full block: the sweep missed the case");
    }

    void streamingGivesTheSameFile()
    {
        FrameList frames = photoAnimation(6, QSize(80, 60));
        frames.append(flatAnimation(4, QSize(80, 60)));
        const auto batch = GifEncoder().encode(frames, kDelay);
        GifEncodingSession session;
        for (const Frame& frame : frames) {
            session.addFrame(frame);
        }
        QCOMPARE(session.frameCount(), 10);
        const auto streamed = session.finish(kDelay);
        QVERIFY(batch && streamed);
        QCOMPARE(*streamed, *batch);
        QVERIFY(!GifEncodingSession().finish(kDelay));
    }

    // Qt splits large fills across its global thread pool and waits for the parts, so a backlog
    // of frames queued there would hold up every repaint of the application (a Stop that came
    // eight seconds late): while the session is far behind, a paint still finishes at once.
    void aBacklogNeverHoldsUpPainting()
    {
        const FrameList frames = photoAnimation(2, QSize(640, 480));
        GifEncodingSession session({}, 1000);
        for (int k = 0; k < 40; ++k) {
            session.addFrame(frames[k % 2]);
        }
        QImage canvas(1600, 1600, QImage::Format_ARGB32_Premultiplied);
        QPainter painter(&canvas);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(40, 40, 40, 230));
        painter.drawRoundedRect(QRectF(canvas.rect()).adjusted(1.5, 1.5, -1.5, -1.5), 40, 40);
        painter.end();
        QVERIFY2(session.waitingFrames() > 10,
                 qPrintable(QStringLiteral("the paint waited for the encoder: %1 frames left")
                                .arg(session.waitingFrames())));
        QVERIFY(session.finish(kDelay));
    }
};

QTEST_GUILESS_MAIN(TestGifEncoder)
#include "tst_gifencoder.moc"
