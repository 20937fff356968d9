#include "TrimWindow.h"

#include "common/Formatting.h"

#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QSlider>
#include <QVBoxLayout>

namespace vantalo {

TrimWindow::TrimWindow(const QString& gifPath, const QString& when, QWidget* parent)
    : QWidget(parent), m_path(gifPath)
{
    setWindowTitle(QStringLiteral("Trim \u2014 ") + when);
    auto* layout = new QVBoxLayout(this);

    m_picture = new QLabel(this);
    m_picture->setAlignment(Qt::AlignCenter);
    m_picture->setFixedSize(previewBox);
    m_picture->setText(QStringLiteral("Reading\u2026"));
    layout->addWidget(m_picture, 0, Qt::AlignHCenter);

    m_strip = new TrimTimelineView(this);
    m_strip->onHandleMoved = [this](TrimTimelineView::Handle handle) { spanChanged(handle); };
    layout->addWidget(m_strip);
    m_times = new QLabel(this);
    m_times->setAlignment(Qt::AlignCenter);
    layout->addWidget(m_times);

    auto* form = new QFormLayout;
    m_size = new QComboBox(this);
    m_size->addItem(outputScaleName(2), 2);
    m_size->addItem(outputScaleName(1), 1);
    m_rate = new QComboBox(this);
    m_rate->addItem(QStringLiteral("Every frame"), 100);
    for (const int rate : {15, 10, 5}) {
        m_rate->addItem(QStringLiteral("%1 fps").arg(rate), rate);
    }
    auto* lossyRow = new QHBoxLayout;
    m_lossy = new QSlider(Qt::Horizontal, this);
    m_lossy->setRange(0, 100);
    m_lossy->setSingleStep(10);
    m_lossy->setPageStep(20);
    m_lossy->setTickInterval(20);
    m_lossy->setTickPosition(QSlider::TicksBelow);
    m_lossyValue = new QLabel(this);
    m_lossyValue->setMinimumWidth(72);
    lossyRow->addWidget(m_lossy, 1);
    lossyRow->addWidget(m_lossyValue);
    m_fit = new QComboBox(this);
    m_fit->addItem(QStringLiteral("No limit"), qint64(0));
    for (const FitPreset& preset : fitPresets()) {
        m_fit->addItem(preset.label, preset.bytes);
    }
    form->addRow(QStringLiteral("Size"), m_size);
    form->addRow(QStringLiteral("Frame Rate"), m_rate);
    form->addRow(QStringLiteral("Quality"), lossyRow);
    form->addRow(QStringLiteral("Fit Under"), m_fit);
    m_estimate = new QLabel(this);
    form->addRow(QStringLiteral("Result"), m_estimate);
    layout->addLayout(form);

    auto* buttons = new QHBoxLayout;
    m_status = new QLabel(this);
    m_progress = new QProgressBar(this);
    m_progress->setRange(0, 100);
    m_progress->setVisible(false);
    m_close = new QPushButton(QStringLiteral("Close"), this);
    m_save = new QPushButton(QStringLiteral("Save"), this);
    m_save->setDefault(true);
    m_save->setEnabled(false);
    buttons->addWidget(m_status, 1);
    buttons->addWidget(m_progress, 1);
    buttons->addWidget(m_close);
    buttons->addWidget(m_save);
    layout->addLayout(buttons);

    connect(m_save, &QPushButton::clicked, this, &TrimWindow::save);
    connect(m_close, &QPushButton::clicked, this, [this] {
        if (m_job) {
            m_job->cancel();
        } else {
            close();
        }
    });
    for (QComboBox* box : {m_size, m_rate, m_fit}) {
        connect(box, &QComboBox::currentIndexChanged, this, &TrimWindow::outputChanged);
        box->setFocusPolicy(Qt::ClickFocus);
    }
    connect(m_lossy, &QSlider::valueChanged, this, &TrimWindow::outputChanged);
    m_lossy->setFocusPolicy(Qt::ClickFocus);
    m_save->setFocusPolicy(Qt::ClickFocus);
    m_close->setFocusPolicy(Qt::ClickFocus);
    setFocusPolicy(Qt::StrongFocus);

    // A pause in the changes, then one estimate.
    m_estimateDelay.setSingleShot(true);
    m_estimateDelay.setInterval(250);
    connect(&m_estimateDelay, &QTimer::timeout, this, &TrimWindow::estimate);
    m_playing.setSingleShot(true);
    connect(&m_playing, &QTimer::timeout, this, &TrimWindow::playNext);

    outputChanged();
    m_reading = std::jthread([this, path = gifPath](std::stop_token stop) {
        auto timeline = readGifTimeline(path, previewBox, stop);
        if (stop.stop_requested()) {
            return;
        }
        QMetaObject::invokeMethod(
            this, [this, timeline = std::move(timeline)]() mutable { loaded(std::move(timeline)); },
            Qt::QueuedConnection);
    });
}

TrimWindow::~TrimWindow()
{
    // The threads post to this window: they end before it does.
    m_reading.request_stop();
    m_estimating.request_stop();
    if (m_reading.joinable()) {
        m_reading.join();
    }
    if (m_estimating.joinable()) {
        m_estimating.join();
    }
    m_job.reset();
}

QString TrimWindow::timeLabel(qint64 hundredths)
{
    return QStringLiteral("%1:%2.%3")
        .arg(hundredths / 6000)
        .arg(hundredths / 100 % 60, 2, 10, QLatin1Char('0'))
        .arg(hundredths % 100, 2, 10, QLatin1Char('0'));
}

void TrimWindow::loaded(std::expected<GifTimeline, Failure> timeline)
{
    if (!timeline) {
        m_picture->setText(QStringLiteral("This GIF cannot be read"));
        m_status->setText(timeline.error().description);
        return;
    }
    m_timeline = std::move(*timeline);
    m_strip->setTimeline(&*m_timeline);
    const QSize full = m_timeline->size;
    m_size->setItemText(
        0, QStringLiteral("%1 (%2 \u00d7 %3)").arg(outputScaleName(2)).arg(full.width()).arg(full.height()));
    m_size->setItemText(1, QStringLiteral("%1 (%2 \u00d7 %3)")
                               .arg(outputScaleName(1))
                               .arg(full.width() / 2)
                               .arg(full.height() / 2));
    m_save->setEnabled(true);
    setSpan(m_timeline->suggestedSpan());
    togglePlaying();
}

FrameSpan TrimWindow::span() const
{
    return m_strip->span();
}

void TrimWindow::setSpan(FrameSpan span)
{
    if (!m_timeline) {
        return;
    }
    const int count = m_timeline->frameCount();
    span.end = std::clamp(span.end < 0 ? count : span.end, 1, count);
    span.first = std::clamp(span.first, 0, span.end - 1);
    m_strip->setSpan(span);
    spanChanged(m_active);
}

void TrimWindow::spanChanged(TrimTimelineView::Handle moved)
{
    const FrameSpan kept = span();
    m_active = moved;
    m_times->setText(timesText());
    // The frame at the handle that moved, still.
    m_playing.stop();
    showFrame(moved == TrimTimelineView::Handle::start ? kept.first : kept.end - 1);
    outputChanged();
}

QString TrimWindow::timesText() const
{
    if (!m_timeline) {
        return {};
    }
    const FrameSpan kept = span();
    const qint64 start = m_timeline->startOf(kept.first);
    const qint64 end = m_timeline->startOf(kept.end);
    return QStringLiteral("Start %1   End %2   Length %3 s")
        .arg(timeLabel(start), timeLabel(end), QString::number(double(end - start) / 100.0, 'f', 2));
}

void TrimWindow::showFrame(int frame)
{
    if (!m_timeline || frame < 0 || frame >= m_timeline->frameCount()) {
        return;
    }
    m_shown = frame;
    m_picture->setPixmap(QPixmap::fromImage(m_timeline->preview(frame)));
    m_strip->setPlayhead(frame);
}

void TrimWindow::togglePlaying()
{
    if (!m_timeline) {
        return;
    }
    if (m_playing.isActive()) {
        m_playing.stop();
        return;
    }
    const FrameSpan kept = span();
    if (m_shown < kept.first || m_shown >= kept.end) {
        showFrame(kept.first);
    }
    m_playing.start(std::max(20, m_timeline->delays[m_shown] * 10));
}

void TrimWindow::playNext()
{
    const FrameSpan kept = span();
    showFrame(m_shown + 1 < kept.end && m_shown >= kept.first ? m_shown + 1 : kept.first);
    m_playing.start(std::max(20, m_timeline->delays[m_shown] * 10));
}

void TrimWindow::moveHandle(TrimTimelineView::Handle handle, int step)
{
    if (!m_timeline) {
        return;
    }
    FrameSpan kept = span();
    if (handle == TrimTimelineView::Handle::start) {
        kept.first = std::clamp(kept.first + step, 0, kept.end - 1);
    } else {
        kept.end = std::clamp(kept.end + step, kept.first + 1, m_timeline->frameCount());
    }
    m_strip->setSpan(kept);
    spanChanged(handle);
}

void TrimWindow::keyPressEvent(QKeyEvent* event)
{
    using Handle = TrimTimelineView::Handle;
    switch (event->key()) {
    case Qt::Key_Space:
        togglePlaying();
        return;
    case Qt::Key_Left:
    case Qt::Key_Right: {
        const int step = event->key() == Qt::Key_Left ? -1 : 1;
        const Handle other = m_active == Handle::start ? Handle::end : Handle::start;
        const Handle active = m_active;
        moveHandle(event->modifiers() & Qt::ShiftModifier ? other : active, step);
        m_active = active; // the other handle moves, this one stays the one the arrows move
        return;
    }
    case Qt::Key_Escape:
        close();
        return;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        save();
        return;
    default:
        QWidget::keyPressEvent(event);
    }
}

OutputSettings TrimWindow::outputSettings() const
{
    return {m_size->currentData().toInt(), m_rate->currentData().toInt(), m_lossy->value()};
}

qint64 TrimWindow::fitBudget() const
{
    return m_fit->currentData().toLongLong();
}

void TrimWindow::enableLevers()
{
    // A size to fit under picks the levers itself.
    for (QWidget* lever : std::initializer_list<QWidget*>{m_size, m_rate, m_lossy}) {
        lever->setEnabled(fitBudget() == 0 && !m_job);
    }
    m_fit->setEnabled(!m_job);
}

void TrimWindow::outputChanged()
{
    enableLevers();
    const bool fitting = fitBudget() > 0;
    m_lossyValue->setText(m_lossy->value() == 0 ? QStringLiteral("Lossless")
                                                : QStringLiteral("Lossy %1").arg(m_lossy->value()));
    ++m_estimateGeneration;
    if (fitting) {
        m_estimateText = QStringLiteral("At most %1").arg(budgetLabel(fitBudget()));
        m_estimate->setText(m_estimateText);
        m_estimateDelay.stop();
        return;
    }
    m_estimateText = estimatingText();
    m_estimate->setText(m_estimateText);
    if (m_timeline) {
        m_estimateDelay.start();
    }
}

void TrimWindow::estimate()
{
    m_estimating.request_stop();
    if (m_estimating.joinable()) {
        m_estimating.join();
    }
    const int generation = m_estimateGeneration;
    m_estimating = std::jthread([this, generation, path = m_path, settings = outputSettings(),
                                 kept = span()](std::stop_token stop) {
        const auto estimated = estimateGifBytes(path, settings, kept, estimateTime, stop);
        if (stop.stop_requested()) {
            return;
        }
        QMetaObject::invokeMethod(
            this,
            [this, generation, estimated] {
                if (generation != m_estimateGeneration) {
                    return; // something changed since: a newer estimate is coming
                }
                m_estimateText = estimated ? QStringLiteral("About %1").arg(fileSizeLabel(estimated->bytes))
                                           : QStringLiteral("Cannot be estimated");
                m_estimate->setText(m_estimateText);
            },
            Qt::QueuedConnection);
    });
}

QString TrimWindow::estimateText() const
{
    return m_estimateText;
}

QString TrimWindow::statusText() const
{
    return m_status->text();
}

void TrimWindow::setWorking(bool working)
{
    m_progress->setVisible(working);
    m_progress->setValue(0);
    m_status->setVisible(!working);
    m_save->setEnabled(!working && m_timeline);
    m_close->setText(working ? QStringLiteral("Cancel") : QStringLiteral("Close"));
    m_strip->setEnabled(!working);
    enableLevers();
    if (!working && m_estimateText == estimatingText()) {
        outputChanged(); // the estimate the save stopped
    }
}

void TrimWindow::save()
{
    if (!m_timeline || m_job) {
        return;
    }
    m_playing.stop();
    // The save has the processor to itself; an estimate it stops is made again if the save is
    // cancelled.
    m_estimateDelay.stop();
    m_estimating.request_stop();
    const qint64 budget = fitBudget();
    m_job =
        budget > 0 ? GifJob::fit(m_path, budget, span()) : GifJob::recode(m_path, outputSettings(), span());
    connect(m_job.get(), &GifJob::progressed, this,
            [this](double fraction) { m_progress->setValue(int(fraction * 100)); });
    connect(m_job.get(), &GifJob::finished, this, [this](const GifJobOutcome& outcome) {
        m_job.release()->deleteLater();
        setWorking(false);
        switch (outcome.kind) {
        case GifJobOutcome::Kind::made:
            m_status->setText(QStringLiteral("Saved: %1").arg(fileSizeLabel(outcome.bytes)));
            if (onSaved) {
                onSaved(outcome.path);
            }
            close();
            return;
        case GifJobOutcome::Kind::cancelled:
            m_status->setText(QStringLiteral("Cancelled"));
            return;
        default:
            m_status->setText(outcome.message);
            return;
        }
    });
    setWorking(true);
}

void TrimWindow::closeEvent(QCloseEvent* event)
{
    m_playing.stop();
    if (m_job) {
        m_job->cancel();
    }
    QWidget::closeEvent(event);
}

} // namespace vantalo
