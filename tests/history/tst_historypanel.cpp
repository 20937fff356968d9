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

    void theGridFollowsTheWidth()
    {
        // Columns of 140 to 200 points, centred: the same margin on both sides, at least 16.
        for (const double width : {100.0, 320.0, 324.0, 480.0, 1000.0}) {
            const HistoryGridLayout layout = HistoryGridLayout::forWidth(width, 150);
            QVERIFY(layout.columns == 1 || (layout.columnWidth >= 140 && layout.columnWidth <= 200));
            QCOMPARE(layout.left, width - layout.cellRect(layout.columns - 1).right());
            QVERIFY(layout.left >= 16);
        }
        QCOMPARE(HistoryGridLayout::forWidth(1000, 150).columns, 6);
        // The spacing between cells belongs to no cell, and rows in it are not in view.
        const HistoryGridLayout layout = HistoryGridLayout::forWidth(480, 150);
        QCOMPARE(layout.visibleRange(170, 330, 100), std::make_pair(3, 6));
        QCOMPARE(layout.cellAt(QPointF(layout.left + 145, 50), 7), -1);
        QCOMPARE(layout.cellAt(layout.cellRect(4).center(), 4), -1);
    }

    void theWindowEmptyAndAgain()
    {
        m_controller->show();
        QWidget* first = m_controller->window();
        QCOMPARE(first->windowTitle(), QStringLiteral("GIF History"));
        QCOMPARE(first->size(), QSize(480, 400));
        QCOMPARE(first->minimumSize(), QSize(320, 300));
        QVERIFY(view()->showsEmptyState());
        QCOMPARE(view()->emptyHint(), QStringLiteral("Record a GIF with Shift+Ctrl+R"));

        // Show brings the open window forward without reloading it; a closed one is made afresh.
        keep(1);
        m_controller->show();
        QCOMPARE(m_controller->window(), first);
        QVERIFY(view()->showsEmptyState());
        first->close();
        m_controller->show();
        QVERIFY(m_controller->window() != first);
        QCOMPARE(m_controller->viewModel()->items().size(), 1);
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
