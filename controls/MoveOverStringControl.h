// MoveOverStringControl: the two-list chooser. The left list holds the
// strings that may be chosen, the right one those that are chosen, and four
// buttons between them copy strings across and take them back. The control
// knows nothing of what the strings stand for: before each single move it
// raises ItemSelected or ItemUnSelected, and the container's handler, which
// must be connected directly, reads the string from ActiveItem and may
// refuse that one move with canAdd(false) or canDelete(false).
//
// Promises: a move stops at the first exception a handler throws; the
// strings moved until then stay moved, the busy pointer is gone, and the
// exception is handed to the error sink. No other member reports errors.
// Each list's accessible name is its caption, so assistive tools tell the
// two lists apart. Lists of tens of thousands of strings stay quick: they
// are filled in one pass, a string is measured once, and a copy finds
// duplicates without a scan.
//
// A filter box above each list shows only the entries holding the text
// typed there (without regard to case). It changes what is shown, not what
// the list holds: the moves offer the same strings in the same order with
// or without it, ">>" and "<<" every entry. An entry the filter hides loses
// its highlight, so ">" and "<" move only entries the user can see.
#pragma once

#include <QHash>
#include <QString>
#include <QStringList>
#include <QWidget>
#include <exception>
#include <functional>
#include <memory>

class QListWidget;

namespace Ui {
class MoveOverStringControl;
}

namespace controls {

class ExtentListWidget;

class MoveOverStringControl : public QWidget {
  Q_OBJECT
  // Properties, so a form holding the control can set its captions.
  Q_PROPERTY(QString LeftLabel READ LeftLabel WRITE setLeftLabel)
  Q_PROPERTY(QString RightLabel READ RightLabel WRITE setRightLabel)

 public:
  // Where a move's failure goes. The main window routes it to the common
  // error report; it must not throw.
  using ErrorSink = std::function<void(const std::exception&)>;

  explicit MoveOverStringControl(QWidget* parent = nullptr);
  ~MoveOverStringControl() override;

  QString LeftLabel() const;
  void setLeftLabel(const QString& caption);
  QString RightLabel() const;
  void setRightLabel(const QString& caption);

  // A fresh copy of the list's strings, first to last.
  QStringList AvailableStrings() const;
  // Replaces the list's content as given: same order, duplicates kept, no
  // events.
  void setAvailableStrings(const QStringList& strings);
  QStringList SelectedStrings() const;
  // nullptr leaves the list as it is.
  void setSelectedStrings(const QStringList* strings);

  // The string of the move in progress; it keeps the last one afterwards.
  QString ActiveItem() const { return activeItem_; }

  // Switches both lists with their filter boxes and the four buttons,
  // nothing else.
  void enabled(bool value);

  // Emptying a list keeps its horizontal extent: the room for the widest
  // string it ever showed stays.
  void Clear();
  void ClearAvailable();
  void ClearSelected();

  // The veto, for the ItemSelected / ItemUnSelected handler: false refuses
  // the move of ActiveItem. Each event starts with permission granted.
  void canAdd(bool value) { addAllowed_ = value; }
  void canDelete(bool value) { removeAllowed_ = value; }

  // Replaces the default sink, which only logs.
  void setErrorSink(ErrorSink sink);

  // The widest text in pixels ever put into each list; the lists'
  // horizontal extent is this plus the width of "12345".
  int widestAvailableWidth() const { return widestAvailable_; }
  int widestSelectedWidth() const { return widestSelected_; }

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 signals:
  // Before each string is copied into the selected list.
  void ItemSelected();
  // Before each string is removed from the selected list.
  void ItemUnSelected();
  // Around each of the four moves: at most `count` strings will be offered
  // one by one; MoveFinished follows whether the move ran through or a
  // handler threw, before the error sink hears of it. A container may
  // gather the move's writes between the two; what their handlers throw
  // ends the move and reaches the error sink like a failed move.
  void MoveStarted(int count);
  void MoveFinished();

 private:
  enum class Scope { Highlighted, Every };

  int padding() const;
  // Measures text and raises widest when it is wider.
  void measure(const QString& text, int& widest);
  // Shows the list's entries that hold the filter's text, every one when
  // it is empty.
  void applyFilter(QListWidget* list, const QString& filter);
  bool matches(const QString& text, const QString& filter) const;
  void fill(ExtentListWidget* list, int& widest, const QStringList& strings);
  bool isSelected(const QString& text) const;
  // The selected list's content changes only through these, which keep
  // selectedCount_ in step.
  void appendSelected(const QString& text);
  void takeSelected(int row);

  // The four moves, each run through trapped() from the buttons and lists.
  void copyAcross(Scope scope);
  void removeHighlighted();
  void removeAll();
  void trapped(int count, const std::function<void()>& move);
  void report(const std::exception& error);

  std::unique_ptr<Ui::MoveOverStringControl> ui_;
  QString activeItem_;
  bool addAllowed_ = true;
  bool removeAllowed_ = true;
  int widestAvailable_ = 0;
  int widestSelected_ = 0;
  // How often each string stands in the selected list.
  QHash<QString, int> selectedCount_;
  // Widths measured since the available list was last filled: a string
  // copied across is not measured again.
  QHash<QString, int> widths_;
  ErrorSink errorSink_;
};

}  // namespace controls
