#include "shell/frmDir.h"

#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QFileSystemModel>
#include <QFocusEvent>
#include <QKeyEvent>
#include <QScrollBar>
#include <QTimer>

#include "folders/folder_dialog.h"
#include "shell/help.h"
#include "ui_frmDir.h"

namespace shell {

frmDir::frmDir(document::Prompter& prompter, QWidget* parent)
    : QDialog(parent),
      ui_(std::make_unique<Ui::frmDir>()),
      prompter_(prompter),
      model_(new QFileSystemModel(this)) {
  ui_->setupUi(this);
  // Folders only, as the scan lists ordinary files only: no hidden ones.
  model_->setFilter(QDir::AllDirs | QDir::NoDotAndDotDot);
  model_->setReadOnly(true);
  ui_->Dir1->setModel(model_);
  for (int column = 1; column < model_->columnCount(); ++column) ui_->Dir1->hideColumn(column);

  mountPoints_ = folders::mountPoints();
  ui_->Drive1->addItems(mountPoints_);
  connect(ui_->Drive1, &QComboBox::activated, this,
          [this](int index) { showFolder(mountPoints_.value(index, QStringLiteral("/"))); });
  connect(ui_->Dir1->selectionModel(), &QItemSelectionModel::currentChanged, this,
          [this](const QModelIndex& current) {
            if (!current.isValid()) return;
            selected_ = model_->filePath(current);
            ui_->tbSelectedPath->setText(selected_);
          });
  // The model reads folders in the background and inserts and sorts rows
  // as they come, which moves the folder shown away from view: it is
  // brought back each time, until the user moves about the tree.
  const auto follow = [this] {
    if (!following_) return;
    QTimer::singleShot(0, this, [this] {
      if (following_)
        ui_->Dir1->scrollTo(ui_->Dir1->currentIndex(), QAbstractItemView::PositionAtCenter);
    });
  };
  connect(model_, &QFileSystemModel::rowsInserted, this, follow);
  connect(model_, &QFileSystemModel::layoutChanged, this, follow);
  connect(ui_->Dir1->verticalScrollBar(), &QScrollBar::actionTriggered, this,
          [this] { following_ = false; });
  ui_->Dir1->installEventFilter(this);
  ui_->Dir1->viewport()->installEventFilter(this);
  ui_->tbSelectedPath->installEventFilter(this);
  connect(ui_->butOk, &QPushButton::clicked, this, &frmDir::accept);
  connect(ui_->butCancel, &QPushButton::clicked, this, &frmDir::reject);
  installHelpKey(this, prompter_);
  showFolder(QDir::homePath());
}

frmDir::~frmDir() = default;

void frmDir::setInitialPath(const QString& path) {
  showFolder(folders::nearestExistingFolder(path, QDir::tempPath()));
}

void frmDir::showFolder(const QString& folder) {
  const QString mount = folders::mountPointOf(folder, mountPoints_);
  ui_->Drive1->setCurrentIndex(int(mountPoints_.indexOf(mount)));
  ui_->Dir1->setRootIndex(model_->setRootPath(mount));
  const QModelIndex at = model_->index(folder);
  ui_->Dir1->setCurrentIndex(at);
  ui_->Dir1->scrollTo(at, QAbstractItemView::PositionAtCenter);
  following_ = true;
  selected_ = folder;
  ui_->tbSelectedPath->setText(folder);
}

bool frmDir::takeTypedPath() {
  const QString typed = ui_->tbSelectedPath->text();
  const QFileInfo info(typed);
  // A relative path would depend on where the program was started.
  if (info.isAbsolute() && info.isDir()) {
    showFolder(QDir::cleanPath(info.absoluteFilePath()));
    return true;
  }
  checking_ = true;
  prompter_.ask(folders::folderNotFoundMessage(typed), document::MessageStyle::Ok);
  checking_ = false;
  return false;
}

bool frmDir::eventFilter(QObject* watched, QEvent* event) {
  if (watched == ui_->Dir1 || watched == ui_->Dir1->viewport()) {
    const QEvent::Type type = event->type();
    if (type == QEvent::KeyPress || type == QEvent::MouseButtonPress || type == QEvent::Wheel)
      following_ = false;
    return QDialog::eventFilter(watched, event);
  }
  if (watched != ui_->tbSelectedPath) return QDialog::eventFilter(watched, event);
  if (event->type() == QEvent::KeyPress) {
    const int key = static_cast<QKeyEvent*>(event)->key();
    if (key == Qt::Key_Return || key == Qt::Key_Enter) {
      // Enter goes to the typed folder; it does not close the dialog.
      takeTypedPath();
      return true;
    }
  } else if (event->type() == QEvent::FocusOut && !checking_) {
    // Leaving the box for another control takes its path, unless nothing
    // was typed or the user is on the way to Cancel.
    const auto reason = static_cast<QFocusEvent*>(event)->reason();
    const bool toControl = reason == Qt::TabFocusReason || reason == Qt::BacktabFocusReason ||
                           reason == Qt::MouseFocusReason || reason == Qt::ShortcutFocusReason;
    if (toControl && QApplication::focusWidget() != ui_->butCancel &&
        ui_->tbSelectedPath->text() != selected_)
      takeTypedPath();
  }
  return QDialog::eventFilter(watched, event);
}

void frmDir::accept() {
  if (!ui_->tbSelectedPath->text().isEmpty() && !takeTypedPath()) return;
  selected_ = ui_->tbSelectedPath->text();
  ok_ = true;
  QDialog::accept();
}

void frmDir::reject() {
  selected_.clear();
  ok_ = false;
  QDialog::reject();
}

QString runFolderDialog(QWidget* parent, document::Prompter& prompter, const QString& initialPath) {
  frmDir dialog(prompter, parent);
  if (!initialPath.isEmpty()) dialog.setInitialPath(initialPath);
  dialog.exec();
  return dialog.selectedPath();
}

}  // namespace shell
