#pragma once

#include <QObject>
#include <QTimer>

namespace vantalo {

// What the recording toolbar shows: the Start look or the recording look with its time.
class RecordingToolbarState : public QObject
{
    Q_OBJECT
public:
    explicit RecordingToolbarState(QObject* parent = nullptr);

    bool isRecording() const { return m_isRecording; }
    double elapsedSeconds() const { return m_elapsedSeconds; }
    void setElapsedSeconds(double seconds);
    bool isTimerRunning() const { return m_timer.isActive(); }

    // Recording look, time back to 0, and a tick adding exactly one second each second.
    void startTimer();
    // Start look; the time keeps its value.
    void stopTimer();

    // "m:ss" of whole seconds.
    static QString elapsedLabel(double seconds);

Q_SIGNALS:
    void changed();

private:
    bool m_isRecording = false;
    double m_elapsedSeconds = 0;
    QTimer m_timer;
};

} // namespace vantalo
