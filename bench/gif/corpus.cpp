// Makes the GIF benchmark's corpus: four 800 × 600 scenes shown on an X display and recorded
// with Vantalo's own recorder, saved as 150 PNG frames each at twice the size (1600 × 1200), and
// 30 s (450 frames) of the scrolled page.
#include "platform/x11/X11CaptureBackend.h"
#include "recording/ScreenRecorder.h"

#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QPainter>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRandomGenerator>
#include <QScrollBar>
#include <QTextBrowser>
#include <QTimer>
#include <QVBoxLayout>
#include <QtConcurrent/QtConcurrentMap>

#include <cmath>
#include <functional>
#include <numeric>

using namespace vantalo;

namespace {

// Text typed into a terminal, line by line, scrolling as it fills.
QWidget* terminalScene(QTimer& tick)
{
    auto* terminal = new QPlainTextEdit;
    terminal->setStyleSheet(QStringLiteral("background: #1e1e1e; color: #d4d4d4; border: none;"));
    QFont font(QStringLiteral("DejaVu Sans Mono"));
    font.setPixelSize(14);
    terminal->setFont(font);
    terminal->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    const QStringList lines{
        QStringLiteral("$ cmake --build build"),
        QStringLiteral("[1/42] Building CXX object src/CMakeFiles/core.dir/Frame.cpp.o"),
        QStringLiteral("[2/42] Building CXX object src/CMakeFiles/core.dir/GifWriter.cpp.o"),
        QStringLiteral("$ ls -la /usr/share/doc | head"),
        QStringLiteral("drwxr-xr-x 2 root root 4096 Nov 23 00:32 adduser"),
        QStringLiteral("-rw-r--r-- 1 root root  811 Nov 23 00:32 README.Debian"),
        QStringLiteral("$ git log --oneline | head -3"),
        QStringLiteral("96c334c GIF encoder: own GIF89a/LZW writer"),
        QStringLiteral("d12bd2d Capture benchmark")};
    auto typed = std::make_shared<int>(0);
    QObject::connect(&tick, &QTimer::timeout, terminal, [terminal, lines, typed] {
        // Six characters a tick, a new line at each line's end.
        for (int i = 0; i < 6; ++i) {
            const QString& line = lines[(*typed / 80) % lines.size()];
            const int column = *typed % 80;
            if (column < line.size()) {
                terminal->insertPlainText(line.mid(column, 1));
            } else if (column == line.size()) {
                terminal->appendPlainText(QString());
            }
            ++*typed;
        }
        terminal->verticalScrollBar()->setValue(terminal->verticalScrollBar()->maximum());
    });
    return terminal;
}

// A long page with headings, text and coloured blocks, scrolled in bursts.
QWidget* webScene(QTimer& tick)
{
    auto* page = new QTextBrowser;
    QString html = QStringLiteral("<body style='font-family: DejaVu Sans; background: white;'>");
    for (int section = 0; section < 30; ++section) {
        html += QStringLiteral("<h2 style='color:#1a4d8f'>Section %1: recording the screen</h2>")
                    .arg(section + 1);
        html +=
            QStringLiteral("<table width='100%'><tr><td bgcolor='#%1' height='60'>&nbsp;</td></tr></table>")
                .arg(QString::number(0x336699 + section * 0x0a1f07, 16).right(6));
        html +=
            QStringLiteral(
                "<p>Vantalo lives in the tray. Press the shortcut, drag a rectangle, press Start, and the "
                "GIF lands in a small panel from which it can be copied or uploaded. %1</p>")
                .arg(QStringLiteral("Lorem ipsum dolor sit amet. ").repeated(section % 4 + 2));
    }
    page->setHtml(html + QStringLiteral("</body>"));
    page->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    auto step = std::make_shared<int>(0);
    QObject::connect(&tick, &QTimer::timeout, page, [page, step] {
        // Two thirds of a second still, then a third scrolling.
        if ((*step)++ % 15 >= 10) {
            page->verticalScrollBar()->setValue(page->verticalScrollBar()->value() + 40);
        }
    });
    return page;
}

class Spinner : public QWidget
{
public:
    using QWidget::QWidget;
    int angle = 0;

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        p.translate(width() / 2.0, height() / 2.0);
        for (int i = 0; i < 12; ++i) {
            p.setBrush(QColor(60, 60, 60, 255 - ((i * 20 + angle) % 240)));
            p.setPen(Qt::NoPen);
            p.drawRoundedRect(QRectF(10, -2, 12, 4), 2, 2);
            p.rotate(30);
        }
    }
};

// A still dialog with a spinner turning and the pointer wandering over it.
QWidget* staticScene(QTimer& tick)
{
    auto* window = new QWidget;
    window->setStyleSheet(QStringLiteral("background: #ececec;"));
    auto* layout = new QVBoxLayout(window);
    auto* title = new QLabel(QStringLiteral("<h2>Preparing your export…</h2>"));
    auto* body =
        new QLabel(QStringLiteral("This can take a moment. The file is written to your Videos folder."));
    body->setWordWrap(true);
    auto* spinner = new Spinner;
    spinner->setFixedSize(64, 64);
    layout->addWidget(title);
    layout->addWidget(body);
    layout->addWidget(spinner, 0, Qt::AlignCenter);
    layout->addWidget(new QPushButton(QStringLiteral("Cancel")), 0, Qt::AlignRight);
    auto step = std::make_shared<int>(0);
    QObject::connect(&tick, &QTimer::timeout, window, [window, spinner, step] {
        spinner->angle = (spinner->angle + 30) % 360;
        spinner->update();
        const int s = (*step)++;
        QCursor::setPos(window->mapToGlobal(
            QPoint(200 + int(150 * std::cos(s * 0.05)), 300 + int(100 * std::sin(s * 0.07)))));
    });
    return window;
}

// Colour everywhere, changing everywhere: the hardest case for a 256-colour palette.
class Gradient : public QWidget
{
public:
    double t = 0;

protected:
    void paintEvent(QPaintEvent*) override
    {
        QImage image(size(), QImage::Format_RGB32);
        for (int y = 0; y < height(); ++y) {
            auto* row = reinterpret_cast<QRgb*>(image.scanLine(y));
            for (int x = 0; x < width(); ++x) {
                const double u = x / double(width());
                const double v = y / double(height());
                row[x] = qRgb(int(127 + 127 * std::sin(6 * u + t)),
                              int(127 + 127 * std::sin(5 * v - t * 0.7 + u * 3)),
                              int(127 + 127 * std::cos(4 * (u + v) + t * 1.3)));
            }
        }
        QPainter(this).drawImage(0, 0, image);
    }
};

QWidget* photoScene(QTimer& tick)
{
    auto* gradient = new Gradient;
    QObject::connect(&tick, &QTimer::timeout, gradient, [gradient] {
        gradient->t += 0.08;
        gradient->update();
    });
    return gradient;
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    const QString out = app.arguments().value(1, QStringLiteral("corpus"));
    struct Scene
    {
        QString name;
        std::function<QWidget*(QTimer&)> make;
        int frames;
    };
    const std::vector<Scene> scenes{
        {QStringLiteral("terminal"), terminalScene, 150}, {QStringLiteral("web"), webScene, 150},
        {QStringLiteral("static"), staticScene, 150},     {QStringLiteral("photo"), photoScene, 150},
        {QStringLiteral("web30"), webScene, 450},
    };
    const QStringList only = app.arguments().mid(2);
    for (const auto& [name, make, kFrames] : scenes) {
        if (!only.isEmpty() && !only.contains(name)) {
            continue;
        }
        QTimer tick;
        tick.setInterval(1000 / 15);
        std::unique_ptr<QWidget> window(make(tick));
        window->setWindowFlags(Qt::FramelessWindowHint | Qt::X11BypassWindowManagerHint);
        window->setGeometry(100, 100, 800, 600);
        window->show();
        for (int i = 0; i < 20; ++i) {
            QCoreApplication::processEvents();
        }
        tick.start();

        ScreenRecorder recorder(std::make_unique<X11CaptureBackend>(), [](const QString&) { return 1.0; });
        FrameList frames; // filled on the capture thread, read once the stop has joined it
        recorder.frameSink = [&frames](const Frame& frame) { frames.append(frame); };
        QEventLoop loop;
        recorder.startRecording(
            QRectF(100, 100, 800, 600), QString(), 15, 60, [&](std::expected<void, Failure> ok) {
                if (!ok) {
                    std::fprintf(stderr, "%s: %s\n", qPrintable(name), qPrintable(ok.error().description));
                    loop.quit();
                    return;
                }
                QTimer::singleShot(kFrames * 1000 / 15 + 300, Qt::PreciseTimer, &loop, [&] {
                    recorder.stopRecording([&](std::expected<void, Failure>) {
                        frames = frames.mid(0, kFrames);
                        loop.quit();
                    });
                });
            });
        loop.exec();
        tick.stop();
        if (frames.size() < kFrames) {
            std::fprintf(stderr, "%s: only %lld frames\n", qPrintable(name),
                         static_cast<long long>(frames.size()));
            return 1;
        }
        QDir().mkpath(out + QLatin1Char('/') + name);
        QList<int> order(frames.size());
        std::iota(order.begin(), order.end(), 0);
        QtConcurrent::blockingMap(order, [&](int k) {
            frames[k].fullSize().save(
                QStringLiteral("%1/%2/frame_%3.png").arg(out, name).arg(k + 1, 4, 10, QLatin1Char('0')));
        });
        std::printf("%s: %lld frames\n", qPrintable(name), static_cast<long long>(frames.size()));
    }
    return 0;
}
