// The two-list chooser, clicked through its real buttons and lists: which
// strings are offered to the container and in what order, the veto of a
// single move, the horizontal extent that only grows, the error trap and
// the busy pointer.
#include "controls/MoveOverStringControl.h"

#include <QApplication>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QScrollBar>
#include <QtTest>
#include <stdexcept>

#include "controls/ExtentListWidget.h"

using controls::ExtentListWidget;
using controls::MoveOverStringControl;

namespace {

QStringList textsOf(const QListWidget* list) {
  QStringList texts;
  for (int i = 0; i < list->count(); ++i) texts << list->item(i)->text();
  return texts;
}

QStringList highlightedOf(const QListWidget* list) {
  QStringList texts;
  for (int i = 0; i < list->count(); ++i)
    if (list->item(i)->isSelected()) texts << list->item(i)->text();
  return texts;
}

// What a user's double-click delivers: QTest::mouseDClick alone would skip
// the first click, which highlights the entry.
void doubleClick(QListWidget* list, int row) {
  QWidget* viewport = list->viewport();
  const QPoint at = list->visualItemRect(list->item(row)).center();
  QTest::mousePress(viewport, Qt::LeftButton, {}, at);
  QTest::mouseRelease(viewport, Qt::LeftButton, {}, at);
  QTest::mouseDClick(viewport, Qt::LeftButton, {}, at);
  QTest::mouseRelease(viewport, Qt::LeftButton, {}, at);
}

void highlight(QListWidget* list, const QList<int>& rows) {
  list->clearSelection();
  for (int row : rows) list->item(row)->setSelected(true);
}

// The chooser on screen with its parts found by name.
struct Chooser {
  MoveOverStringControl control;
  ExtentListWidget* available = nullptr;
  ExtentListWidget* selected = nullptr;
  QPushButton* select = nullptr;
  QPushButton* selectAll = nullptr;
  QPushButton* unSelect = nullptr;
  QPushButton* unSelectAll = nullptr;

  Chooser() {
    control.resize(420, 220);
    control.show();
    available = control.findChild<ExtentListWidget*>(QStringLiteral("AvailableList"));
    selected = control.findChild<ExtentListWidget*>(QStringLiteral("SelectedList"));
    select = control.findChild<QPushButton*>(QStringLiteral("butSelect"));
    selectAll = control.findChild<QPushButton*>(QStringLiteral("butSelectAll"));
    unSelect = control.findChild<QPushButton*>(QStringLiteral("butUnSelect"));
    unSelectAll = control.findChild<QPushButton*>(QStringLiteral("butUnSelectAll"));
  }
  bool complete() {
    return available && selected && select && selectAll && unSelect && unSelectAll &&
           QTest::qWaitForWindowExposed(&control);
  }
  void fill(const QStringList& left, const QStringList& right) {
    control.setAvailableStrings(left);
    control.setSelectedStrings(&right);
  }
};

// A container's handler of one of the two events: it records the strings
// offered, refuses those in `refused`, and throws on `failOn`.
class Container {
 public:
  enum class Event { Selected, UnSelected };

  Container(MoveOverStringControl& control, Event event) : control_(control), event_(event) {
    if (event == Event::Selected)
      QObject::connect(
          &control, &MoveOverStringControl::ItemSelected, &context_, [this] { handle(); },
          Qt::DirectConnection);
    else
      QObject::connect(
          &control, &MoveOverStringControl::ItemUnSelected, &context_, [this] { handle(); },
          Qt::DirectConnection);
  }

  QStringList offered;
  QStringList refused;
  QString failOn;
  QList<Qt::CursorShape> pointers;  // the override cursor at each event

 private:
  void handle() {
    const QString item = control_.ActiveItem();
    offered << item;
    const QCursor* pointer = QApplication::overrideCursor();
    pointers << (pointer ? pointer->shape() : Qt::ArrowCursor);
    if (item == failOn) throw std::runtime_error("cannot move " + item.toStdString());
    if (!refused.contains(item)) return;
    if (event_ == Event::Selected)
      control_.canAdd(false);
    else
      control_.canDelete(false);
  }

  MoveOverStringControl& control_;
  Event event_;
  QObject context_;
};

}  // namespace

class MoveOverStringControlTest : public QObject {
  Q_OBJECT

 private slots:
  void partsAreNamedAndCaptioned() {
    Chooser c;
    QVERIFY(c.complete());
    auto* left = c.control.findChild<QLabel*>(QStringLiteral("lblLeftList"));
    auto* right = c.control.findChild<QLabel*>(QStringLiteral("lblRightList"));
    QVERIFY(left && right);
    QCOMPARE(left->text(), QStringLiteral("Left label:"));
    QCOMPARE(right->text(), QStringLiteral("Right label:"));
    QCOMPARE(c.select->text(), QStringLiteral(">"));
    QCOMPARE(c.selectAll->text(), QStringLiteral(">>"));
    QCOMPARE(c.unSelect->text(), QStringLiteral("<"));
    QCOMPARE(c.unSelectAll->text(), QStringLiteral("<<"));
    QCOMPARE(c.available->selectionMode(), QAbstractItemView::ExtendedSelection);
    QCOMPARE(c.selected->selectionMode(), QAbstractItemView::ExtendedSelection);

    c.control.setLeftLabel(QStringLiteral("Available maps:"));
    QCOMPARE(left->text(), QStringLiteral("Available maps:"));
    QCOMPARE(c.control.LeftLabel(), QStringLiteral("Available maps:"));
    // A form sets the captions as properties of the placed control.
    QVERIFY(c.control.setProperty("RightLabel", QStringLiteral("Selected maps:")));
    QCOMPARE(right->text(), QStringLiteral("Selected maps:"));
    QCOMPARE(c.control.RightLabel(), QStringLiteral("Selected maps:"));
  }

  void settingAndClearingTheListsRaisesNoEvents() {
    Chooser c;
    QVERIFY(c.complete());
    Container adds(c.control, Container::Event::Selected);
    Container removals(c.control, Container::Event::UnSelected);

    // Order and duplicates are kept as given.
    c.fill({"b", "a", "b", ""}, {"z", "a"});
    QCOMPARE(c.control.AvailableStrings(), (QStringList{"b", "a", "b", ""}));
    QCOMPARE(c.control.SelectedStrings(), (QStringList{"z", "a"}));
    QCOMPARE(textsOf(c.available), (QStringList{"b", "a", "b", ""}));

    c.control.setAvailableStrings({"c"});
    QCOMPARE(c.control.AvailableStrings(), QStringList{"c"});
    // A null collection leaves the selected list alone.
    c.control.setSelectedStrings(nullptr);
    QCOMPARE(c.control.SelectedStrings(), (QStringList{"z", "a"}));

    c.control.ClearAvailable();
    QCOMPARE(c.available->count(), 0);
    QCOMPARE(c.selected->count(), 2);
    c.control.setAvailableStrings({"c"});
    c.control.ClearSelected();
    QCOMPARE(c.available->count(), 1);
    QCOMPARE(c.selected->count(), 0);
    c.fill({"c"}, {"d"});
    c.control.Clear();
    QCOMPARE(c.available->count(), 0);
    QCOMPARE(c.selected->count(), 0);

    QVERIFY(adds.offered.isEmpty());
    QVERIFY(removals.offered.isEmpty());
  }

  void selectCopiesHighlightedStringsNotYetSelected() {
    Chooser c;
    QVERIFY(c.complete());
    Container adds(c.control, Container::Event::Selected);
    c.fill({"a", "B", "b", "", "c", "d"}, {"b"});
    highlight(c.available, {0, 1, 2, 3, 5});

    QTest::mouseClick(c.select, Qt::LeftButton);
    // "b" is already there and "" counts as present: neither is offered.
    // The comparison is case-sensitive, so "B" is new.
    QCOMPARE(adds.offered, (QStringList{"a", "B", "d"}));
    QCOMPARE(c.control.SelectedStrings(), (QStringList{"b", "a", "B", "d"}));
    QCOMPARE(c.control.ActiveItem(), QStringLiteral("d"));
    // Copied, not moved: the left list keeps its strings and highlights.
    QCOMPARE(c.control.AvailableStrings(), (QStringList{"a", "B", "b", "", "c", "d"}));
    QCOMPARE(highlightedOf(c.available), (QStringList{"a", "B", "b", "", "d"}));

    // Everything highlighted is now selected: a second click offers nothing.
    QTest::mouseClick(c.select, Qt::LeftButton);
    QCOMPARE(adds.offered.size(), 3);
    QCOMPARE(c.selected->count(), 4);
  }

  void emptyStringIsNeverCopied() {
    Chooser c;
    QVERIFY(c.complete());
    Container adds(c.control, Container::Event::Selected);
    // Not even into an empty list, nor with Select all.
    c.fill({""}, {});
    highlight(c.available, {0});
    QTest::mouseClick(c.select, Qt::LeftButton);
    QTest::mouseClick(c.selectAll, Qt::LeftButton);
    QVERIFY(adds.offered.isEmpty());
    QCOMPARE(c.selected->count(), 0);
  }

  void vetoStopsOnlyThatString() {
    Chooser c;
    QVERIFY(c.complete());
    Container adds(c.control, Container::Event::Selected);
    adds.refused = {"b"};
    c.fill({"a", "b", "c"}, {});
    highlight(c.available, {0, 1, 2});
    QTest::mouseClick(c.select, Qt::LeftButton);
    QCOMPARE(adds.offered, (QStringList{"a", "b", "c"}));
    QCOMPARE(c.control.SelectedStrings(), (QStringList{"a", "c"}));
    QCOMPARE(c.control.ActiveItem(), QStringLiteral("c"));

    // Select all takes highlighted and plain entries alike; the refused one
    // is offered again and now accepted.
    adds.offered.clear();
    adds.refused.clear();
    c.control.setAvailableStrings({"d", "a", "b", "e"});
    highlight(c.available, {3});
    QTest::mouseClick(c.selectAll, Qt::LeftButton);
    QCOMPARE(adds.offered, (QStringList{"d", "b", "e"}));
    QCOMPARE(c.control.SelectedStrings(), (QStringList{"a", "c", "d", "b", "e"}));
  }

  void removeOffersHighlightedEntriesFromTheTop() {
    Chooser c;
    QVERIFY(c.complete());
    Container removals(c.control, Container::Event::UnSelected);
    removals.refused = {"d"};
    c.fill({"x"}, {"a", "b", "c", "d", "e"});
    highlight(c.selected, {4, 1, 3});
    highlight(c.available, {0});

    QTest::mouseClick(c.unSelect, Qt::LeftButton);
    QCOMPARE(removals.offered, (QStringList{"b", "d", "e"}));
    QCOMPARE(c.control.SelectedStrings(), (QStringList{"a", "c", "d"}));
    QVERIFY(highlightedOf(c.selected).isEmpty());
    QCOMPARE(c.control.ActiveItem(), QStringLiteral("e"));
    // The left list is not touched.
    QCOMPARE(c.control.AvailableStrings(), QStringList{"x"});
    QCOMPARE(highlightedOf(c.available), QStringList{"x"});
  }

  void removeAllKeepsRefusedEntriesInOrder() {
    Chooser c;
    QVERIFY(c.complete());
    Container removals(c.control, Container::Event::UnSelected);
    removals.refused = {"b", "d"};
    c.fill({}, {"a", "b", "c", "d", "e"});
    highlight(c.selected, {0, 1});
    QTest::mouseClick(c.unSelectAll, Qt::LeftButton);
    QCOMPARE(removals.offered, (QStringList{"a", "b", "c", "d", "e"}));
    QCOMPARE(c.control.SelectedStrings(), (QStringList{"b", "d"}));
    QVERIFY(highlightedOf(c.selected).isEmpty());

    // Every removal refused: the list stays as it was, un-highlighted.
    removals.offered.clear();
    removals.refused = {"b", "d"};
    highlight(c.selected, {0, 1});
    QTest::mouseClick(c.unSelectAll, Qt::LeftButton);
    QCOMPARE(removals.offered, (QStringList{"b", "d"}));
    QCOMPARE(c.control.SelectedStrings(), (QStringList{"b", "d"}));
    QVERIFY(highlightedOf(c.selected).isEmpty());
  }

  void doubleClicksMoveTheClickedEntry() {
    Chooser c;
    QVERIFY(c.complete());
    Container adds(c.control, Container::Event::Selected);
    Container removals(c.control, Container::Event::UnSelected);
    c.fill({"a", "b", "c"}, {"x", "y"});
    highlight(c.available, {0});
    highlight(c.selected, {0});

    doubleClick(c.available, 2);
    QCOMPARE(adds.offered, QStringList{"c"});
    QCOMPARE(c.control.SelectedStrings(), (QStringList{"x", "y", "c"}));

    doubleClick(c.selected, 1);
    QCOMPARE(removals.offered, QStringList{"y"});
    QCOMPARE(c.control.SelectedStrings(), (QStringList{"x", "c"}));
  }

  void horizontalExtentOnlyGrows() {
    Chooser c;
    QVERIFY(c.complete());
    const QFontMetrics metrics = c.control.fontMetrics();
    const int padding = metrics.horizontalAdvance(QStringLiteral("12345"));
    const QString wide = QStringLiteral("a map file name far wider than the list is.dgn");
    const QString narrow = QStringLiteral("m.dgn");
    const int wideWidth = metrics.horizontalAdvance(wide);
    QVERIFY(padding > 0 && wideWidth > c.available->viewport()->width());
    QCOMPARE(c.available->horizontalExtent(), 0);

    c.control.setAvailableStrings({narrow, wide, narrow});
    QCOMPARE(c.control.widestAvailableWidth(), wideWidth);
    QCOMPARE(c.available->horizontalExtent(), wideWidth + padding);

    // The extent really scrolls the list.
    QScrollBar* bar = c.available->horizontalScrollBar();
    QTRY_VERIFY(bar->isVisible());
    QCOMPARE(bar->maximum(), wideWidth + padding - c.available->viewport()->width());
    const int left = c.available->visualItemRect(c.available->item(1)).left();
    bar->setValue(bar->maximum());
    QCOMPARE(c.available->visualItemRect(c.available->item(1)).left(), left - bar->maximum());

    // Emptied and refilled with short strings, the list keeps the room.
    c.control.ClearAvailable();
    c.control.setAvailableStrings({narrow});
    QCOMPARE(c.control.widestAvailableWidth(), wideWidth);
    QCOMPARE(c.available->horizontalExtent(), wideWidth + padding);
    QCOMPARE(bar->maximum(), wideWidth + padding - c.available->viewport()->width());
    QVERIFY(bar->isVisible());

    // The selected side grows through moves as well as through filling.
    QCOMPARE(c.control.widestSelectedWidth(), 0);
    c.control.setAvailableStrings({narrow, wide});
    QTest::mouseClick(c.select, Qt::LeftButton);  // nothing highlighted
    QCOMPARE(c.selected->horizontalExtent(), padding);
    QTest::mouseClick(c.selectAll, Qt::LeftButton);
    QCOMPARE(c.control.widestSelectedWidth(), wideWidth);
    QCOMPARE(c.selected->horizontalExtent(), wideWidth + padding);
    QTest::mouseClick(c.unSelectAll, Qt::LeftButton);
    QCOMPARE(c.selected->count(), 0);
    const QStringList shortOnly{narrow};
    c.control.setSelectedStrings(&shortOnly);
    c.control.setSelectedStrings(nullptr);
    QCOMPARE(c.control.widestSelectedWidth(), wideWidth);
    QCOMPARE(c.selected->horizontalExtent(), wideWidth + padding);
    QCOMPARE(c.selected->horizontalScrollBar()->maximum(),
             wideWidth + padding - c.selected->viewport()->width());
  }

  void failingHandlerEndsTheMoveAndReachesTheSink() {
    Chooser c;
    QVERIFY(c.complete());
    QStringList reported;
    c.control.setErrorSink([&reported](const std::exception& error) {
      // The report runs with the busy pointer gone.
      const QCursor* pointer = QApplication::overrideCursor();
      const bool busy = pointer && pointer->shape() == Qt::WaitCursor;
      reported << QString::fromUtf8(error.what()) + (busy ? " (busy)" : "");
    });
    Container adds(c.control, Container::Event::Selected);
    Container removals(c.control, Container::Event::UnSelected);
    adds.failOn = QStringLiteral("c");
    const QString wide = QStringLiteral("b, wider than anything else in this test.dgn");
    c.fill({"a", wide, "c", "d"}, {});

    QTest::mouseClick(c.selectAll, Qt::LeftButton);
    QCOMPARE(adds.offered, (QStringList{"a", wide, "c"}));
    QCOMPARE(c.control.SelectedStrings(), (QStringList{"a", wide}));
    QCOMPARE(reported, QStringList{"cannot move c"});
    QCOMPARE(QApplication::overrideCursor(), nullptr);
    QCOMPARE(adds.pointers, (QList<Qt::CursorShape>(3, Qt::WaitCursor)));
    // What was copied before the failure can be scrolled to.
    QCOMPARE(c.selected->horizontalExtent(),
             c.control.widestSelectedWidth() +
                 c.control.fontMetrics().horizontalAdvance(QStringLiteral("12345")));
    QCOMPARE(c.control.widestSelectedWidth(), c.control.fontMetrics().horizontalAdvance(wide));

    // Removals stop the same way, and only the move's own pointer goes: one
    // the container set around it stays.
    QApplication::setOverrideCursor(Qt::CrossCursor);
    removals.failOn = wide;
    const QStringList again{"a", wide, "z"};
    c.control.setSelectedStrings(&again);
    QTest::mouseClick(c.unSelectAll, Qt::LeftButton);
    QCOMPARE(removals.offered, (QStringList{"a", wide}));
    QCOMPARE(c.control.SelectedStrings(), (QStringList{wide, "z"}));
    QVERIFY(QApplication::overrideCursor());
    QCOMPARE(QApplication::overrideCursor()->shape(), Qt::CrossCursor);
    QApplication::restoreOverrideCursor();

    removals.offered.clear();
    highlight(c.selected, {0, 1});
    QTest::mouseClick(c.unSelect, Qt::LeftButton);
    QCOMPARE(removals.offered, QStringList{wide});
    QCOMPARE(c.control.SelectedStrings(), (QStringList{wide, "z"}));
    QCOMPARE(QApplication::overrideCursor(), nullptr);
    QCOMPARE(reported,
             (QStringList{"cannot move c", "cannot move " + wide, "cannot move " + wide}));
  }

  void withoutSinkAFailureIsOnlyLogged() {
    Chooser c;
    QVERIFY(c.complete());
    Container adds(c.control, Container::Event::Selected);
    adds.failOn = QStringLiteral("a");
    c.fill({"a", "b"}, {});
    highlight(c.available, {0, 1});
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("cannot move a"));
    QTest::mouseClick(c.select, Qt::LeftButton);
    QCOMPARE(c.selected->count(), 0);
    QCOMPARE(QApplication::overrideCursor(), nullptr);
  }

  void enabledSwitchesTheListsAndButtonsOnly() {
    Chooser c;
    QVERIFY(c.complete());
    const QList<QWidget*> switched{c.available, c.selected, c.select,
                                   c.selectAll, c.unSelect, c.unSelectAll};
    c.control.enabled(false);
    for (QWidget* part : switched) QVERIFY2(!part->isEnabled(), qPrintable(part->objectName()));
    QVERIFY(c.control.isEnabled());
    for (QLabel* label : c.control.findChildren<QLabel*>())
      QVERIFY2(label->isEnabled(), qPrintable(label->objectName()));
    c.control.enabled(true);
    for (QWidget* part : switched) QVERIFY2(part->isEnabled(), qPrintable(part->objectName()));
  }

  // With VANTOR_SCREENSHOT set, a filled chooser is saved there to be looked at.
  void screenshot() {
    const QString path = qEnvironmentVariable("VANTOR_SCREENSHOT");
    if (path.isEmpty()) QSKIP("VANTOR_SCREENSHOT not set");
    Chooser c;
    QVERIFY(c.complete());
    c.control.setLeftLabel(QStringLiteral("Available map files:"));
    c.control.setRightLabel(QStringLiteral("Selected map files:"));
    c.fill(
        {"C:/maps/roads.dgn", "C:/maps/parcels_of_the_northern_district.dgn", "C:/maps/water.dgn"},
        {"C:/maps/roads.dgn"});
    highlight(c.available, {1});
    QVERIFY(c.control.grab().save(path));
  }
};

QTEST_MAIN(MoveOverStringControlTest)
#include "MoveOverStringControl_test.moc"
