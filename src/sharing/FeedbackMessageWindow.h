#pragma once

#include <QWidget>

namespace vantalo {

// A short message ("Copied!") over the panel: fades in, stays 1.2 s, fades out and goes.
class FeedbackMessageWindow : public QWidget
{
    Q_OBJECT
public:
    static constexpr int minimumMessageWidth = 80;
    static constexpr int messageHeight = 32;

    FeedbackMessageWindow(const QString& message, bool compositing);
    QString message() const { return m_message; }
    // Centres the window on a point (Qt's global space).
    void showCentredOn(const QPoint& centre);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QString m_message;
    bool m_compositing;
};

} // namespace vantalo
