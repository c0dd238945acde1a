#include "linkage/frmDBLinkageOptions.h"

#include <QHeaderView>
#include <QKeyEvent>
#include <QLineEdit>
#include <QStyledItemDelegate>
#include <QTableView>
#include <QtDebug>
#include <algorithm>

#include "linkage/LinkGridModel.h"
#include "ui_frmDBLinkageOptions.h"

namespace linkage {

namespace {

// Edits the database scanner name in a box that takes no more than the
// column stores.
class NameDelegate : public QStyledItemDelegate {
 public:
  NameDelegate(int maxLength, QObject* parent) : QStyledItemDelegate(parent), max_(maxLength) {}
  QWidget* createEditor(QWidget* parent, const QStyleOptionViewItem& option,
                        const QModelIndex& index) const override {
    QWidget* editor = QStyledItemDelegate::createEditor(parent, option, index);
    if (auto* box = qobject_cast<QLineEdit*>(editor); box && max_ > 0) box->setMaxLength(max_);
    return editor;
  }

 private:
  int max_;
};

}  // namespace

frmDBLinkageOptions::frmDBLinkageOptions(schema::SchemaDatabase& db,
                                         schema::Recordset& graphicAttributes, QWidget* parent)
    : QDialog(parent), ui_(std::make_unique<Ui::frmDBLinkageOptions>()), db_(db) {
  options_.load(db, graphicAttributes);
  ui_->setupUi(this);
  nameControlsFromLabels(this);
  setUpGrid(ui_->tdbgGraphicToDbTableLink, LinkageOptions::kTableLinks);
  setUpGrid(ui_->tdbgGraphicToDbRowLink, LinkageOptions::kRowLinks);
  connect(ui_->butClose, &QPushButton::clicked, this, &QDialog::accept);
  sink_ = [](const std::exception& e) { qWarning("linkage not stored: %s", e.what()); };
}

frmDBLinkageOptions::~frmDBLinkageOptions() = default;

void frmDBLinkageOptions::setUpGrid(QTableView* view, LinkageOptions::Grid grid) {
  auto* model =
      new LinkGridModel(options_.rows(grid), view->property("columnCaptions").toStringList(),
                        options_.dbScaNameSize(), view);
  view->setModel(model);
  view->setItemDelegateForColumn(LinkGridModel::kDbScaName,
                                 new NameDelegate(options_.dbScaNameSize(), view));
  view->verticalHeader()->hide();
  view->verticalHeader()->setDefaultSectionSize(view->fontMetrics().height() + 8);
  QHeaderView* header = view->horizontalHeader();
  header->setSectionResizeMode(QHeaderView::ResizeToContents);
  header->setSectionResizeMode(LinkGridModel::kDbScaName, QHeaderView::Stretch);
  // The cursor starts on the first linked attribute, so what is stored
  // shows without scrolling.
  const std::vector<LinkageOptions::Row>& rows = options_.rows(grid);
  const auto linked = std::find_if(rows.begin(), rows.end(), [](const auto& r) { return r.link; });
  if (!rows.empty()) {
    const int row = linked == rows.end() ? 0 : static_cast<int>(linked - rows.begin());
    view->setCurrentIndex(model->index(row, LinkGridModel::kLink));
    view->scrollTo(view->currentIndex(), QAbstractItemView::PositionAtCenter);
  }
  view->installEventFilter(this);
  views_[grid] = view;
  models_[grid] = model;
}

bool frmDBLinkageOptions::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::KeyPress && static_cast<QKeyEvent*>(event)->key() == Qt::Key_Space &&
      static_cast<QKeyEvent*>(event)->modifiers() == Qt::NoModifier) {
    // Space toggles Link wherever the cursor stands in the row, so typing
    // a name never starts with it; inside the name's editor it is a blank.
    for (size_t grid = 0; grid < views_.size(); ++grid) {
      QTableView* view = views_[grid];
      if (watched != view || view->indexWidget(view->currentIndex())) continue;
      models_[grid]->toggleLink(view->currentIndex().row());
      return true;
    }
  }
  return QDialog::eventFilter(watched, event);
}

void frmDBLinkageOptions::done(int result) {
  // A name still in its editor is what the grid shows, so it is stored too.
  for (QTableView* view : views_) {
    const QModelIndex current = view->currentIndex();
    if (QWidget* editor = view->indexWidget(current))
      view->itemDelegateForIndex(current)->setModelData(editor, view->model(), current);
  }
  try {
    options_.save(db_);
  } catch (const std::exception& e) {
    sink_(e);
  }
  QDialog::done(result);
}

}  // namespace linkage
