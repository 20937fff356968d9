// The region's geometry where the overlay tests on a real screen do not reach: resizing past the
// opposite edge, hit testing at the edges, the labels near a display's sides, negative origins.
#include "overlays/RegionGeometry.h"

#include <QTest>

using namespace vantalo::geometry;

class TestRegionGeometry : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void selectingAndHitting()
    {
        QCOMPARE(dragRect({100, 100}, {40, 300}), QRectF(40, 100, 60, 200));
        QCOMPARE(dragRect({40, 300}, {100, 100}), QRectF(40, 100, 60, 200));
        // Strictly more than 10 in both directions.
        QVERIFY(!isSelectable(QRectF(0, 0, 10, 50)));
        QVERIFY(!isSelectable(QRectF(0, 0, 50, 10)));
        QVERIFY(isSelectable(QRectF(0, 0, 11, 11)));
        QCOMPARE(sizeLabel(QRectF(0, 0, 123.9, 45.2)), QStringLiteral("123 \u00D7 45"));
        // Views report in global coordinates by adding their display's origin.
        QCOMPARE(viewToGlobal(QRectF(10, 20, 30, 40), QRectF(-1920, 0, 1920, 1080)),
                 QRectF(-1910, 20, 30, 40));
        QCOMPARE(globalToView(QRectF(-1910, 20, 30, 40), QRectF(-1920, 0, 1920, 1080)),
                 QRectF(10, 20, 30, 40));

        const QRectF region(100, 100, 200, 100);
        // (111, 189) is about 15.6 from the corner: no handle, but inside, so a move.
        QVERIFY(!hitHandle({111, 189}, region));
        QVERIFY(startsMove({111, 189}, region));
        QCOMPARE(hitHandle({110, 190}, region), Handle::topLeft);
        QVERIFY(startsMove({98.5, 150}, region)); // 2 points of grace outside the edge
        QVERIFY(!startsMove({97, 150}, region));
        // Handles are tried in order: on a tiny region the first one wins.
        QCOMPARE(hitHandle({105, 105}, QRectF(100, 100, 11, 11)), Handle::topLeft);
    }

    void moveAndResize()
    {
        const QRectF region(100, 100, 200, 100);
        const struct
        {
            int handle; // -1: a move
            QRectF base;
            QPointF delta;
            QRectF result;
        } rows[] = {
            // Never under 20 points: the opposite edge stays where it is.
            {int(Handle::right), region, {-195, 0}, {100, 100, 20, 100}},
            {int(Handle::left), region, {195, 0}, {280, 100, 20, 100}},
            {int(Handle::top), {100, 100, 15, 100}, {30, -40}, {100, 100, 20, 60}}, // widened
            {int(Handle::bottom), region, {0, 150}, {100, 180, 200, 20}},
            {int(Handle::top), region, {0, -150}, {100, 100, 200, 20}},
            {int(Handle::bottomRight), region, {10, -20}, {100, 80, 210, 120}},
            {int(Handle::topLeft), region, {500, -500}, {280, 100, 20, 20}},
            {-1, region, {-500, 0}, {-400, 100, 200, 100}}, // a move is not clamped
        };
        for (const auto& [handle, base, delta, result] : rows) {
            QCOMPARE(handle < 0 ? movedRegion(base, delta) : resizedRegion(Handle(handle), base, delta),
                     result);
        }

        // The size label goes below the region, or inside it when that would leave the display,
        // and keeps 8 points inside the view's sides.
        const QSizeF text(60, 13);
        QCOMPARE(previewLabelBox(QRectF(100, 200, 200, 100), text, 1920), QRectF(161, 171, 78, 21));
        QCOMPARE(previewLabelBox(QRectF(100, 20, 200, 100), text, 1920).y(), 28.0);
        QCOMPARE(previewLabelBox(QRectF(0, 300, 40, 40), text, 1920).x(), 8.0);
        QCOMPARE(previewLabelBox(QRectF(1900, 300, 20, 40), text, 1920).x(), 1920.0 - 78 - 8);
    }
};

QTEST_GUILESS_MAIN(TestRegionGeometry)
#include "tst_regiongeometry.moc"
