// GIFs written again smaller: the levers, the fit under a size, bad files and the command line.
// Every output is read back by the strict reader and by Qt.
#include "recording/GifEncoder.h"
#include "recording/GifRecoder.h"
#include "recording/GifTimeline.h"
#include "recording/GifWriter.h"
#include "support/GifReaders.h"

#include <gif_lib.h>

#include <QBuffer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>
#include <numeric>

using namespace vantalo;

namespace {

// A window with text-like stripes and a square that moves and changes colour, at `scale` (2: the
// GIF is made of pixel doubles, as Vantalo records a 1× display). Under 256 colours, so the
// lossless GIF is exact; every frame changes.
FrameList movingScene(int count, QSize size, int scale)
{
    FrameList frames;
    for (int k = 0; k < count; ++k) {
        QImage image(size, QImage::Format_RGB32);
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x) {
                const bool text = (y / 3) % 4 == 1 && (x * 7 + y) % 11 < 6;
                image.setPixel(x, y, text ? qRgb(30, 30, 40) : qRgb(200 + x % 8 * 5, 205 + y % 8 * 5, 230));
            }
        }
        for (int y = 10; y < 30; ++y) {
            for (int x = 0; x < 20; ++x) {
                image.setPixel((x + 4 * k) % size.width(), y, qRgb(220, (40 + 73 * k) % 256, 60));
            }
        }
        frames.append(Frame{image, scale});
    }
    return frames;
}

QString writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size()) {
        return {};
    }
    return path;
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

int total(const QList<int>& delays)
{
    return std::accumulate(delays.cbegin(), delays.cend(), 0);
}

// The frame a viewer shows at `time` (hundredths of a second).
const QImage& shownAt(const testing::ReadGif& gif, int time)
{
    int end = 0;
    for (qsizetype k = 0; k < gif.frames.size(); ++k) {
        end += gif.delays[k];
        if (time < end) {
            return gif.frames[k];
        }
    }
    return gif.frames.last();
}

QImage halved(const QImage& image)
{
    return image.scaled(image.size() / 2, Qt::IgnoreAspectRatio, Qt::FastTransformation);
}

// A GIF as other tools write them: a global palette, interlaced frames, and disposals 2 (clear)
// and 3 (restore the picture before).
QString foreignGif(const QString& path)
{
    int error = 0;
    GifFileType* gif = EGifOpenFileName(path.toLocal8Bit().constData(), false, &error);
    ColorMapObject* map = GifMakeMapObject(4, nullptr);
    const GifColorType colours[4] = {{0, 0, 0}, {250, 250, 250}, {200, 30, 30}, {30, 30, 200}};
    std::copy(colours, colours + 4, map->Colors);
    EGifSetGifVersion(gif, true);
    EGifPutScreenDesc(gif, 24, 20, 2, 0, map);
    const auto frame = [&](int disposal, int x, int y, int w, int h, int colour, bool interlaced) {
        GraphicsControlBlock control{disposal, false, 10, NO_TRANSPARENT_COLOR};
        GifByteType extension[4];
        EGifGCBToExtension(&control, extension);
        EGifPutExtension(gif, GRAPHICS_EXT_FUNC_CODE, 4, extension);
        EGifPutImageDesc(gif, x, y, w, h, interlaced, nullptr);
        std::vector<int> rows;
        for (const auto& [start, step] : {std::pair{0, 8}, {4, 8}, {2, 4}, {1, 2}}) {
            for (int r = start; r < h; r += step) {
                rows.push_back(r);
            }
        }
        if (!interlaced) {
            rows.resize(size_t(h));
            std::iota(rows.begin(), rows.end(), 0);
        }
        for (const int r : rows) {
            std::vector<GifPixelType> line(static_cast<size_t>(w));
            for (int c = 0; c < w; ++c) {
                line[size_t(c)] = GifPixelType((r + c) % 5 == 0 ? 0 : colour);
            }
            EGifPutLine(gif, line.data(), w);
        }
    };
    frame(1, 0, 0, 24, 20, 1, true);
    frame(2, 2, 2, 10, 9, 2, true);   // cleared after it is shown
    frame(3, 8, 4, 12, 12, 3, false); // restored after it is shown
    frame(1, 0, 16, 6, 4, 2, false);
    EGifCloseFile(gif, &error);
    GifFreeMapObject(map);
    return path;
}

} // namespace

class TestGifRecoder : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY(m_dir.isValid()); }

    // Scale, frame rate and lossy level over a GIF of pixel doubles: the duration stays exact to
    // the hundredth, the frames shown at each time are the source's, bytes and colour tables
    // shrink as the level rises, and no pixel is ever further from the source than the level
    // allows, frame after frame.
    void theLevers()
    {
        const FrameList scene = movingScene(30, QSize(80, 60), 2);
        const QString source = writeFile(m_dir.filePath(QStringLiteral("scene.gif")),
                                         GifEncoder().encode(scene, 1.0 / 15.0).value());
        const auto original = testing::readWithEveryReader(readFile(source));
        QVERIFY(original);
        QCOMPARE(total(original->delays), 200);

        struct Case
        {
            int scale, fps, frames;
        };
        for (const auto& [scale, fps, frames] :
             {Case{2, 15, 30}, Case{1, 15, 30}, Case{1, 10, 20}, Case{2, 5, 10}}) {
            qint64 previousBytes = std::numeric_limits<qint64>::max();
            int losslessTable = 0;
            for (const int level : {0, 40, 100}) {
                const OutputSettings settings{scale, fps, level};
                const QString label = settings.label();
                const QString target = m_dir.filePath(QStringLiteral("out.gif"));
                const auto written = recodeGifFile(source, target, settings);
                QVERIFY2(written, qPrintable(label));
                const QByteArray bytes = readFile(target);
                QCOMPARE(written->bytes, bytes.size());
                const auto read = testing::readWithEveryReader(bytes);
                QVERIFY2(read, qPrintable(label + QStringLiteral(": ") + read.error()));
                QCOMPARE(read->frames.size(), frames);
                QCOMPARE(total(read->delays), 200);
                QCOMPARE(read->frames.first().size(), QSize(80, 60) * scale);
                // A lossy level lets one colour stand for those close to it: a smaller table.
                if (level == 0) {
                    losslessTable = read->tableSizes.first();
                } else {
                    QVERIFY2(
                        read->tableSizes.first() < losslessTable,
                        qPrintable(label + QStringLiteral(": %1 colours").arg(read->tableSizes.first())));
                }
                // Each frame starts when the source's frame it shows starts.
                int start = 0;
                for (qsizetype k = 0; k < read->frames.size(); ++k) {
                    QImage expected = shownAt(*original, start).convertToFormat(QImage::Format_RGB32);
                    if (scale == 1) {
                        expected = halved(expected);
                    }
                    const QImage got = read->frames[k].convertToFormat(QImage::Format_RGB32);
                    int worst = 0;
                    for (int y = 0; y < got.height(); ++y) {
                        for (int x = 0; x < got.width(); ++x) {
                            worst = std::max(
                                worst, perceptualDistanceSquared(got.pixel(x, y), expected.pixel(x, y)));
                        }
                    }
                    QVERIFY2(worst <= lossyDistanceSquared(level),
                             qPrintable(QStringLiteral("%1, frame %2: %3").arg(label).arg(k).arg(worst)));
                    start += read->delays[k];
                }
                QVERIFY2(
                    bytes.size() < previousBytes,
                    qPrintable(label + QStringLiteral(": %1 after %2").arg(bytes.size()).arg(previousBytes)));
                previousBytes = bytes.size();
            }
        }
        QVERIFY(lossyDistanceSquared(0) == 0 && lossyDistanceSquared(40) < lossyDistanceSquared(100));

        // A span keeps exactly its frames and their delays, the first starting at 0, also when
        // it starts on a frame the whole GIF's sampling would not begin with. Its size estimated
        // with time for the whole is exact; with time for two frames, close.
        for (const FrameSpan span : {FrameSpan{5, 20}, FrameSpan{1, 2}, FrameSpan{29, -1}}) {
            RecodeControl control;
            control.frames = span;
            const QString target = m_dir.filePath(QStringLiteral("span.gif"));
            const auto written = recodeGifFile(source, target, OutputSettings{}, control);
            QVERIFY(written);
            const auto exact = estimateGifBytes(source, OutputSettings{}, span, std::chrono::seconds(30));
            QVERIFY(exact && exact->exact);
            QCOMPARE(exact->bytes, written->bytes);
            const auto sampled =
                estimateGifBytes(source, OutputSettings{}, span, std::chrono::milliseconds(0));
            QVERIFY(sampled);
            QVERIFY2(std::abs(double(sampled->bytes) / double(written->bytes) - 1.0) < 0.15,
                     qPrintable(QStringLiteral("about %1 for %2").arg(sampled->bytes).arg(written->bytes)));
            const auto read = testing::readWithEveryReader(readFile(target));
            QVERIFY(read);
            const int end = span.end < 0 ? 30 : span.end;
            QCOMPARE(read->frames.size(), end - span.first);
            QCOMPARE(read->delays, original->delays.mid(span.first, end - span.first));
            QCOMPARE(read->frames.first().convertToFormat(QImage::Format_RGB32),
                     original->frames[span.first].convertToFormat(QImage::Format_RGB32));
        }
        RecodeControl beyond;
        beyond.frames = {30, -1};
        QVERIFY(!recodeGifFile(source, m_dir.filePath(QStringLiteral("span.gif")), OutputSettings{}, beyond));
    }

    // Other tools' GIFs (a global palette, interlacing, frames cleared and restored) come out as Qt
    // shows them; a GIF that is not whole gets an error naming it, and nothing is written.
    void otherGifsAndBadFiles()
    {
        const QString foreign = foreignGif(m_dir.filePath(QStringLiteral("foreign.gif")));
        const auto byQt = testing::readWithQt(readFile(foreign));
        QVERIFY(byQt);
        const QString target = m_dir.filePath(QStringLiteral("foreign-out.gif"));
        QVERIFY(recodeGifFile(foreign, target, OutputSettings{}));
        const auto again = testing::readWithEveryReader(readFile(target));
        QVERIFY(again);
        QCOMPARE(again->frames.size(), byQt->frames.size());
        for (qsizetype k = 0; k < again->frames.size(); ++k) {
            QCOMPARE(again->frames[k].convertToFormat(QImage::Format_RGB32),
                     byQt->frames[k].convertToFormat(QImage::Format_RGB32));
        }

        const QByteArray good = GifEncoder().encode(movingScene(4, QSize(40, 30), 1), 0.1).value();
        // The first frame's first codes (after the header, the looping and control blocks, the
        // descriptor, its colour table and code size, and the sub-block's length) name entries the
        // table does not hold yet.
        QByteArray corrupt = good;
        const int codes = 40 + 10 + 3 * (2 << (quint8(good[49]) & 7)) + 2;
        corrupt[codes] = char(0xff);
        corrupt[codes + 1] = char(0xff);
        const QList<std::pair<QByteArray, QString>> bad{
            {QByteArray("PNG not a gif"), QStringLiteral("is not a GIF")},
            {good.left(good.size() / 2), QStringLiteral("cut short")},
            {good.chopped(1), QStringLiteral("cut short")},
            {corrupt, QStringLiteral("a code before any table entry")}};
        const QString existing = writeFile(m_dir.filePath(QStringLiteral("existing.gif")), good);
        for (const auto& [bytes, says] : bad) {
            const QString path = writeFile(m_dir.filePath(QStringLiteral("bad.gif")), bytes);
            for (const int level : {0, 60}) {
                const auto result = recodeGifFile(path, existing, OutputSettings{2, 15, level});
                QVERIFY2(!result, qPrintable(says));
                QVERIFY2(result.error().description.contains(QDir::toNativeSeparators(path)) &&
                             result.error().description.contains(says),
                         qPrintable(result.error().description));
            }
            const auto fit = fitGif(path, 100, existing);
            QVERIFY(!fit && !fit.error().smallest);
            QCOMPARE(readFile(existing), good);
        }
        QCOMPARE(QDir(m_dir.path())
                     .entryList(QDir::Hidden | QDir::Files)
                     .filter(QStringLiteral(".existing"))
                     .size(),
                 0);
    }

    // The fit keeps a GIF that fits as it is, finds settings for one that does not, never passes
    // the budget, and writes nothing when even the smallest settings are too large.
    void fitUnderABudget()
    {
        const QString source =
            writeFile(m_dir.filePath(QStringLiteral("fit-source.gif")),
                      GifEncoder().encode(movingScene(45, QSize(160, 120), 2), 1.0 / 15.0).value());
        const qint64 sourceBytes = QFileInfo(source).size();
        const QString target = m_dir.filePath(QStringLiteral("fitted.gif"));
        const auto impossible = fitGif(source, 500, target);
        QVERIFY(!impossible && impossible.error().smallest && *impossible.error().smallest > 500);
        QVERIFY2(impossible.error().failure.description.contains(QStringLiteral("500 bytes")),
                 qPrintable(impossible.error().failure.description));
        QVERIFY(!QFile::exists(target));
        // A fit asked to stop gives up and writes nothing.
        std::stop_source stop;
        stop.request_stop();
        RecodeControl cancelled;
        cancelled.stop = stop.get_token();
        const auto given = fitGif(source, sourceBytes / 3, target, cancelled);
        QVERIFY(!given && given.error().failure.description == cancelledText && !QFile::exists(target));

        const qint64 smallest = *impossible.error().smallest;
        qint64 previous = sourceBytes + 1;
        OutputSettings previousSettings;
        for (const qint64 budget : {sourceBytes, sourceBytes / 3, smallest + smallest / 4, smallest}) {
            const auto fit = fitGif(source, budget, target);
            QVERIFY2(fit, qPrintable(fit ? QString() : fit.error().failure.description));
            const QByteArray bytes = readFile(target);
            QCOMPARE(fit->bytes, bytes.size());
            QVERIFY2(bytes.size() <= budget,
                     qPrintable(QStringLiteral("%1 > %2").arg(bytes.size()).arg(budget)));
            QVERIFY2(bytes.size() <= previous,
                     qPrintable(QStringLiteral("%1: %2").arg(budget).arg(bytes.size())));
            QCOMPARE(fit->unchanged, budget == sourceBytes);
            const auto read = testing::readWithEveryReader(bytes);
            QVERIFY(read);
            QCOMPARE(total(read->delays), 300);
            if (!fit->unchanged) {
                // The step before did not fit, and a smaller budget never takes a better one.
                const QList<OutputSettings> ladder = fitLadder(true);
                const auto at = ladder.indexOf(fit->settings);
                QVERIFY(at > 0 && at >= ladder.indexOf(previousSettings));
                QBuffer better;
                better.open(QIODevice::WriteOnly);
                QVERIFY(recodeGif(source, better, ladder[at - 1])->bytes > budget);
                previousSettings = fit->settings;
            }
            previous = bytes.size();
        }
    }

    // The command line: exit 0 with one line saying what was written, 1 when the size cannot be
    // reached, 2 for bad arguments and files; no display needed.
    void theCommandLine()
    {
        const QString source =
            writeFile(m_dir.filePath(QStringLiteral("cli.gif")),
                      GifEncoder().encode(movingScene(15, QSize(120, 90), 2), 1.0 / 15.0).value());
        const QString out = m_dir.filePath(QStringLiteral("cli-out.gif"));
        const QString notGif = writeFile(m_dir.filePath(QStringLiteral("notes.txt")), "hello");
        struct Case
        {
            QStringList arguments;
            int exitCode;
            QString says;
        };
        const QList<Case> cases{
            {{QStringLiteral("--scale"), QStringLiteral("1"), QStringLiteral("--fps"), QStringLiteral("10"),
              QStringLiteral("--lossy"), QStringLiteral("60"), source, QStringLiteral("-o"), out},
             0,
             QStringLiteral("Wrote %1: ").arg(out)},
            {{QStringLiteral("--fit"), QStringLiteral("50KB"), source, QStringLiteral("-o"), out},
             0,
             QStringLiteral("Wrote")},
            {{QStringLiteral("--fit"), QStringLiteral("0.2KB"), source, QStringLiteral("-o"), out},
             1,
             QStringLiteral("200 bytes")},
            {{QStringLiteral("--fit"), QStringLiteral("10 parsecs"), source, QStringLiteral("-o"), out},
             2,
             QStringLiteral("not a size")},
            {{QStringLiteral("--lossy"), QStringLiteral("101"), source, QStringLiteral("-o"), out},
             2,
             QStringLiteral("0 to 100")},
            {{QStringLiteral("--fit"), QStringLiteral("1MB"), QStringLiteral("--fps"), QStringLiteral("5"),
              source, QStringLiteral("-o"), out},
             2,
             QStringLiteral("either")},
            {{QStringLiteral("--scale"), QStringLiteral("1"), source}, 2, QStringLiteral("-o OUT.gif")},
            {{QStringLiteral("--scale"), QStringLiteral("1"), notGif, QStringLiteral("-o"), out},
             2,
             QStringLiteral("is not a GIF")},
            {{QStringLiteral("--frobnicate"), source}, 2, QStringLiteral("frobnicate")},
        };
        for (const Case& c : cases) {
            QProcess vantalo;
            QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
            environment.remove(QStringLiteral("DISPLAY"));
            environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
            vantalo.setProcessEnvironment(environment);
            vantalo.start(QStringLiteral(VANTALO_BINARY), c.arguments);
            QVERIFY(vantalo.waitForFinished(60000));
            const QString said =
                QString::fromUtf8(vantalo.readAllStandardOutput() + vantalo.readAllStandardError());
            QVERIFY2(vantalo.exitCode() == c.exitCode && said.contains(c.says) &&
                         said.count(QLatin1Char('\n')) == 1,
                     qPrintable(c.arguments.join(QLatin1Char(' ')) + QStringLiteral(" → ") +
                                QString::number(vantalo.exitCode()) + QStringLiteral(": ") + said));
        }
    }

private:
    QTemporaryDir m_dir;
};

QTEST_GUILESS_MAIN(TestGifRecoder)
#include "tst_gifrecoder.moc"
