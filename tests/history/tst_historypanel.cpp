#include "../fakes/PanelFakes.h"
#include "history/GifHistoryStore.h"
#include "history/HistoryPanel.h"

#include <QApplication>
#include <QScrollBar>
#include <QTest>

using namespace vantalo;
using namespace vantalo::test;

class HistoryPanelTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<TemporaryHistory> m_history;
    std::unique_ptr<HistoryPanelController> m_controller;

    void keep(int count)
    {
        for (int i = 0; i < count; ++i) {
            m_history->keep(QSize(160, 90), 2);
        }
    }

    HistoryPanelView* view() const { return m_controller->window()->findChild<HistoryPanelView*>(); }

private Q_SLOTS:
    void init()
    {
        m_history = std::make_unique<TemporaryHistory>();
        m_controller = std::make_unique<HistoryPanelController>(
            m_history->store, [] { return QStringLiteral("Shift+Ctrl+R"); });
    }

    void cleanup() { m_controller.reset(); }

    void columnsAdaptToTheWidth_data()
    {
        QTest::addColumn<double>("width");
        QTest::addColumn<int>("columns");
        QTest::addColumn<double>("columnWidth");
        QTest::newRow("minimum window, 288 for the grid") << 320.0 << 1 << 200.0;
        QTest::newRow("initial window, 448 for the grid") << 480.0 << 3 << (448.0 - 24) / 3;
        QTest::newRow("just two") << 324.0 << 2 << 140.0;
        QTest::newRow("wide: columns stop at 200") << 1000.0 << 6 << (968.0 - 60) / 6;
        QTest::newRow("narrower than one column") << 100.0 << 1 << 68.0;
    }
    void columnsAdaptToTheWidth()
    {
        QFETCH(double, width);
        QFETCH(int, columns);
        QFETCH(double, columnWidth);
        const HistoryGridLayout layout = HistoryGridLayout::forWidth(width, 150);
        QCOMPARE(layout.columns, columns);
        QCOMPARE(layout.columnWidth, std::min(columnWidth, 200.0));
        // Centred: the same margin on both sides.
        const QRectF last = layout.cellRect(columns - 1);
        QCOMPARE(layout.left, width - last.right());
        QVERIFY(layout.left >= 16);
    }

    void gridFindsCellsAndVisibleRows()
    {
        const HistoryGridLayout layout = HistoryGridLayout::forWidth(480, 150);
        QCOMPARE(layout.cellRect(4).topLeft(), QPointF(layout.left + layout.columnWidth + 12, 16 + 150 + 12));
        QCOMPARE(layout.contentHeight(7), 32 + 3 * 150 + 2 * 12);
        QCOMPARE(layout.contentHeight(0), 0.0);
        QCOMPARE(layout.visibleRange(0, 400, 100), std::make_pair(0, 9));
        QCOMPARE(layout.visibleRange(170, 330, 100), std::make_pair(3, 6)); // both edges in the spacing
        QCOMPARE(layout.visibleRange(0, 400, 5), std::make_pair(0, 5));
        QCOMPARE(layout.cellAt(layout.cellRect(4).center(), 7), 4);
        QCOMPARE(layout.cellAt(QPointF(layout.left + 145, 50), 7), -1); // in the spacing
        QCOMPARE(layout.cellAt(layout.cellRect(4).center(), 4), -1);
    }

    void emptyHistoryShowsTheHintWithTheShortcut()
    {
        m_controller->show();
        QWidget* window = m_controller->window();
        QCOMPARE(window->windowTitle(), QStringLiteral("GIF History"));
        QCOMPARE(window->size(), QSize(480, 400));
        QCOMPARE(window->minimumSize(), QSize(320, 300));
        QVERIFY(view()->showsEmptyState());
        QCOMPARE(view()->emptyHint(), QStringLiteral("Record a GIF with Shift+Ctrl+R"));
    }

    void showBringsAnOpenWindowForwardAndMakesAClosedOneAfresh()
    {
        keep(1);
        m_controller->show();
        QWidget* first = m_controller->window();
        keep(1);
        m_controller->show();
        QCOMPARE(m_controller->window(), first);
        QCOMPARE(m_controller->viewModel()->items().size(), 1); // the open window is not reloaded

        first->close();
        m_controller->show();
        QVERIFY(m_controller->window() != first);
        QCOMPARE(m_controller->viewModel()->items().size(), 2);
    }

    void onlyCellsInViewDecode()
    {
        keep(60);
        m_controller->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_controller->window()));
        HistoryGridView* grid = view()->grid();
        QCOMPARE(grid->gridLayout().columns, 3);
        const int firstScreen = grid->liveThumbnailCount();
        QVERIFY2(firstScreen >= 3 && firstScreen <= 9, qPrintable(QString::number(firstScreen)));
        grid->verticalScrollBar()->setValue(grid->verticalScrollBar()->maximum());
        QCOMPARE(grid->liveThumbnailCount(), firstScreen);
        m_controller->window()->resize(320, 400);
        QTRY_COMPARE(grid->gridLayout().columns, 1);
        QVERIFY(grid->liveThumbnailCount() <= 4); // one column, at most four rows partly in view
    }

    void clickingACellSelectsItAndItsButtonDeletesIt()
    {
        keep(2);
        std::optional<GifHistoryItem> selected;
        m_controller->onSelectItem = [&selected](const GifHistoryItem& item) { selected = item; };
        m_controller->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_controller->window()));
        HistoryGridView* grid = view()->grid();
        const QList<GifHistoryItem> items = m_history->store.loadItems();

        const QPoint middle = grid->cellRectInViewport(1).center().toPoint();
        QTest::mouseMove(grid->viewport(), middle);
        QTRY_COMPARE(grid->hoveredIndex(), 1);
        QTest::mouseClick(grid->viewport(), Qt::LeftButton, {}, middle);
        QVERIFY(selected && selected->id == items.at(1).id);

        const QPoint button = grid->deleteButtonRect(0).center().toPoint();
        QTest::mouseMove(grid->viewport(), button);
        QTRY_COMPARE(grid->hoveredIndex(), 0);
        QTest::mouseClick(grid->viewport(), Qt::LeftButton, {}, button);
        QVERIFY(!QFile::exists(m_history->store.filePath(items.at(0))));
        QCOMPARE(m_history->store.loadItems().size(), 1);
        QCOMPARE(m_controller->viewModel()->items().size(), 1);
        QVERIFY(!view()->showsEmptyState());

        m_controller->viewModel()->deleteItem(items.at(1));
        QVERIFY(view()->showsEmptyState());
        QVERIFY(m_history->store.loadItems().isEmpty());
    }
};

QTEST_MAIN(HistoryPanelTest)
#include "tst_historypanel.moc"
