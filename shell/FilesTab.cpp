#include "shell/FilesTab.h"

#include <QDir>
#include <QFileInfo>
#include <QFocusEvent>
#include <QFontMetrics>
#include <QSignalBlocker>

#include "controls/ExtentListWidget.h"
#include "document/string_table.h"
#include "folders/folder_scan.h"
#include "shell/busy.h"
#include "ui_frmMain.h"

using folders::FileKind;

namespace shell {

namespace {
// Folder ids travel with the list entries.
constexpr int kIdRole = Qt::UserRole;
}  // namespace

FilesTab::FilesTab(Ui::frmMain& ui, TabHost host)
    : ui_(ui),
      host_(std::move(host)),
      folders_(host_.tables, *host_.prompter),
      files_(host_.tables, *host_.prompter) {
  const auto trapped = [this](auto handler) {
    return [this, handler] { host_.trap([this, handler] { (this->*handler)(); }); };
  };
  connect(ui_.butNewDir, &QPushButton::clicked, this, trapped(&FilesTab::newFolder));
  connect(ui_.butChangeDir, &QPushButton::clicked, this, trapped(&FilesTab::changeFolder));
  connect(ui_.butRemoveDir, &QPushButton::clicked, this, trapped(&FilesTab::removeFolder));
  // Choosing a folder by mouse or keyboard selects it; clicking the chosen
  // one again reads it again, as its first click did. Focus alone, which
  // makes an entry current without selecting it, chooses nothing.
  connect(ui_.lbDirectories, &QListWidget::itemSelectionChanged, this, [this] {
    if (QListWidgetItem* item = selectedFolder()) host_.trap([this, item] { selectFolder(item); });
  });
  connect(ui_.lbDirectories, &QListWidget::itemClicked, this, [this](QListWidgetItem* item) {
    if (item == pressedOn_) host_.trap([this, item] { selectFolder(item); });
  });
  ui_.lbDirectories->viewport()->installEventFilter(this);

  for (QLineEdit* box : {ui_.tbMapFileExt, ui_.tbCSFileExt}) {
    const FileKind kind = box == ui_.tbMapFileExt ? FileKind::Map : FileKind::CoordinateSystem;
    connect(box, &QLineEdit::returnPressed, this,
            [this, kind] { host_.trap([this, kind] { rescan(kind); }); });
    box->installEventFilter(this);
  }
  connectChooser(FileKind::Map);
  connectChooser(FileKind::CoordinateSystem);
}

FilesTab::~FilesTab() = default;

bool FilesTab::eventFilter(QObject* watched, QEvent* event) {
  if (watched == ui_.lbDirectories->viewport() && event->type() == QEvent::MouseButtonPress) {
    pressedOn_ = selectedFolder();
  } else if (event->type() == QEvent::FocusOut &&
             static_cast<QFocusEvent*>(event)->reason() != Qt::ActiveWindowFocusReason &&
             static_cast<QFocusEvent*>(event)->reason() != Qt::PopupFocusReason) {
    // Leaving an extension box reads the folder with its patterns; a
    // message box or menu taking the focus for a moment is no leaving.
    if (watched == ui_.tbMapFileExt)
      host_.trap([this] { rescan(FileKind::Map); });
    else if (watched == ui_.tbCSFileExt)
      host_.trap([this] { rescan(FileKind::CoordinateSystem); });
  }
  return QObject::eventFilter(watched, event);
}

// --- the folder list -------------------------------------------------------

void FilesTab::fill() {
  const QSignalBlocker quiet(ui_.lbDirectories);
  ui_.lbDirectories->clear();
  QStringList paths;
  QList<int> ids;
  for (const schema::ListEntry& entry : folders_.entries()) {
    paths.append(QString::fromStdString(entry.text));
    ids.append(int(entry.id));
    measureFolder(paths.back());
  }
  controls::fillInOnePass(ui_.lbDirectories, paths, ids, kIdRole);
}

void FilesTab::clear() {
  {
    const QSignalBlocker quiet(ui_.lbDirectories);
    ui_.lbDirectories->clear();
  }
  ui_.MoveOverStringControlMapFiles->Clear();
  ui_.tbMapFileExt->clear();
  ui_.MoveOverStringControlCSFiles->Clear();
  currentDirId_ = 0;
}

void FilesTab::setEnabled(bool open) {
  ui_.lbDirectories->setEnabled(open);
  ui_.butNewDir->setEnabled(open);
  ui_.tbMapFileExt->setEnabled(open);
  ui_.tbCSFileExt->setEnabled(open);
  setFolderChosen(open && selectedFolder());
}

void FilesTab::setFolderChosen(bool chosen) {
  ui_.butChangeDir->setEnabled(chosen);
  ui_.butRemoveDir->setEnabled(chosen);
  ui_.MoveOverStringControlMapFiles->enabled(chosen);
  ui_.MoveOverStringControlCSFiles->enabled(chosen);
}

QListWidgetItem* FilesTab::selectedFolder() const {
  QListWidgetItem* item = ui_.lbDirectories->currentItem();
  return item && item->isSelected() ? item : nullptr;
}

void FilesTab::addFolderEntry(const schema::ListEntry& entry) {
  const QString path = QString::fromStdString(entry.text);
  auto* item = new QListWidgetItem(path, ui_.lbDirectories);
  item->setData(kIdRole, int(entry.id));
  measureFolder(path);
}

void FilesTab::measureFolder(const QString& path) {
  const QFontMetrics metrics = ui_.lbDirectories->fontMetrics();
  widestFolder_ = std::max(widestFolder_, metrics.horizontalAdvance(path));
  ui_.lbDirectories->setHorizontalExtent(widestFolder_ +
                                         metrics.horizontalAdvance(QStringLiteral("12345")));
}

void FilesTab::newFolder() {
  const QString path = host_.chooseFolder(lastFolder_.isEmpty() ? QDir::homePath() : lastFolder_);
  const std::optional<schema::ListEntry> entry = folders_.add(path);
  if (!entry) return;
  addFolderEntry(*entry);
  // The first folder is chosen, and read, at once.
  if (ui_.lbDirectories->count() == 1) ui_.lbDirectories->setCurrentRow(0);
}

void FilesTab::changeFolder() {
  QListWidgetItem* item = selectedFolder();
  if (!item) return;
  const QString path = host_.chooseFolder(item->text());
  // A blank path is never stored.
  if (path.trimmed().isEmpty()) return;
  if (!folders_.change(int16_t(item->data(kIdRole).toInt()), path)) return;
  item->setText(path);
  measureFolder(path);
  lastFolder_ = path;
  rescan(FileKind::Map);
  rescan(FileKind::CoordinateSystem);
}

void FilesTab::removeFolder() {
  QListWidgetItem* item = selectedFolder();
  if (!item) return;
  if (folders_.remove(int16_t(item->data(kIdRole).toInt())) !=
      folders::FolderList::Removal::Removed)
    return;
  {
    // No other folder is chosen in its place.
    const QSignalBlocker quiet(ui_.lbDirectories);
    delete item;
    ui_.lbDirectories->setCurrentRow(-1);
  }
  ui_.MoveOverStringControlMapFiles->Clear();
  ui_.MoveOverStringControlCSFiles->Clear();
  currentDirId_ = 0;
  setFolderChosen(false);
}

void FilesTab::selectFolder(QListWidgetItem* item) {
  const QString path = item->text();
  const bool missing = !QFileInfo(path).isDir();
  // Change reads the new path itself.
  if (missing && folders_.askToChangeMissing()) changeFolder();
  Hourglass busy;
  setFolderChosen(true);
  // A missing folder keeps what the available sides showed.
  if (!missing) {
    lastFolder_ = path;
    rescan(FileKind::Map);
    rescan(FileKind::CoordinateSystem);
  }
  currentDirId_ = int16_t(item->data(kIdRole).toInt());
  fillSelected(FileKind::Map);
  fillSelected(FileKind::CoordinateSystem);
}

// --- the two choosers ------------------------------------------------------

controls::MoveOverStringControl* FilesTab::chooser(FileKind kind) const {
  return kind == FileKind::Map ? ui_.MoveOverStringControlMapFiles
                               : ui_.MoveOverStringControlCSFiles;
}

void FilesTab::rescan(FileKind kind) {
  controls::MoveOverStringControl* files = chooser(kind);
  files->ClearAvailable();
  const QListWidgetItem* folder = selectedFolder();
  if (!folder) return;
  Hourglass busy;
  const QLineEdit* patterns = kind == FileKind::Map ? ui_.tbMapFileExt : ui_.tbCSFileExt;
  const folders::ScanResult found = folders::scanFolder(folder->text(), patterns->text());
  files->setAvailableStrings(found.names);
  if (!found.problem.isEmpty())
    host_.prompter->ask(found.problem, document::MessageStyle::OkExclamation);
}

void FilesTab::fillSelected(FileKind kind) {
  // The selected side shows the database: this folder's rows only.
  const QStringList names = files_.selectedNames(kind, currentDirId_);
  chooser(kind)->setSelectedStrings(&names);
}

void FilesTab::connectChooser(FileKind kind) {
  controls::MoveOverStringControl* files = chooser(kind);
  // The chooser waits for each handler: they must run at once.
  connect(
      files, &controls::MoveOverStringControl::MoveStarted, this,
      [this](int count) { moveStarted(count); }, Qt::DirectConnection);
  connect(
      files, &controls::MoveOverStringControl::ItemSelected, this,
      [this, kind] { fileOffered(kind, true); }, Qt::DirectConnection);
  connect(
      files, &controls::MoveOverStringControl::ItemUnSelected, this,
      [this, kind] { fileOffered(kind, false); }, Qt::DirectConnection);
  connect(
      files, &controls::MoveOverStringControl::MoveFinished, this, [this] { moveFinished(); },
      Qt::DirectConnection);
}

void FilesTab::moveStarted(int count) {
  moveCount_ = count;
  offered_ = 0;
  progress_ = std::make_unique<WorkProgress>(host_.window);
  files_.beginBatch();
}

// Failures here end the move; the chooser reports them.
void FilesTab::fileOffered(FileKind kind, bool adding) {
  if (offered_++ == 0) progress_->start(document::text(adding ? 5114 : 5116), moveCount_);
  controls::MoveOverStringControl* files = chooser(kind);
  const QString name = files->ActiveItem();
  if (adding)
    files_.add(kind, name, currentDirId_);
  else
    files->canDelete(files_.remove(kind, name, currentDirId_));
  progress_->advance(offered_);
}

void FilesTab::moveFinished() {
  progress_.reset();
  // The tabs follow the rows even when the batch fails to reach the disk.
  try {
    files_.endBatch();
  } catch (...) {
    host_.tablesChanged();
    throw;
  }
  host_.tablesChanged();
}

}  // namespace shell
