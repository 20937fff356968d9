#include "RegionPreviewOverlay.h"

#include <QFontDatabase>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPainter>
#include <QStandardItemModel>

namespace vantalo {

namespace {
Qt::CursorShape qtCursor(geometry::CursorShape shape)
{
    switch (shape) {
    case geometry::CursorShape::crosshair:
        return Qt::CrossCursor;
    case geometry::CursorShape::resizeUpDown:
        return Qt::SizeVerCursor;
    case geometry::CursorShape::resizeLeftRight:
        return Qt::SizeHorCursor;
    case geometry::CursorShape::openHand:
        return Qt::OpenHandCursor;
    case geometry::CursorShape::closedHand:
        return Qt::ClosedHandCursor;
    case geometry::CursorShape::arrow:
        return Qt::ArrowCursor;
    }
    return Qt::ArrowCursor;
}
} // namespace

RegionPreviewView::RegionPreviewView(QScreen* screen, const QImage& still, const QRectF& region)
    : OverlayWindow(screen, still, 0.38), m_region(region)
{
}

void RegionPreviewView::mousePressEvent(QMouseEvent* event)
{
    if (m_labelBox.contains(event->position())) {
        editSize();
        return;
    }
    closeSizeEditor();
    const QPointF p = pointerInView(event->position());
    if (const auto handle = geometry::hitHandle(p, m_region)) {
        m_activeHandle = handle;
        m_isMoving = false;
        setCursor(qtCursor(geometry::handleCursor(*handle)));
    } else if (geometry::startsMove(p, m_region)) {
        m_isMoving = true;
        m_activeHandle.reset();
        setCursor(Qt::ClosedHandCursor);
    }
    m_dragStart = p;
    m_baseRegion = m_region;
}

void RegionPreviewView::mouseMoveEvent(QMouseEvent* event)
{
    const QPointF p = pointerInView(event->position());
    if (!m_isMoving && !m_activeHandle) {
        updateCursor(p);
        return;
    }
    const QPointF delta = p - m_dragStart;
    setRegion(m_isMoving ? geometry::movedRegion(m_baseRegion, delta)
                         : geometry::resizedRegion(*m_activeHandle, m_baseRegion, delta));
}

void RegionPreviewView::setRegion(const QRectF& region)
{
    m_region = region;
    update();
    if (onRegionChanged) {
        onRegionChanged(m_region);
    }
}

void RegionPreviewView::keyPressEvent(QKeyEvent* event)
{
    const double step = event->modifiers() & Qt::ShiftModifier ? 10 : 1;
    switch (event->key()) {
    case Qt::Key_Left:
        return setRegion(geometry::movedRegion(m_region, QPointF(-step, 0)));
    case Qt::Key_Right:
        return setRegion(geometry::movedRegion(m_region, QPointF(step, 0)));
    case Qt::Key_Up: // y grows upward here
        return setRegion(geometry::movedRegion(m_region, QPointF(0, step)));
    case Qt::Key_Down:
        return setRegion(geometry::movedRegion(m_region, QPointF(0, -step)));
    case Qt::Key_Tab:
        return editSize();
    default:
        OverlayWindow::keyPressEvent(event);
    }
}

void RegionPreviewView::setCountdown(int secondsLeft)
{
    m_countdown = secondsLeft;
    update();
}

void RegionPreviewView::editSize()
{
    if (m_sizeEditor) {
        return;
    }
    auto* editor = new QComboBox(this);
    editor->setEditable(true);
    editor->setInsertPolicy(QComboBox::NoInsert);
    const QSizeF view(size());
    auto* presets = new QStandardItemModel(editor);
    for (const QSizeF& preset : geometry::sizePresets) {
        auto* item = new QStandardItem(geometry::sizeLabel(QRectF(QPointF(), preset)));
        item->setData(preset, Qt::UserRole);
        // Greyed where it does not fit the display.
        item->setEnabled(preset.width() <= view.width() && preset.height() <= view.height());
        presets->appendRow(item);
    }
    editor->setModel(presets);
    editor->setEditText(geometry::sizeLabel(m_region));
    editor->lineEdit()->selectAll();
    editor->setToolTip(QStringLiteral("Type a size (1280 \u00D7 720) and press Return, or pick one"));
    const QRectF label = m_labelBox.isEmpty() ? QRectF(toWidget(m_region).center(), QSizeF()) : m_labelBox;
    const QSize hint(std::max(170, editor->sizeHint().width()), editor->sizeHint().height());
    QRect frame(QPoint(), hint);
    frame.moveCenter(label.center().toPoint());
    editor->setGeometry(frame.intersected(rect()).isEmpty() ? QRect(QPoint(8, 8), hint) : frame);
    const auto take = [this](const QSizeF& typed) {
        closeSizeEditor();
        setRegion(geometry::resizedTo(m_region, typed, QSizeF(size())));
    };
    connect(editor->lineEdit(), &QLineEdit::returnPressed, this, [this, editor, take] {
        if (const auto typed = geometry::parseSize(editor->currentText())) {
            take(*typed);
        } else {
            editor->lineEdit()->selectAll(); // not a size: left to be typed again
        }
    });
    connect(editor, &QComboBox::activated, this,
            [editor, take](int index) { take(editor->itemData(index).toSizeF()); });
    editor->lineEdit()->installEventFilter(this);
    m_sizeEditor = editor;
    // The keys go to the editor while it is open.
    releaseKeyboard();
    editor->show();
    editor->setFocus();
    editor->lineEdit()->grabKeyboard();
    update();
}

void RegionPreviewView::closeSizeEditor()
{
    if (!m_sizeEditor) {
        return;
    }
    m_sizeEditor->lineEdit()->releaseKeyboard();
    m_sizeEditor->hide();
    m_sizeEditor->deleteLater();
    m_sizeEditor = nullptr;
    setFocus();
    grabKeyboard();
    update();
}

bool RegionPreviewView::eventFilter(QObject* watched, QEvent* event)
{
    if (m_sizeEditor && watched == m_sizeEditor->lineEdit() && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent*>(event)->key();
        if (key == Qt::Key_Escape || key == Qt::Key_Tab) {
            closeSizeEditor(); // back to the region; a second Escape cancels
            return true;
        }
    }
    return OverlayWindow::eventFilter(watched, event);
}

void RegionPreviewView::mouseReleaseEvent(QMouseEvent* event)
{
    m_activeHandle.reset();
    m_isMoving = false;
    updateCursor(pointerInView(event->position()));
}

void RegionPreviewView::updateCursor(const QPointF& viewPoint)
{
    setCursor(qtCursor(geometry::cursorAt(viewPoint, m_region)));
}

void RegionPreviewView::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    paintDimmed(p, m_region);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(QColor(255, 255, 255, qRound(0.9 * 255)), 1.5));
    p.setBrush(Qt::NoBrush);
    p.drawRect(toWidget(m_region));

    p.setPen(QPen(QColor(0, 0, 0, qRound(0.25 * 255)), 1));
    p.setBrush(Qt::white);
    for (geometry::Handle handle : geometry::allHandles) {
        const QPointF centre = toWidget(QRectF(geometry::handleCentre(handle, m_region), QSizeF())).topLeft();
        p.drawEllipse(centre, geometry::handleRadius, geometry::handleRadius);
    }

    if (m_countdown > 0) {
        // Large in the middle of the region, on a dark disc: seen over any content.
        const QRectF hole = toWidget(m_region);
        const double side = std::clamp(std::min(hole.width(), hole.height()) * 0.6, 24.0, 160.0);
        QRectF disc(QPointF(), QSizeF(side, side));
        disc.moveCenter(hole.center());
        p.setPen(Qt::NoPen);
        p.setBrush(QColor(0, 0, 0, 150));
        p.drawEllipse(disc);
        QFont font = p.font();
        font.setPixelSize(int(side * 0.6));
        font.setWeight(QFont::Bold);
        p.setFont(font);
        p.setPen(Qt::white);
        p.drawText(disc, Qt::AlignCenter, QString::number(m_countdown));
    }
    if (!m_sizeEditor) {
        m_labelBox = paintSizePill(p, m_region, 11, 0.65, [&](const QSizeF& text) {
            return geometry::previewLabelBox(m_region, text, QSizeF(size()));
        });
    }
}

void RegionPreviewOverlay::show(const DisplayInfo& display, const QRectF& region)
{
    closeWindow();
    QScreen* screen = QGuiApplication::primaryScreen();
    for (QScreen* candidate : QGuiApplication::screens()) {
        if (candidate->name() == display.name) {
            screen = candidate;
        }
    }
    const bool compositing = m_compositing && m_compositing();
    auto* view = new RegionPreviewView(screen, compositing ? QImage() : m_stills->stillOf(screen),
                                       geometry::globalToView(region, display.frame));
    view->onRegionChanged = [this, view](const QRectF& viewRegion) {
        if (onRegionChanged) {
            onRegionChanged(geometry::viewToGlobal(viewRegion, view->display().frame));
        }
    };
    view->onEscape = [this] {
        if (onCancelled) {
            onCancelled();
        }
    };
    view->onReturn = [this] {
        if (onConfirmed) {
            onConfirmed();
        }
    };
    view->show();
    view->raise();
    view->grabKeyboard();
    m_window = view;
}

void RegionPreviewOverlay::showCountdown(int secondsLeft)
{
    if (m_window) {
        m_window->setCountdown(secondsLeft);
    }
}

void RegionPreviewOverlay::hide()
{
    m_stills->forget();
    closeWindow();
}

void RegionPreviewOverlay::closeWindow()
{
    if (m_window) {
        m_window->releaseKeyboard();
        m_window->close();
    }
    m_window = nullptr;
}

} // namespace vantalo
