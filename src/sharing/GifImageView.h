#pragma once

#include <QMovie>
#include <QWidget>

#include <functional>
#include <memory>

namespace vantalo {

// Plays a GIF file scaled to fit, keeping its aspect ratio; stays empty when the file cannot be
// read. Only animates while visible.
class GifImageView : public QWidget
{
    Q_OBJECT
public:
    GifImageView(const QString& path, QSize maximumSize, QWidget* parent = nullptr);

    // The picture's size once fitted into the maximum (up or down); empty for an unreadable file.
    QSize fittedSize() const { return m_fitted; }
    bool isPlaying() const { return m_movie && m_movie->state() == QMovie::Running; }
    // The text in the badge at the bottom-right corner (none when empty).
    void setBadge(const QString& text);
    QString badge() const { return m_badge; }

    std::function<void()> onClick;
    // A press and drag takes the file out (a drag and drop); told when it starts and ends.
    std::function<void(bool dragging)> onDragging;

protected:
    void paintEvent(QPaintEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    QString m_path;
    std::unique_ptr<QMovie> m_movie;
    QSize m_fitted;
    QString m_badge;
    QPoint m_pressGlobal;
    bool m_pressed = false;
};

} // namespace vantalo
