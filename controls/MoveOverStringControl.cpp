#include "controls/MoveOverStringControl.h"

#include <QApplication>
#include <QFontMetrics>
#include <QKeyEvent>
#include <QtDebug>
#include <array>
#include <exception>
#include <memory>
#include <stdexcept>
#include <utility>

#include "controls/ExtentListWidget.h"
#include "ui_MoveOverStringControl.h"

namespace controls {

namespace {

// The busy pointer of one move. It is taken down before the error sink
// runs, so a report shown from there has the normal pointer and the stack
// of override cursors stays balanced.
class BusyPointer {
 public:
  BusyPointer() { QApplication::setOverrideCursor(Qt::WaitCursor); }
  ~BusyPointer() { restore(); }
  BusyPointer(const BusyPointer&) = delete;
  BusyPointer& operator=(const BusyPointer&) = delete;

  void restore() {
    if (!shown_) return;
    shown_ = false;
    QApplication::restoreOverrideCursor();
  }

 private:
  bool shown_ = true;
};

// Runs a clean-up step when a move ends, whether it ran through or a
// handler threw.
template <typename F>
class AtExit {
 public:
  explicit AtExit(F step) : step_(std::move(step)) {}
  ~AtExit() { step_(); }
  AtExit(const AtExit&) = delete;
  AtExit& operator=(const AtExit&) = delete;

 private:
  F step_;
};

void logError(const std::exception& error) { qWarning("MoveOverStringControl: %s", error.what()); }

}  // namespace

MoveOverStringControl::MoveOverStringControl(QWidget* parent)
    : QWidget(parent), ui_(std::make_unique<Ui::MoveOverStringControl>()), errorSink_(logError) {
  ui_->setupUi(this);
  const auto highlighted = [](const QListWidget* list) {
    return int(list->selectionModel()->selectedRows().size());
  };
  connect(ui_->butSelect, &QPushButton::clicked, this, [this, highlighted] {
    trapped(highlighted(ui_->AvailableList), [this] { copyAcross(Scope::Highlighted); });
  });
  connect(ui_->butSelectAll, &QPushButton::clicked, this,
          [this] { trapped(ui_->AvailableList->count(), [this] { copyAcross(Scope::Every); }); });
  connect(ui_->butUnSelect, &QPushButton::clicked, this, [this, highlighted] {
    trapped(highlighted(ui_->SelectedList), [this] { removeHighlighted(); });
  });
  connect(ui_->butUnSelectAll, &QPushButton::clicked, this,
          [this] { trapped(ui_->SelectedList->count(), [this] { removeAll(); }); });
  // The first click of a double-click has already highlighted the entry
  // alone, so the double-click moves just that one.
  connect(ui_->AvailableList, &QListWidget::itemDoubleClicked, this,
          [this] { trapped(1, [this] { copyAcross(Scope::Highlighted); }); });
  connect(ui_->SelectedList, &QListWidget::itemDoubleClicked, this,
          [this] { trapped(1, [this] { removeHighlighted(); }); });
  connect(ui_->txtLeftFilter, &QLineEdit::textChanged, this,
          [this](const QString& text) { applyFilter(ui_->AvailableList, text); });
  connect(ui_->txtRightFilter, &QLineEdit::textChanged, this,
          [this](const QString& text) { applyFilter(ui_->SelectedList, text); });
  ui_->txtLeftFilter->installEventFilter(this);
  ui_->txtRightFilter->installEventFilter(this);
}

MoveOverStringControl::~MoveOverStringControl() = default;

QString MoveOverStringControl::LeftLabel() const { return ui_->lblLeftList->text(); }

namespace {
// "Available maps:" gives "Available maps filter".
QString filterName(QString caption) {
  if (caption.endsWith(QLatin1Char(':'))) caption.chop(1);
  return caption + QStringLiteral(" filter");
}
}  // namespace

void MoveOverStringControl::setLeftLabel(const QString& caption) {
  ui_->lblLeftList->setText(caption);
  ui_->AvailableList->setAccessibleName(caption);
  ui_->txtLeftFilter->setAccessibleName(filterName(caption));
}

QString MoveOverStringControl::RightLabel() const { return ui_->lblRightList->text(); }

void MoveOverStringControl::setRightLabel(const QString& caption) {
  ui_->lblRightList->setText(caption);
  ui_->SelectedList->setAccessibleName(caption);
  ui_->txtRightFilter->setAccessibleName(filterName(caption));
}

namespace {
QStringList stringsOf(const QListWidget* list) {
  QStringList strings;
  strings.reserve(list->count());
  for (int i = 0; i < list->count(); ++i) strings << list->item(i)->text();
  return strings;
}
}  // namespace

QStringList MoveOverStringControl::AvailableStrings() const {
  return stringsOf(ui_->AvailableList);
}

void MoveOverStringControl::setAvailableStrings(const QStringList& strings) {
  ui_->AvailableList->clear();
  widths_.clear();
  fill(ui_->AvailableList, widestAvailable_, strings);
  if (!ui_->txtLeftFilter->text().isEmpty())
    applyFilter(ui_->AvailableList, ui_->txtLeftFilter->text());
}

QStringList MoveOverStringControl::SelectedStrings() const { return stringsOf(ui_->SelectedList); }

void MoveOverStringControl::setSelectedStrings(const QStringList* strings) {
  if (!strings) {
    // The extent is set all the same; it can only have grown.
    ui_->SelectedList->setHorizontalExtent(widestSelected_ + padding());
    return;
  }
  ClearSelected();
  fill(ui_->SelectedList, widestSelected_, *strings);
  for (const QString& text : *strings) ++selectedCount_[text];
  if (!ui_->txtRightFilter->text().isEmpty())
    applyFilter(ui_->SelectedList, ui_->txtRightFilter->text());
}

void MoveOverStringControl::enabled(bool value) {
  const std::array<QWidget*, 8> parts{ui_->AvailableList,  ui_->SelectedList,  ui_->txtLeftFilter,
                                      ui_->txtRightFilter, ui_->butSelect,     ui_->butSelectAll,
                                      ui_->butUnSelect,    ui_->butUnSelectAll};
  for (QWidget* part : parts) part->setEnabled(value);
}

void MoveOverStringControl::Clear() {
  ClearAvailable();
  ClearSelected();
}

void MoveOverStringControl::ClearAvailable() { ui_->AvailableList->clear(); }

void MoveOverStringControl::ClearSelected() {
  ui_->SelectedList->clear();
  selectedCount_.clear();
}

void MoveOverStringControl::setErrorSink(ErrorSink sink) {
  errorSink_ = sink ? std::move(sink) : ErrorSink(logError);
}

int MoveOverStringControl::padding() const {
  return fontMetrics().horizontalAdvance(QStringLiteral("12345"));
}

void MoveOverStringControl::measure(const QString& text, int& widest) {
  auto known = widths_.constFind(text);
  if (known == widths_.constEnd())
    known = widths_.insert(text, fontMetrics().horizontalAdvance(text));
  if (*known > widest) widest = *known;
}

bool MoveOverStringControl::matches(const QString& text, const QString& filter) const {
  return filter.isEmpty() || text.contains(filter, Qt::CaseInsensitive);
}

void MoveOverStringControl::applyFilter(QListWidget* list, const QString& filter) {
  for (int i = 0; i < list->count(); ++i) {
    QListWidgetItem* item = list->item(i);
    const bool hide = !matches(item->text(), filter);
    if (list->isRowHidden(i) == hide) continue;
    list->setRowHidden(i, hide);
    if (hide) item->setSelected(false);
  }
}

bool MoveOverStringControl::eventFilter(QObject* watched, QEvent* event) {
  // Down in a filter box goes on into its list.
  if (event->type() == QEvent::KeyPress && static_cast<QKeyEvent*>(event)->key() == Qt::Key_Down) {
    if (watched == ui_->txtLeftFilter) return ui_->AvailableList->setFocus(), true;
    if (watched == ui_->txtRightFilter) return ui_->SelectedList->setFocus(), true;
  }
  return QWidget::eventFilter(watched, event);
}

void MoveOverStringControl::fill(ExtentListWidget* list, int& widest, const QStringList& strings) {
  const int room = padding();
  for (const QString& text : strings) measure(text, widest);
  list->addItems(strings);
  list->setHorizontalExtent(widest + room);
}

bool MoveOverStringControl::isSelected(const QString& text) const {
  // The scan this stands for runs one entry past the end, where a list
  // reads as the empty string: an empty available string therefore always
  // counts as selected and is never copied. Containers rely on that.
  return text.isEmpty() || selectedCount_.contains(text);
}

void MoveOverStringControl::appendSelected(const QString& text) {
  // addItem, not an item made with the list as parent: that road costs
  // ten times as much per entry.
  QListWidget* list = ui_->SelectedList;
  list->addItem(text);
  if (!matches(text, ui_->txtRightFilter->text())) list->setRowHidden(list->count() - 1, true);
  ++selectedCount_[text];
}

void MoveOverStringControl::takeSelected(int row) {
  std::unique_ptr<QListWidgetItem> item(ui_->SelectedList->takeItem(row));
  const auto at = selectedCount_.find(item->text());
  if (at != selectedCount_.end() && --*at == 0) selectedCount_.erase(at);
}

void MoveOverStringControl::copyAcross(Scope scope) {
  const int room = padding();
  // Strings copied before a handler threw stay, and must be reachable.
  AtExit extent([this, room] { ui_->SelectedList->setHorizontalExtent(widestSelected_ + room); });
  QListWidget* available = ui_->AvailableList;
  // The count is read afresh: a handler may have changed the list.
  for (int i = 0; i < available->count(); ++i) {
    const QListWidgetItem* item = available->item(i);
    if (scope == Scope::Highlighted && !item->isSelected()) continue;
    const QString text = item->text();
    addAllowed_ = true;
    if (isSelected(text)) continue;
    activeItem_ = text;
    emit ItemSelected();
    if (!addAllowed_) continue;
    measure(text, widestSelected_);
    appendSelected(text);
  }
}

void MoveOverStringControl::removeHighlighted() {
  QListWidget* selected = ui_->SelectedList;
  // Entries above the last one offered are removed or un-highlighted by
  // then, so the search goes on from there rather than from the top.
  const auto firstHighlighted = [selected](int from) {
    for (int j = from; j < selected->count(); ++j)
      if (selected->item(j)->isSelected()) return j;
    return -1;
  };
  // A vetoed entry loses its highlight, so each one is offered once.
  for (int j = firstHighlighted(0); j >= 0; j = firstHighlighted(j)) {
    removeAllowed_ = true;
    activeItem_ = selected->item(j)->text();
    emit ItemUnSelected();
    if (j >= selected->count()) continue;
    if (removeAllowed_) {
      takeSelected(j);
    } else {
      selected->item(j)->setSelected(false);
      ++j;
    }
  }
}

void MoveOverStringControl::removeAll() {
  QListWidget* selected = ui_->SelectedList;
  const int n = selected->count();
  int p = 0;
  for (int round = 0; round < n && p < selected->count(); ++round) {
    removeAllowed_ = true;
    activeItem_ = selected->item(p)->text();
    emit ItemUnSelected();
    if (p >= selected->count()) break;
    if (removeAllowed_) {
      takeSelected(p);
    } else {
      selected->item(p)->setSelected(false);
      ++p;
    }
  }
}

void MoveOverStringControl::trapped(int count, const std::function<void()>& move) {
  BusyPointer busy;
  std::exception_ptr failure;
  try {
    emit MoveStarted(count);
    move();
  } catch (...) {
    failure = std::current_exception();
  }
  // The container closes the move first, then hears what went wrong.
  try {
    emit MoveFinished();
  } catch (...) {
    if (!failure) failure = std::current_exception();
  }
  if (!failure) return;
  busy.restore();
  try {
    std::rethrow_exception(failure);
  } catch (const std::exception& error) {
    report(error);
  } catch (...) {
    report(std::runtime_error("unknown error"));
  }
}

void MoveOverStringControl::report(const std::exception& error) {
  try {
    errorSink_(error);
  } catch (...) {
    // The sink is the end of the road; a move runs inside the event loop,
    // where nothing may escape.
  }
}

}  // namespace controls
