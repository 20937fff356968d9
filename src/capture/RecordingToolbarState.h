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
    // While recording: the time stands still and the label reads "Paused" until the resume.
    void setPaused(bool paused);
    bool isPaused() const { return m_isPaused; }

    // "m:ss" of whole seconds; in the last five seconds before `limitSeconds`, the time left
    // ("3 s left"), so the end of a recording never comes as a surprise.
    static QString elapsedLabel(double seconds, double limitSeconds);
    // The recording's limit, for the label.
    void setLimitSeconds(double seconds) { m_limitSeconds = seconds; }
    QString label() const
    {
        return m_isPaused ? QStringLiteral("Paused") : elapsedLabel(m_elapsedSeconds, m_limitSeconds);
    }
    // The label is in its last seconds.
    bool nearTheLimit() const
    {
        return m_isRecording && !m_isPaused && m_limitSeconds - m_elapsedSeconds <= kWarningSeconds;
    }
    static constexpr double kWarningSeconds = 5;

Q_SIGNALS:
    void changed();

private:
    bool m_isRecording = false;
    bool m_isPaused = false;
    double m_elapsedSeconds = 0;
    double m_limitSeconds = 30;
    QTimer m_timer;
};

} // namespace vantalo
