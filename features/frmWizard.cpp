#include "features/frmWizard.h"

#include <QApplication>
#include <QHeaderView>
#include <QListWidget>
#include <QtDebug>

#include "controls/MoveOverStringControl.h"
#include "document/string_table.h"
#include "features/ValueGridModel.h"
#include "features/feature_name.h"
#include "linkage/dialog_support.h"
#include "ui_frmWizard.h"

using document::text;

namespace features {

frmWizard::frmWizard(schema::SchemaDatabase& db, WizardRecordsets recordsets,
                     document::Prompter& prompter, QWidget* parent)
    : QDialog(parent),
      ui_(std::make_unique<Ui::frmWizard>()),
      prompter_(prompter),
      wizard_(db, recordsets, prompter) {
  ui_->setupUi(this);
  linkage::nameControlsFromLabels(this);
  sink_ = [](const std::exception& e) { qWarning("feature wizard: %s", e.what()); };

  ui_->MoveOverStringControlFeatAttr->setLeftLabel(text(2011));
  ui_->MoveOverStringControlFeatAttr->setRightLabel(text(2012));
  ui_->MoveOverStringControlFeatDef->setLeftLabel(text(2011));
  ui_->MoveOverStringControlFeatDef->setRightLabel(text(2012));
  ui_->MoveOverStringControlFeatMaps->setLeftLabel(text(2006));
  ui_->MoveOverStringControlFeatMaps->setRightLabel(text(2008));
  wireChooser(
      ui_->MoveOverStringControlFeatAttr,
      [this](const QString& s) { return wizard_.exposed().add(s); },
      [this](const QString& s) { return wizard_.exposed().remove(s); }, [this] { showGeometry(); });
  wireChooser(
      ui_->MoveOverStringControlFeatDef,
      [this](const QString& s) { return wizard_.definition().add(s); },
      [this](const QString& s) { return wizard_.definition().remove(s); },
      [this] { grid_->refresh(); });
  wireChooser(
      ui_->MoveOverStringControlFeatMaps,
      [this](const QString& s) { return wizard_.maps().add(s); },
      [this](const QString& s) { return wizard_.maps().remove(s); });

  grid_ = new ValueGridModel(wizard_.definition(),
                             ui_->TDBGrid1->property("columnCaptions").toStringList(), this);
  ui_->TDBGrid1->setModel(grid_);
  for (int column :
       {ValueGridModel::kTableName, ValueGridModel::kTableId, ValueGridModel::kUpdateFlag})
    ui_->TDBGrid1->setColumnHidden(column, true);
  ui_->TDBGrid1->verticalHeader()->hide();
  QHeaderView* header = ui_->TDBGrid1->horizontalHeader();
  header->setSectionResizeMode(QHeaderView::ResizeToContents);
  header->setSectionResizeMode(ValueGridModel::kValues, QHeaderView::Stretch);
  ui_->TDBGrid1->setAccessibleDescription(ui_->Label13->text().remove(QLatin1Char('&')));

  connect(ui_->tbFeatureName, &QLineEdit::textEdited, this,
          [this](const QString& t) { trap([&] { nameEdited(t); }); });
  ui_->tbFeatureName->installEventFilter(this);
  connect(ui_->comboFeatureCS, &QComboBox::currentIndexChanged, this, [this](int index) {
    if (!showing_) wizard_.setCoordinateSystem(index);
  });
  connect(ui_->chkDBLinkage, &QCheckBox::clicked, this,
          [this](bool checked) { trap([&] { linkageClicked(checked); }); });
  connect(ui_->lbPrimaryGeometry, &QListWidget::itemChanged, this, [this](QListWidgetItem* item) {
    if (!showing_)
      geometryChanged(ui_->lbPrimaryGeometry->row(item), item->checkState() == Qt::Checked);
  });

  connect(ui_->cmdNav0, &QPushButton::clicked, this, [this] {
    if (help_) help_(kFirstStepHelpContext + wizard_.step());
  });
  connect(ui_->cmdNav1, &QPushButton::clicked, this, &frmWizard::reject);
  connect(ui_->cmdNav2, &QPushButton::clicked, this, [this] {
    wizard_.back();
    showStep();
  });
  connect(ui_->cmdNav3, &QPushButton::clicked, this, [this] { trap([this] { next(); }); });
  connect(ui_->cmdNav4, &QPushButton::clicked, this, [this] { finish(); });
}

frmWizard::~frmWizard() = default;

void frmWizard::setErrorSink(ErrorSink sink) {
  sink_ = std::move(sink);
  for (auto* chooser : {ui_->MoveOverStringControlFeatAttr, ui_->MoveOverStringControlFeatDef,
                        ui_->MoveOverStringControlFeatMaps})
    chooser->setErrorSink(sink_);
}

void frmWizard::wireChooser(controls::MoveOverStringControl* chooser,
                            std::function<bool(const QString&)> add,
                            std::function<bool(const QString&)> remove,
                            std::function<void()> changed) {
  // A handler that throws ends the move; the chooser hands the error on.
  connect(chooser, &controls::MoveOverStringControl::ItemSelected, this, [=] {
    chooser->canAdd(add(chooser->ActiveItem()));
    if (changed) changed();
  });
  connect(chooser, &controls::MoveOverStringControl::ItemUnSelected, this, [=] {
    chooser->canDelete(remove(chooser->ActiveItem()));
    if (changed) changed();
  });
}

void frmWizard::load(const QString& featureName, const std::string& graphicScannerClass) {
  wizard_.load(featureName, graphicScannerClass);
  showing_ = true;
  ui_->tbFeatureName->setText(wizard_.name());
  for (const FeatureWizard::CoordinateSystem& cs : wizard_.coordinateSystems())
    ui_->comboFeatureCS->addItem(cs.text, int(cs.csfid));
  ui_->comboFeatureCS->setCurrentIndex(wizard_.coordinateSystem());
  ui_->chkDBLinkage->setChecked(wizard_.dbLinked());
  ui_->chkDBLinkage->setEnabled(wizard_.dbLinkageEnabled());

  ui_->MoveOverStringControlFeatAttr->setAvailableStrings(wizard_.exposed().available());
  ui_->MoveOverStringControlFeatAttr->setSelectedStrings(&wizard_.exposed().selected());
  ui_->MoveOverStringControlFeatDef->setAvailableStrings(wizard_.definition().available());
  ui_->MoveOverStringControlFeatMaps->setAvailableStrings(wizard_.maps().available());
  ui_->MoveOverStringControlFeatMaps->setSelectedStrings(&wizard_.maps().loaded());
  showing_ = false;
  showDefinition();
  showGeometry();
  showStep();
  // A new feature's default name is there to be typed over.
  if (wizard_.isNew()) ui_->tbFeatureName->selectAll();
}

void frmWizard::showStep() {
  const int step = wizard_.step();
  ui_->fraStep->setCurrentIndex(step);
  setWindowTitle(wizard_.caption());
  ui_->cmdNav2->setEnabled(wizard_.backEnabled());
  ui_->cmdNav3->setEnabled(wizard_.nextEnabled());
  // Enter goes on to the next step, and on the last one finishes.
  ui_->cmdNav3->setDefault(wizard_.nextEnabled());
  ui_->cmdNav4->setDefault(!wizard_.nextEnabled());
  // The grid's cursor starts on the values, where typing is meant to go.
  QTableView* grid = ui_->TDBGrid1;
  if (step == 3 && grid_->rowCount() > 0 &&
      grid->currentIndex().column() != ValueGridModel::kValues)
    grid->setCurrentIndex(
        grid_->index(std::max(grid->currentIndex().row(), 0), ValueGridModel::kValues));
  focusStep();
}

void frmWizard::focusStep() {
  QWidget* page = ui_->fraStep->currentWidget();
  for (QWidget* w = page->nextInFocusChain(); w != page; w = w->nextInFocusChain()) {
    if (!page->isAncestorOf(w)) continue;
    if (w->isEnabled() && (w->focusPolicy() & Qt::TabFocus)) {
      w->setFocus(Qt::OtherFocusReason);
      return;
    }
  }
}

void frmWizard::showGeometry() {
  showing_ = true;
  QListWidget* list = ui_->lbPrimaryGeometry;
  list->clear();
  for (const ExposedAttributes::Geometry& g : wizard_.exposed().geometry()) {
    auto* item = new QListWidgetItem(g.name, list);
    item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
    item->setCheckState(g.checked ? Qt::Checked : Qt::Unchecked);
  }
  showing_ = false;
}

void frmWizard::showDefinition() {
  showing_ = true;
  ui_->MoveOverStringControlFeatDef->setSelectedStrings(&wizard_.definition().selected());
  showing_ = false;
  grid_->refresh();
}

void frmWizard::geometryChanged(int row, bool checked) {
  // Checking one unchecks the rest; unchecking the checked one leaves none.
  wizard_.exposed().checkGeometry(checked ? row : -1);
  const int current = ui_->lbPrimaryGeometry->currentRow();
  showGeometry();
  ui_->lbPrimaryGeometry->setCurrentRow(current);
}

void frmWizard::nameEdited(const QString& typed) {
  const NameEdit edit = nameTyped(typed, wizard_.nameAsOpened());
  wizard_.setName(edit.text);
  if (edit.message == 0) return;
  ui_->tbFeatureName->setText(edit.text);
  prompter_.ask(text(edit.message), document::MessageStyle::Ok);
}

bool frmWizard::leaveName(bool emptyMayLeave) {
  const NameLeave leave = nameLeft(ui_->tbFeatureName->text(), wizard_.nameAsOpened());
  // Next and Finish name an empty name themselves.
  if (!leave.keepFocus || (emptyMayLeave && leave.message == 0)) return true;
  if (leave.message) prompter_.ask(text(leave.message), document::MessageStyle::Ok);
  ui_->tbFeatureName->setFocus(Qt::OtherFocusReason);
  return false;
}

bool frmWizard::eventFilter(QObject* watched, QEvent* event) {
  // Leaving the name box for another control of its step checks the name;
  // the buttons below run their own checks, and Cancel needs none.
  if (watched == ui_->tbFeatureName && event->type() == QEvent::FocusOut && !showing_) {
    QWidget* next = QApplication::focusWidget();
    if (next && ui_->fraStep0->isAncestorOf(next) && next != ui_->tbFeatureName) {
      showing_ = true;
      trap([this] { leaveName(false); });
      showing_ = false;
    }
  }
  return QDialog::eventFilter(watched, event);
}

void frmWizard::linkageClicked(bool checked) {
  if (!wizard_.setDbLinked(checked).isEmpty()) showDefinition();
}

void frmWizard::commitGridEdit() {
  QTableView* view = ui_->TDBGrid1;
  const QModelIndex current = view->currentIndex();
  if (QWidget* editor = view->indexWidget(current)) {
    view->itemDelegateForIndex(current)->setModelData(editor, view->model(), current);
    view->closePersistentEditor(current);
  }
}

void frmWizard::next() {
  commitGridEdit();
  if (wizard_.step() == 0 && !leaveName(true)) return;
  const bool fromFirst = wizard_.step() == 0;
  const bool moved = wizard_.next();
  // Leaving the first step of a new feature class adds its key attributes.
  if (fromFirst && wizard_.isNew())
    ui_->MoveOverStringControlFeatAttr->setSelectedStrings(&wizard_.exposed().selected());
  if (moved) showStep();
}

void frmWizard::finish() {
  try {
    commitGridEdit();
    if (wizard_.step() == 0 && !leaveName(true)) return;
    if (wizard_.finish() == FeatureWizard::Outcome::kFinished) accept();
  } catch (const std::exception& e) {
    sink_(e);
    // A failed write has rolled everything back: nothing is left to edit.
    if (!wizard_.isOpen()) QDialog::reject();
  }
}

void frmWizard::reject() {
  try {
    wizard_.cancel();
  } catch (const std::exception& e) {
    sink_(e);
  }
  QDialog::reject();
}

void frmWizard::trap(const std::function<void()>& handler) {
  try {
    handler();
  } catch (const std::exception& e) {
    sink_(e);
  }
}

}  // namespace features
