// What the main window lends the wiring of its tabs: the way questions
// reach the user, the common error trap, the window itself (owner of
// dialogs) and the few things only the window can do.
#pragma once

#include <QString>
#include <functional>

#include "document/prompter.h"
#include "folders/folder_tables.h"

class QWidget;

namespace shell {

struct TabHost {
  QWidget* window = nullptr;
  document::Prompter* prompter = nullptr;
  // The document's database and shared recordsets; they live as long as
  // the window and are open while a document is.
  folders::FolderTables tables;
  // Runs an event handler under the common error trap.
  std::function<void(const std::function<void()>&)> trap;
  // The Select Folder dialog, opened on a path; the chosen folder or "".
  std::function<QString(const QString& initialPath)> chooseFolder;
  // Rows were added to or deleted from Maps or CoordinateSystemFiles: the
  // tabs that depend on them are enabled afresh.
  std::function<void()> tablesChanged;
};

}  // namespace shell
