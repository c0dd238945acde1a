// FilesTab: the wiring of the "Files" tab of frmMain. The folder list and
// its three buttons run FolderList, the two choosers and their extension
// boxes run FileChoices and the folder scan; this class only connects them
// and keeps what the tab shows in step (the selected folder, the widest
// folder path for the list's horizontal extent).
//
// Promises: every handler runs under the host's error trap; a chooser's
// move is one batch of writes that reaches the disk when the move ends,
// and a long one shows its progress.
#pragma once

#include <QObject>
#include <QString>
#include <cstdint>
#include <memory>

#include "folders/file_choices.h"
#include "folders/folder_list.h"
#include "shell/tab_host.h"

class QListWidgetItem;

namespace Ui {
class frmMain;
}

namespace controls {
class MoveOverStringControl;
}

namespace shell {

class WorkProgress;

class FilesTab : public QObject {
  Q_OBJECT

 public:
  FilesTab(Ui::frmMain& ui, TabHost host);
  ~FilesTab() override;

  // A document was opened: its folders fill the list.
  void fill();
  // Empties the folder list, both choosers and the map-file extensions.
  void clear();
  // The tab's part of the window's enabling: the list, New and the
  // extension boxes follow the document; Change, Remove and the choosers
  // wait for a folder to be chosen.
  void setEnabled(bool open);

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void newFolder();
  void changeFolder();
  void removeFolder();
  void selectFolder(QListWidgetItem* item);
  QListWidgetItem* selectedFolder() const;
  void addFolderEntry(const schema::ListEntry& entry);
  void measureFolder(const QString& path);
  void setFolderChosen(bool chosen);

  controls::MoveOverStringControl* chooser(folders::FileKind kind) const;
  void rescan(folders::FileKind kind);
  void fillSelected(folders::FileKind kind);
  void connectChooser(folders::FileKind kind);
  void moveStarted(int count);
  void fileOffered(folders::FileKind kind, bool adding);
  void moveFinished();

  Ui::frmMain& ui_;
  TabHost host_;
  folders::FolderList folders_;
  folders::FileChoices files_;
  int16_t currentDirId_ = 0;
  int widestFolder_ = 0;  // only grows, as the chooser's lists
  QString lastFolder_;    // where New opens the Select Folder dialog
  QListWidgetItem* pressedOn_ = nullptr;
  // The move in progress.
  std::unique_ptr<WorkProgress> progress_;
  int moveCount_ = 0;
  int offered_ = 0;
};

}  // namespace shell
