#include "linkage/frmPrimaryUniqueKeys.h"

#include <QListWidget>
#include <QtDebug>

#include "ui_frmPrimaryUniqueKeys.h"

namespace linkage {

namespace {

void fill(QListWidget* list, const PrimaryUniqueKeys& keys, PrimaryUniqueKeys::Key key) {
  list->setUniformItemSizes(true);
  for (const schema::ListEntry& entry : keys.candidates()) {
    auto* item = new QListWidgetItem(QString::fromStdString(entry.text), list);
    item->setData(Qt::UserRole, int(entry.id));
  }
  if (const std::optional<size_t> selected = keys.selected(key)) {
    list->setCurrentRow(static_cast<int>(*selected));
    list->scrollToItem(list->currentItem());
  }
}

std::optional<size_t> selectedRow(const QListWidget* list) {
  const QList<QListWidgetItem*> items = list->selectedItems();
  if (items.isEmpty()) return std::nullopt;
  return static_cast<size_t>(list->row(items.first()));
}

}  // namespace

frmPrimaryUniqueKeys::frmPrimaryUniqueKeys(schema::SchemaDatabase& db,
                                           schema::Recordset& graphicAttributes,
                                           std::string_view drawingScannerClass, QWidget* parent)
    : QDialog(parent), ui_(std::make_unique<Ui::frmPrimaryUniqueKeys>()), db_(db) {
  keys_.load(db, graphicAttributes, drawingScannerClass);
  ui_->setupUi(this);
  nameControlsFromLabels(this);
  fill(ui_->lbGraphicUniqueKeys, keys_, PrimaryUniqueKeys::kGraphicOnly);
  fill(ui_->lbDBLinkedFeatureKey, keys_, PrimaryUniqueKeys::kDbLinked);
  ui_->lbDBLinkedFeatureKey->setEnabled(keys_.dbLinkedKeyEnabled());
  connect(ui_->butClose, &QPushButton::clicked, this, &QDialog::accept);
  sink_ = [](const std::exception& e) { qWarning("keys not stored: %s", e.what()); };
}

frmPrimaryUniqueKeys::~frmPrimaryUniqueKeys() = default;

void frmPrimaryUniqueKeys::done(int result) {
  keys_.select(PrimaryUniqueKeys::kGraphicOnly, selectedRow(ui_->lbGraphicUniqueKeys));
  keys_.select(PrimaryUniqueKeys::kDbLinked, selectedRow(ui_->lbDBLinkedFeatureKey));
  try {
    keys_.save(db_);
  } catch (const std::exception& e) {
    sink_(e);
  }
  QDialog::done(result);
}

}  // namespace linkage
