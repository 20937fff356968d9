#include "overlays/RegionGeometry.h"

#include <QTest>

using namespace vantalo::geometry;

class TestRegionGeometry : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void selection()
    {
        QCOMPARE(dragRect({100, 100}, {40, 300}), QRectF(40, 100, 60, 200));
        QCOMPARE(dragRect({40, 300}, {100, 100}), QRectF(40, 100, 60, 200));
        // Strictly more than 10 in both directions.
        QVERIFY(!isSelectable(QRectF(0, 0, 10, 50)));
        QVERIFY(!isSelectable(QRectF(0, 0, 50, 10)));
        QVERIFY(isSelectable(QRectF(0, 0, 11, 11)));
        QCOMPARE(sizeLabel(QRectF(0, 0, 123.9, 45.2)), QStringLiteral("123 \u00D7 45"));
        QCOMPARE(sizeLabel(QRectF(0, 0, 300.7, 200.2)), QStringLiteral("300 \u00D7 200"));
        // The pill: text + 16 wide, text + 8 high, centred, 8 above the top edge.
        QCOMPARE(selectionLabelBox(QRectF(100, 100, 200, 100), QSizeF(60, 14)), QRectF(162, 208, 76, 22));
        // Views report in global coordinates by adding their display's origin.
        QCOMPARE(viewToGlobal(QRectF(10, 20, 30, 40), QRectF(1440, 0, 1280, 800)), QRectF(1450, 20, 30, 40));
        QCOMPARE(viewToGlobal(QRectF(10, 20, 30, 40), QRectF(-1920, 0, 1920, 1080)),
                 QRectF(-1910, 20, 30, 40));
        QCOMPARE(globalToView(QRectF(-1910, 20, 30, 40), QRectF(-1920, 0, 1920, 1080)),
                 QRectF(10, 20, 30, 40));
    }

    void handles()
    {
        const QRectF region(100, 100, 200, 100);
        QCOMPARE(handleCentre(Handle::topLeft, region), QPointF(100, 200));
        QCOMPARE(handleCentre(Handle::top, region), QPointF(200, 200));
        QCOMPARE(handleCentre(Handle::right, region), QPointF(300, 150));
        QCOMPARE(handleCentre(Handle::bottom, region), QPointF(200, 100));
        QCOMPARE(handleCentre(Handle::bottomLeft, region), QPointF(100, 100));
        // (111, 189) is about 15.6 from the corner: no handle, but inside, so a move.
        QVERIFY(!hitHandle({111, 189}, region));
        QVERIFY(startsMove({111, 189}, region));
        QCOMPARE(hitHandle({110, 190}, region), Handle::topLeft);
        QVERIFY(startsMove({98.5, 150}, region)); // 2 points of grace outside the edge
        QVERIFY(!startsMove({97, 150}, region));
        // Handles are tried in order: on a tiny region the first one wins.
        QCOMPARE(hitHandle({105, 105}, QRectF(100, 100, 11, 11)), Handle::topLeft);

        QCOMPARE(cursorAt({110, 190}, region), CursorShape::crosshair);
        QCOMPARE(cursorAt({200, 205}, region), CursorShape::resizeUpDown);
        QCOMPARE(cursorAt({300, 140}, region), CursorShape::resizeLeftRight);
        QCOMPARE(cursorAt({200, 150}, region), CursorShape::openHand);
        QCOMPARE(cursorAt({500, 500}, region), CursorShape::arrow);
    }

    void moveAndResize_data()
    {
        QTest::addColumn<int>("handle"); // -1: a move
        QTest::addColumn<QRectF>("base");
        QTest::addColumn<QPointF>("delta");
        QTest::addColumn<QRectF>("result");
        const QRectF region(100, 100, 200, 100);
        QTest::newRow("right by -195 keeps the left edge")
            << int(Handle::right) << region << QPointF(-195, 0) << QRectF(100, 100, 20, 100);
        QTest::newRow("left by +195 keeps the right edge")
            << int(Handle::left) << region << QPointF(195, 0) << QRectF(280, 100, 20, 100);
        QTest::newRow("top of a 15-wide region widens it")
            << int(Handle::top) << QRectF(100, 100, 15, 100) << QPointF(30, -40) << QRectF(100, 100, 20, 60);
        QTest::newRow("bottom past the top keeps the top")
            << int(Handle::bottom) << region << QPointF(0, 150) << QRectF(100, 180, 200, 20);
        QTest::newRow("top below the bottom keeps the bottom")
            << int(Handle::top) << region << QPointF(0, -150) << QRectF(100, 100, 200, 20);
        QTest::newRow("corner moves two edges")
            << int(Handle::bottomRight) << region << QPointF(10, -20) << QRectF(100, 80, 210, 120);
        QTest::newRow("corner collapsed both ways")
            << int(Handle::topLeft) << region << QPointF(500, -500) << QRectF(280, 100, 20, 20);
        QTest::newRow("a move is not clamped")
            << -1 << region << QPointF(-500, 0) << QRectF(-400, 100, 200, 100);
    }
    void moveAndResize()
    {
        QFETCH(int, handle);
        QFETCH(QRectF, base);
        QFETCH(QPointF, delta);
        QFETCH(QRectF, result);
        QCOMPARE(handle < 0 ? movedRegion(base, delta) : resizedRegion(Handle(handle), base, delta), result);
    }

    void labelsToolbarAndBorder()
    {
        const QSizeF text(60, 13);
        // Below the region normally; inside it when that would leave the display.
        QCOMPARE(previewLabelBox(QRectF(100, 200, 200, 100), text, 1920), QRectF(161, 171, 78, 21));
        QCOMPARE(previewLabelBox(QRectF(100, 20, 200, 100), text, 1920).y(), 28.0);
        // Kept 8 points inside the view's sides.
        QCOMPARE(previewLabelBox(QRectF(0, 300, 40, 40), text, 1920).x(), 8.0);
        QCOMPARE(previewLabelBox(QRectF(1900, 300, 20, 40), text, 1920).x(), 1920.0 - 78 - 8);

        // The toolbar: its bar 14 points over the region at first, its panel 14 over after a drag.
        QCOMPARE(toolbarFrame(QRectF(100, 100, 200, 100), QSizeF(120, 80)), QRectF(140, 194, 120, 80));
        QCOMPARE(adjustedToolbarOrigin(QRectF(100, 100, 200, 100), QSizeF(120, 80)), QPointF(140, 214));

        QCOMPARE(borderFrame(QRectF(200, 300, 100, 50)), QRectF(196, 296, 108, 58));
        QCOMPARE(borderPathRect(QSizeF(108, 58)), QRectF(2, 2, 104, 54));
    }
};

QTEST_GUILESS_MAIN(TestRegionGeometry)
#include "tst_regiongeometry.moc"
