// Opens the history window on a history of N GIFs and reports how long the window takes to show
// its first screen of thumbnails, how long scrolling a page takes, and the process's peak memory.
// The peer is the straightforward window: a grid of labels, each playing its own QMovie.
#include "../common/ProcessStats.h"
#include "history/GifHistoryStore.h"
#include "history/HistoryGridView.h"
#include "history/HistoryPanelController.h"
#include "recording/GifWriter.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QGridLayout>
#include <QLabel>
#include <QMovie>
#include <QPainter>
#include <QScrollArea>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QTextStream>

#include <cstdio>

using namespace vantalo;

namespace {

// A 480 × 300 clip of 20 frames: a square crossing a gradient, as a short screen recording.
QByteArray sampleGif()
{
    const QSize size(480, 300);
    QList<QRgb> palette;
    for (int i = 0; i < 256; ++i) {
        palette.append(qRgb(i, 255 - i, 128));
    }
    QList<EncodedFrame> frames;
    for (int f = 0; f < 20; ++f) {
        std::vector<quint8> indices(size_t(size.width() * size.height()));
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x) {
                const bool square = x >= f * 20 && x < f * 20 + 60 && y >= 100 && y < 160;
                indices[size_t(y * size.width() + x)] = square ? 255 : quint8((x + y) * 255 / 780);
            }
        }
        frames.append(EncodedFrame{QRect(QPoint(), size), palette, -1, 8, lzwCompress(indices, 8)});
    }
    return assembleGif(size, frames, gifDelays(20, 1.0 / 15));
}

// Runs the event loop until `widget` has painted once.
class PaintWatch : public QObject
{
public:
    bool painted = false;
    bool eventFilter(QObject*, QEvent* event) override
    {
        if (event->type() == QEvent::Paint) {
            painted = true;
        }
        return false;
    }
};

void waitForPaint(QWidget* widget)
{
    PaintWatch watch;
    widget->installEventFilter(&watch);
    while (!watch.painted) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    QCoreApplication::processEvents(); // let the paint finish
    widget->removeEventFilter(&watch);
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addOption(
        {QStringLiteral("items"), QStringLiteral("GIFs in the history"), QStringLiteral("n"), "100"});
    parser.addOption(
        {QStringLiteral("peer"), QStringLiteral("open the naive grid of QMovie labels instead")});
    parser.process(app);
    const int count = parser.value(QStringLiteral("items")).toInt();
    const bool peer = parser.isSet(QStringLiteral("peer"));

    QTemporaryDir dir;
    GifHistoryStore store(dir.filePath(QStringLiteral("Vantalo")), [](const QString&) {});
    const QByteArray gif = sampleGif();
    for (int i = 0; i < count; ++i) {
        const QString path = dir.filePath(QStringLiteral("in.gif"));
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(gif) != gif.size()) {
            return 1;
        }
        file.close();
        if (!store.addGif(path)) {
            return 1;
        }
    }
    const double rssBefore = bench::peakRssMb();

    QElapsedTimer clock;
    clock.start();
    QWidget* window = nullptr;
    QAbstractScrollArea* scroller = nullptr;
    HistoryPanelController controller(store, [] { return QStringLiteral("Ctrl+G"); });
    std::unique_ptr<QScrollArea> naive;
    if (peer) {
        naive = std::make_unique<QScrollArea>();
        auto* grid = new QWidget;
        auto* layout = new QGridLayout(grid);
        const QList<GifHistoryItem> items = store.loadItems();
        for (int i = 0; i < items.size(); ++i) {
            auto* label = new QLabel(grid);
            auto* movie = new QMovie(store.filePath(items[i]), {}, label);
            movie->setScaledSize(QSize(128, 80));
            label->setMovie(movie);
            movie->start();
            layout->addWidget(label, i / 3, i % 3);
        }
        naive->setWidget(grid);
        naive->resize(480, 400);
        naive->show();
        window = naive.get();
        scroller = naive.get();
    } else {
        controller.show();
        window = controller.window();
        scroller = window->findChild<HistoryGridView*>();
    }
    waitForPaint(scroller->viewport());
    const double openMs = clock.nsecsElapsed() / 1e6;

    // Page through the whole list, repainting each page, as a fast scroll does.
    QScrollBar* bar = scroller->verticalScrollBar();
    int pages = 0;
    clock.restart();
    while (bar->value() < bar->maximum()) {
        bar->setValue(bar->value() + bar->pageStep());
        scroller->viewport()->repaint();
        QCoreApplication::processEvents();
        ++pages;
    }
    const double pageMs = pages > 0 ? clock.nsecsElapsed() / 1e6 / pages : 0.0;
    // Two seconds of animation at the end of the list.
    clock.restart();
    while (clock.elapsed() < 2000) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    std::printf(
        "%-8s items=%-5d open_ms=%8.1f page_ms=%7.2f pages=%-4d rss_before_mb=%6.1f peak_rss_mb=%7.1f\n",
        peer ? "naive" : "vantalo", count, openMs, pageMs, pages, rssBefore, bench::peakRssMb());
    return 0;
}
