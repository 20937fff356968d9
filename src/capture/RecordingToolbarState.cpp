#include "RecordingToolbarState.h"

#include <cmath>

namespace vantalo {

RecordingToolbarState::RecordingToolbarState(QObject* parent) : QObject(parent)
{
    m_timer.setInterval(1000);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, [this] { setElapsedSeconds(m_elapsedSeconds + 1.0); });
}

void RecordingToolbarState::setElapsedSeconds(double seconds)
{
    m_elapsedSeconds = seconds;
    Q_EMIT changed();
}

void RecordingToolbarState::startTimer()
{
    m_isRecording = true;
    m_isPaused = false;
    m_elapsedSeconds = 0;
    m_timer.start();
    Q_EMIT changed();
}

void RecordingToolbarState::stopTimer()
{
    m_isRecording = false;
    m_isPaused = false;
    m_timer.stop();
    Q_EMIT changed();
}

void RecordingToolbarState::setPaused(bool paused)
{
    if (!m_isRecording || paused == m_isPaused) {
        return;
    }
    m_isPaused = paused;
    if (paused) {
        m_timer.stop();
    } else {
        m_timer.start();
    }
    Q_EMIT changed();
}

QString RecordingToolbarState::elapsedLabel(double seconds, double limitSeconds)
{
    if (const double left = limitSeconds - seconds; left <= kWarningSeconds) {
        return QStringLiteral("%1 s left").arg(std::max(0LL, static_cast<long long>(std::ceil(left))));
    }
    const auto whole = static_cast<long long>(std::floor(std::max(0.0, seconds)));
    return QStringLiteral("%1:%2").arg(whole / 60).arg(whole % 60, 2, 10, QLatin1Char('0'));
}

} // namespace vantalo
