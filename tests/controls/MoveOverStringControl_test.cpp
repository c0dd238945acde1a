// The two-list chooser, clicked through its real buttons and lists: which
// strings are offered to the container and in what order, the veto of a
// single move, the horizontal extent that only grows, the error trap and
// the busy pointer.
#include "controls/MoveOverStringControl.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QtTest>
#include <stdexcept>

#include "controls/ExtentListWidget.h"

using controls::ExtentListWidget;
using controls::MoveOverStringControl;

namespace {

QStringList highlightedOf(const QListWidget* list) {
  QStringList texts;
  for (int i = 0; i < list->count(); ++i)
    if (list->item(i)->isSelected()) texts << list->item(i)->text();
  return texts;
}

void highlight(QListWidget* list, const QList<int>& rows) {
  list->clearSelection();
  for (int row : rows) list->item(row)->setSelected(true);
}

// What a user's double-click delivers: QTest::mouseDClick alone would skip
// the first click, which highlights the entry.
void doubleClick(QListWidget* list, int row) {
  const QPoint at = list->visualItemRect(list->item(row)).center();
  QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, at);
  QTest::mouseDClick(list->viewport(), Qt::LeftButton, {}, at);
  QTest::mouseRelease(list->viewport(), Qt::LeftButton, {}, at);
}

// A container's handler of one of the two events: it records the strings
// offered, refuses those in `refused`, and throws on `failOn`.
struct Container {
  Container(MoveOverStringControl& chooser, bool onAdd) : control(chooser), adds(onAdd) {
    QObject::connect(
        &chooser,
        adds ? &MoveOverStringControl::ItemSelected : &MoveOverStringControl::ItemUnSelected,
        &context, [this] { handle(); }, Qt::DirectConnection);
  }
  void handle() {
    const QString item = control.ActiveItem();
    offered << item;
    const QCursor* pointer = QApplication::overrideCursor();
    pointers << (pointer ? pointer->shape() : Qt::ArrowCursor);
    if (!failOn.isEmpty() && item == failOn)
      throw std::runtime_error("cannot move " + item.toStdString());
    if (refused.contains(item)) adds ? control.canAdd(false) : control.canDelete(false);
  }

  MoveOverStringControl& control;
  bool adds;
  QObject context;
  QStringList offered;
  QStringList refused;
  QString failOn;
  QList<Qt::CursorShape> pointers;  // the override cursor at each event
};

// The chooser on screen with its parts found by name, and a container
// handling each of its two events.
struct Chooser {
  MoveOverStringControl control;
  template <class W>
  W* the(const char* name) {
    W* widget = control.findChild<W*>(QString::fromLatin1(name));
    if (!widget) qFatal("MoveOverStringControl has no %s", name);
    return widget;
  }
  ExtentListWidget* available = the<ExtentListWidget>("AvailableList");
  ExtentListWidget* selected = the<ExtentListWidget>("SelectedList");
  QPushButton* select = the<QPushButton>("butSelect");
  QPushButton* selectAll = the<QPushButton>("butSelectAll");
  QPushButton* unSelect = the<QPushButton>("butUnSelect");
  QPushButton* unSelectAll = the<QPushButton>("butUnSelectAll");
  Container adds{control, true};
  Container removals{control, false};

  Chooser() {
    control.resize(420, 220);
    control.show();
    if (!QTest::qWaitForWindowExposed(&control)) qFatal("the chooser is not shown");
  }
  void fill(const QStringList& left, const QStringList& right) {
    control.setAvailableStrings(left);
    control.setSelectedStrings(&right);
  }
};

}  // namespace

class MoveOverStringControlTest : public QObject {
  Q_OBJECT

 private slots:
  void propertiesListsAndEnabling() {
    Chooser c;
    // A form sets the captions as properties of the placed control; the
    // names they give the lists are checked on the main window's choosers.
    QVERIFY(c.control.setProperty("LeftLabel", QStringLiteral("Available maps:")));
    QVERIFY(c.control.setProperty("RightLabel", QStringLiteral("Selected maps:")));
    QCOMPARE(c.the<QLabel>("lblLeftList")->text(), QStringLiteral("Available maps:"));
    QCOMPARE(c.the<QLabel>("lblRightList")->text(), QStringLiteral("Selected maps:"));
    QCOMPARE(c.the<QLineEdit>("txtLeftFilter")->accessibleName(),
             QStringLiteral("Available maps filter"));
    for (QListWidget* list : {c.available, c.selected})
      QCOMPARE(list->selectionMode(), QAbstractItemView::ExtendedSelection);

    // Order and duplicates are kept as given; filling raises no events.
    c.fill({"b", "a", "b", ""}, {"z", "a"});
    QCOMPARE(c.control.AvailableStrings(), (QStringList{"b", "a", "b", ""}));
    QCOMPARE(c.control.SelectedStrings(), (QStringList{"z", "a"}));
    // A null collection leaves the selected list alone.
    c.control.setSelectedStrings(nullptr);
    QCOMPARE(c.control.SelectedStrings(), (QStringList{"z", "a"}));
    c.control.ClearAvailable();
    QCOMPARE(c.control.AvailableStrings() + c.control.SelectedStrings(), (QStringList{"z", "a"}));
    c.fill({"c"}, {"d"});
    c.control.ClearSelected();
    QCOMPARE(c.control.AvailableStrings() + c.control.SelectedStrings(), QStringList{"c"});
    c.fill({"c"}, {"d"});
    c.control.Clear();
    QCOMPARE(c.available->count() + c.selected->count(), 0);
    QVERIFY(c.adds.offered.isEmpty() && c.removals.offered.isEmpty());

    // enabled() switches exactly the lists, filter boxes and buttons, not
    // the labels.
    QList<QWidget*> switched{c.available, c.selected, c.select,
                             c.selectAll, c.unSelect, c.unSelectAll};
    for (QLineEdit* filter : c.control.findChildren<QLineEdit*>()) switched << filter;
    c.control.enabled(false);
    for (QWidget* part : switched) QVERIFY2(!part->isEnabled(), qPrintable(part->objectName()));
    QVERIFY(c.control.isEnabled());
    for (QLabel* label : c.control.findChildren<QLabel*>())
      QVERIFY2(label->isEnabled(), qPrintable(label->objectName()));
    c.control.enabled(true);
    for (QWidget* part : switched) QVERIFY2(part->isEnabled(), qPrintable(part->objectName()));
  }

  void selectCopiesNewHighlightedStringsUnlessVetoed() {
    Chooser c;
    c.adds.refused = {"d"};
    c.fill({"a", "B", "b", "", "c", "d", "e"}, {"b"});
    highlight(c.available, {0, 1, 2, 3, 5, 6});

    QTest::mouseClick(c.select, Qt::LeftButton);
    // "b" is already there and "" counts as present: neither is offered.
    // The comparison is case-sensitive, so "B" is new. The veto of "d"
    // stops only that string.
    QCOMPARE(c.adds.offered, (QStringList{"a", "B", "d", "e"}));
    QCOMPARE(c.control.SelectedStrings(), (QStringList{"b", "a", "B", "e"}));
    // Copied, not moved: the left list keeps its strings and highlights.
    QCOMPARE(c.control.AvailableStrings(), (QStringList{"a", "B", "b", "", "c", "d", "e"}));
    QCOMPARE(highlightedOf(c.available), (QStringList{"a", "B", "b", "", "d", "e"}));

    // Select all takes highlighted and plain entries alike; the refused one
    // is offered again and now accepted.
    c.adds.offered.clear();
    c.adds.refused.clear();
    QTest::mouseClick(c.selectAll, Qt::LeftButton);
    QCOMPARE(c.adds.offered, (QStringList{"c", "d"}));
    QCOMPARE(c.control.SelectedStrings(), (QStringList{"b", "a", "B", "e", "c", "d"}));
  }

  void removalsKeepVetoedEntriesAndDoubleClicksMoveOne() {
    Chooser c;
    c.removals.refused = {"d"};
    c.fill({"x"}, {"a", "b", "c", "d", "e"});
    highlight(c.selected, {4, 1, 3});
    highlight(c.available, {0});

    QTest::mouseClick(c.unSelect, Qt::LeftButton);
    QCOMPARE(c.removals.offered, (QStringList{"b", "d", "e"}));
    QCOMPARE(c.control.SelectedStrings(), (QStringList{"a", "c", "d"}));
    QVERIFY(highlightedOf(c.selected).isEmpty());
    QCOMPARE(highlightedOf(c.available), QStringList{"x"});

    // Remove all offers every entry once; the refused ones stay in order.
    c.removals.offered.clear();
    c.removals.refused = {"a", "d"};
    c.fill({}, {"a", "b", "c", "d", "e"});
    highlight(c.selected, {0, 3});
    QTest::mouseClick(c.unSelectAll, Qt::LeftButton);
    QCOMPARE(c.removals.offered, (QStringList{"a", "b", "c", "d", "e"}));
    QCOMPARE(c.control.SelectedStrings(), (QStringList{"a", "d"}));
    QVERIFY(highlightedOf(c.selected).isEmpty());

    // A double-click moves just the clicked entry, either way.
    c.removals.offered.clear();
    c.fill({"a", "b", "c"}, {"x", "y"});
    highlight(c.available, {0});
    highlight(c.selected, {0});
    doubleClick(c.available, 2);
    QCOMPARE(c.adds.offered, QStringList{"c"});
    QCOMPARE(c.control.SelectedStrings(), (QStringList{"x", "y", "c"}));
    doubleClick(c.selected, 1);
    QCOMPARE(c.removals.offered, QStringList{"y"});
    QCOMPARE(c.control.SelectedStrings(), (QStringList{"x", "c"}));

    // A string given twice stays selected until its last copy goes.
    c.adds.offered.clear();
    c.removals.refused.clear();
    c.fill({"a"}, {"a", "b", "a"});
    highlight(c.selected, {0});
    QTest::mouseClick(c.unSelect, Qt::LeftButton);
    QTest::mouseClick(c.selectAll, Qt::LeftButton);
    QVERIFY(c.adds.offered.isEmpty());
    highlight(c.selected, {1});
    QTest::mouseClick(c.unSelect, Qt::LeftButton);
    QTest::mouseClick(c.selectAll, Qt::LeftButton);
    QCOMPARE(c.adds.offered, QStringList{"a"});
    QCOMPARE(c.control.SelectedStrings(), (QStringList{"b", "a"}));
  }

  void filterBoxesHideEntriesWithoutChangingTheMoves() {
    Chooser c;
    auto* left = c.the<QLineEdit>("txtLeftFilter");
    auto* right = c.the<QLineEdit>("txtRightFilter");
    const auto shown = [](const QListWidget* list) {
      QStringList texts;
      for (int i = 0; i < list->count(); ++i)
        if (!list->isRowHidden(i)) texts << list->item(i)->text();
      return texts;
    };
    c.fill({"roads/north.dgn", "roads/South.dgn", "hydro/rivers.dgn"}, {});
    highlight(c.available, {0, 1});
    QTest::keyClicks(left, "SOUTH");  // without regard to case
    QCOMPARE(shown(c.available), QStringList{"roads/South.dgn"});
    QCOMPARE(highlightedOf(c.available), QStringList{"roads/South.dgn"});
    QTest::keyClick(left, Qt::Key_Down);
    QCOMPARE(QApplication::focusWidget(), c.available);

    // Entries moved in that the right filter does not match are hidden;
    // ">" takes what is seen highlighted, ">>" every entry, as without it.
    QTest::keyClicks(right, "roads");
    QTest::mouseClick(c.select, Qt::LeftButton);
    QTest::mouseClick(c.selectAll, Qt::LeftButton);
    QCOMPARE(c.adds.offered,
             (QStringList{"roads/South.dgn", "roads/north.dgn", "hydro/rivers.dgn"}));
    QCOMPARE(c.control.SelectedStrings(),
             (QStringList{"roads/South.dgn", "roads/north.dgn", "hydro/rivers.dgn"}));
    QCOMPARE(shown(c.selected), (QStringList{"roads/South.dgn", "roads/north.dgn"}));
    left->clear();
    QCOMPARE(shown(c.available), c.control.AvailableStrings());
  }

  void horizontalExtentOnlyGrowsAndTheListsSettle() {
    // A scroll bar that came and went with the range resized the viewport,
    // which reset the range: the view recursed until the stack ran out, or
    // kept the event loop busy for ever. Events run between the steps here.
    Chooser c;
    const QFontMetrics metrics = c.control.fontMetrics();
    const int padding = metrics.horizontalAdvance(QStringLiteral("12345"));
    const QString wide = QStringLiteral("a map file name far wider than the list is.dgn");
    const QString narrow = QStringLiteral("m.dgn");
    const int room = metrics.horizontalAdvance(wide) + padding;
    QVERIFY(room > c.available->viewport()->width() + padding);
    QElapsedTimer clock;
    clock.start();
    c.control.setAvailableStrings({narrow});
    QTest::qWait(20);

    c.control.setAvailableStrings({narrow, wide, narrow});
    QCOMPARE(c.available->horizontalExtent(), room);
    QTRY_VERIFY(c.available->horizontalScrollBar()->isVisible());
    QCOMPARE(c.available->horizontalScrollBar()->maximum(),
             room - c.available->viewport()->width());
    // The selected side grows through moves as well as through filling.
    QTest::mouseClick(c.selectAll, Qt::LeftButton);
    QCOMPARE(c.selected->horizontalExtent(), room);
    QTest::qWait(50);
    // Emptied and refilled with short strings, the list keeps the room.
    c.control.ClearAvailable();
    c.control.setAvailableStrings({narrow});
    QTest::qWait(50);
    QTest::qWait(50);
    QVERIFY2(clock.elapsed() < 5000, "the lists never settle");
    QCOMPARE(c.available->horizontalExtent(), room);
    QCOMPARE(c.available->horizontalScrollBar()->maximum(),
             room - c.available->viewport()->width());
    QVERIFY(c.selected->horizontalScrollBar()->isVisible());

    QTest::mouseClick(c.unSelectAll, Qt::LeftButton);
    const QStringList shortOnly{narrow};
    c.control.setSelectedStrings(&shortOnly);
    c.control.setSelectedStrings(nullptr);
    QCOMPARE(c.selected->horizontalExtent(), room);
  }

  void failingHandlerEndsTheMoveAndReachesTheSink() {
    Chooser c;
    const QString wide = QStringLiteral("b, wider than anything else in this test.dgn");
    c.fill({"a", wide, "c", "d"}, {});
    // Without a sink the failure is logged.
    c.adds.failOn = QStringLiteral("a");
    highlight(c.available, {0, 1});
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("cannot move a"));
    QTest::mouseClick(c.select, Qt::LeftButton);

    QStringList reported;
    // A move is bracketed for the container, and closed before the report.
    QObject::connect(&c.control, &MoveOverStringControl::MoveStarted, &c.control,
                     [&](int count) { reported << QString("started %1").arg(count); });
    QObject::connect(&c.control, &MoveOverStringControl::MoveFinished, &c.control,
                     [&] { reported << "finished"; });
    c.control.setErrorSink([&reported](const std::exception& error) {
      // The report runs with the busy pointer gone.
      const QCursor* pointer = QApplication::overrideCursor();
      const bool busy = pointer && pointer->shape() == Qt::WaitCursor;
      reported << QString::fromUtf8(error.what()) + (busy ? " (busy)" : "");
    });
    c.adds.offered.clear();
    c.adds.pointers.clear();
    c.adds.failOn = QStringLiteral("c");
    QTest::mouseClick(c.selectAll, Qt::LeftButton);
    QCOMPARE(c.adds.offered, (QStringList{"a", wide, "c"}));
    QCOMPARE(c.control.SelectedStrings(), (QStringList{"a", wide}));
    QCOMPARE(reported, (QStringList{"started 4", "finished", "cannot move c"}));
    reported.clear();
    QCOMPARE(QApplication::overrideCursor(), nullptr);
    QCOMPARE(c.adds.pointers, (QList<Qt::CursorShape>(3, Qt::WaitCursor)));
    // What was copied before the failure can be scrolled to.
    QCOMPARE(c.selected->horizontalExtent(),
             c.control.fontMetrics().horizontalAdvance(wide) +
                 c.control.fontMetrics().horizontalAdvance(QStringLiteral("12345")));

    // Removals stop the same way, and only the move's own pointer goes: one
    // the container set around it stays.
    QApplication::setOverrideCursor(Qt::CrossCursor);
    c.removals.failOn = wide;
    const QStringList again{"a", wide, "z"};
    c.control.setSelectedStrings(&again);
    QTest::mouseClick(c.unSelectAll, Qt::LeftButton);
    QCOMPARE(c.removals.offered, (QStringList{"a", wide}));
    QCOMPARE(c.control.SelectedStrings(), (QStringList{wide, "z"}));
    QVERIFY(QApplication::overrideCursor());
    QCOMPARE(QApplication::overrideCursor()->shape(), Qt::CrossCursor);
    QApplication::restoreOverrideCursor();

    c.removals.offered.clear();
    highlight(c.selected, {0, 1});
    QTest::mouseClick(c.unSelect, Qt::LeftButton);
    QCOMPARE(c.removals.offered, QStringList{wide});
    QCOMPARE(reported, (QStringList{"started 3", "finished", "cannot move " + wide, "started 2",
                                    "finished", "cannot move " + wide}));
  }
};

QTEST_MAIN(MoveOverStringControlTest)
#include "MoveOverStringControl_test.moc"
