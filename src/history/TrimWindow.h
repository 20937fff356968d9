#pragma once

#include "TrimTimelineView.h"
#include "recording/GifJob.h"
#include "recording/GifTimeline.h"

#include <QPointer>
#include <QTimer>
#include <QWidget>

#include <functional>
#include <memory>
#include <optional>
#include <thread>

class QComboBox;
class QLabel;
class QProgressBar;
class QPushButton;
class QSlider;

namespace vantalo {

// "Trim and more…": the GIF playing over a strip with a start and an end handle, the output
// choices (size, frame rate, lossy compression, or a size to fit under) with an estimate of the
// result, and Save, which writes the kept frames as a new GIF.
class TrimWindow : public QWidget
{
    Q_OBJECT
public:
    static constexpr QSize previewBox{480, 300};
    // How long an estimate may encode before it scales what it has.
    static constexpr std::chrono::milliseconds estimateTime{700};

    // `when` names the recording in the title ("Trim — 24/11/2026, 10:32").
    TrimWindow(const QString& gifPath, const QString& when, QWidget* parent = nullptr);
    ~TrimWindow() override;

    QString gifPath() const { return m_path; }
    // Told the new GIF once it is written; the window then closes.
    std::function<void(const QString& path)> onSaved;

    bool isLoaded() const { return m_timeline.has_value(); }
    const GifTimeline* timeline() const { return m_timeline ? &*m_timeline : nullptr; }
    FrameSpan span() const;
    void setSpan(FrameSpan span);
    bool isPlaying() const { return m_playing.isActive(); }
    int shownFrame() const { return m_shown; }
    // "Start 0:01.20   End 0:08.40   Length 7.20 s"
    QString timesText() const;
    QString estimateText() const;
    QString statusText() const;
    TrimTimelineView* timelineView() const { return m_strip; }
    QComboBox* sizeBox() const { return m_size; }
    QComboBox* frameRateBox() const { return m_rate; }
    QSlider* lossySlider() const { return m_lossy; }
    QComboBox* fitBox() const { return m_fit; }
    QPushButton* saveButton() const { return m_save; }
    QPushButton* closeButton() const { return m_close; }
    GifJob* savingJob() const { return m_job.get(); }
    // The settings the output choices make (the fit's size aside).
    OutputSettings outputSettings() const;

    void save();
    void togglePlaying();

    static QString timeLabel(qint64 hundredths); // "0:01.20"

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    void loaded(std::expected<GifTimeline, Failure> timeline);
    void spanChanged(TrimTimelineView::Handle moved);
    void showFrame(int frame);
    void playNext();
    static QString estimatingText() { return QStringLiteral("Estimating\u2026"); }
    qint64 fitBudget() const; // 0: no size to fit under
    void enableLevers();
    void outputChanged();
    void estimate();
    void moveHandle(TrimTimelineView::Handle handle, int step);
    void setWorking(bool working);

    QString m_path;
    std::optional<GifTimeline> m_timeline;
    std::jthread m_reading;
    QLabel* m_picture;
    TrimTimelineView* m_strip;
    QLabel* m_times;
    QComboBox* m_size;
    QComboBox* m_rate;
    QSlider* m_lossy;
    QLabel* m_lossyValue;
    QComboBox* m_fit;
    QLabel* m_estimate;
    QLabel* m_status;
    QProgressBar* m_progress;
    QPushButton* m_save;
    QPushButton* m_close;
    TrimTimelineView::Handle m_active = TrimTimelineView::Handle::start;
    int m_shown = -1;
    QTimer m_playing;
    QTimer m_estimateDelay;
    std::jthread m_estimating;
    int m_estimateGeneration = 0;
    QString m_estimateText;
    std::unique_ptr<GifJob> m_job;
};

} // namespace vantalo
