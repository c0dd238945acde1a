#include "shell/CoordinateSystemsTab.h"

#include <QComboBox>
#include <QHeaderView>

#include "document/string_table.h"
#include "shell/busy.h"
#include "ui_frmMain.h"

using folders::AssociationModel;
using folders::CoordinateSystemAssociation;

namespace shell {

// --- the grid's drop-down --------------------------------------------------

QWidget* CoordinateSystemDelegate::createEditor(QWidget* parent, const QStyleOptionViewItem&,
                                                const QModelIndex&) const {
  auto* files = new QComboBox(parent);
  files->setAccessibleName(document::text(5121));
  for (const CoordinateSystemAssociation::File& file : association_.files())
    files->addItem(file.name);
  // A choice is written at once, as a user of a drop-down cell expects.
  connect(files, &QComboBox::activated, this, [this, files] {
    emit const_cast<CoordinateSystemDelegate*>(this)->commitData(files);
    emit const_cast<CoordinateSystemDelegate*>(this)->closeEditor(files);
  });
  return files;
}

void CoordinateSystemDelegate::setEditorData(QWidget* editor, const QModelIndex& index) const {
  auto* files = static_cast<QComboBox*>(editor);
  files->setCurrentIndex(files->findText(index.data(Qt::EditRole).toString()));
}

void CoordinateSystemDelegate::setModelData(QWidget* editor, QAbstractItemModel* model,
                                            const QModelIndex& index) const {
  const QString chosen = static_cast<QComboBox*>(editor)->currentText();
  if (chosen.isEmpty() || chosen == index.data(Qt::EditRole).toString()) return;
  host_.trap([&] { model->setData(index, chosen); });
}

// --- the tab ---------------------------------------------------------------

CoordinateSystemsTab::CoordinateSystemsTab(Ui::frmMain& ui, TabHost host)
    : ui_(ui),
      host_(std::move(host)),
      association_(host_.tables),
      model_(association_),
      delegate_(association_, host_) {
  QTableView* grid = ui_.tdbgCS;
  grid->setModel(&model_);
  grid->setItemDelegateForColumn(AssociationModel::kFile, &delegate_);
  grid->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::SelectedClicked |
                        QAbstractItemView::EditKeyPressed);
  // Sizes that never look at the rows, so tens of thousands cost nothing.
  QHeaderView* header = grid->horizontalHeader();
  header->setStretchLastSection(false);
  header->setSectionResizeMode(AssociationModel::kMap, QHeaderView::Stretch);
  header->setSectionResizeMode(AssociationModel::kFile, QHeaderView::Stretch);
  header->setSectionResizeMode(AssociationModel::kCsId, QHeaderView::Fixed);
  header->resizeSection(AssociationModel::kCsId,
                        header->fontMetrics().horizontalAdvance(QStringLiteral("CS Id 12345")));
  // The bookmark is how a row finds its map again; it means nothing to read.
  grid->setColumnHidden(AssociationModel::kBookmark, true);
  grid->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
  grid->verticalHeader()->setDefaultSectionSize(grid->fontMetrics().height() + 8);

  connect(ui_.optSameCS, &QRadioButton::clicked, this,
          [this] { host_.trap([this] { chooseSame(); }); });
  connect(ui_.optDiffCS, &QRadioButton::clicked, this,
          [this] { host_.trap([this] { chooseDifferent(); }); });
  connect(ui_.comboCS, &QComboBox::activated, this, [this] {
    if (ui_.optSameCS->isChecked()) host_.trap([this] { chooseSame(); });
  });
}

CoordinateSystemsTab::~CoordinateSystemsTab() = default;

void CoordinateSystemsTab::refresh() {
  Hourglass busy;
  model_.refresh();
  const bool same = association_.mode() == CoordinateSystemAssociation::Mode::Same;
  ui_.comboCS->clear();
  for (const CoordinateSystemAssociation::File& file : association_.files())
    ui_.comboCS->addItem(file.name);
  ui_.comboCS->setCurrentIndex(association_.sharedFile());
  (same ? ui_.optSameCS : ui_.optDiffCS)->setChecked(true);
  showMode(same);
}

void CoordinateSystemsTab::clear() {
  ui_.comboCS->clear();
  // Neither option chosen: exclusive buttons only let go of the check with
  // exclusivity off for the moment.
  for (QRadioButton* option : {ui_.optSameCS, ui_.optDiffCS}) {
    option->setAutoExclusive(false);
    option->setChecked(false);
    option->setAutoExclusive(true);
  }
  model_.clear();
}

void CoordinateSystemsTab::setEnabled(bool open) {
  for (QWidget* w :
       std::initializer_list<QWidget*>{ui_.optSameCS, ui_.optDiffCS, ui_.comboCS, ui_.tdbgCS})
    w->setEnabled(open);
  if (open && (ui_.optSameCS->isChecked() || ui_.optDiffCS->isChecked()))
    showMode(ui_.optSameCS->isChecked());
}

void CoordinateSystemsTab::showMode(bool same) {
  ui_.comboCS->setEnabled(same);
  ui_.tdbgCS->setEnabled(!same);
}

void CoordinateSystemsTab::chooseSame() {
  Hourglass busy;
  showMode(true);
  // No file chosen: the maps stay as they are.
  const QString chosen = ui_.comboCS->currentText();
  if (chosen.trimmed().isEmpty()) return;
  const std::optional<int16_t> csfid = association_.csfidOf(chosen);
  if (!csfid) return;
  WorkProgress progress(host_.window);
  association_.applyToAll(*csfid, progress);
  model_.filesChanged();
}

void CoordinateSystemsTab::chooseDifferent() { showMode(false); }

}  // namespace shell
