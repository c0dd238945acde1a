// DocumentLifecycle: the open document and the roads that lead to and from
// it: start-up, File New, Open, Close and closing the main window. The user
// never edits a schema in place: the file (or a template) is copied to a
// working copy in the temporary folder, the database is opened on that copy,
// and only a Yes at close copies it back over the document.
//
// Everything the user is asked goes through the Prompter; everything the
// main window must do (fill and empty its tabs, caption, menu entry, pointer,
// error report) goes through the DocumentHost. No widgets are needed.
//
// Locking: while an existing document is open the lifecycle holds its lock
// (schema::DocumentLock, "NAME.ldb" beside it), so neither a second editor
// nor csdtool writes it meanwhile. A document somebody else holds is offered
// read-only: it is edited on its working copy as usual, and saved under
// another name only. Any other file a save writes is locked for the length
// of the copy.
//
// Recovery: at start-up the working copies that an editor which died left
// in the temporary folder are offered back, one at a time: Yes opens one as
// the document it was a copy of, No discards it, Cancel keeps it for the
// next start.
//
// Promises: while a document is open its working copy and lock file exist;
// after a close that is not cancelled, and after a failed open, they are
// gone. Every failure inside a road is shown to the user, never thrown out
// of these calls.
#pragma once

#include <QDir>
#include <QString>
#include <cstdint>
#include <functional>

#include "document/document_files.h"
#include "document/prompter.h"
#include "schema/document_lock.h"
#include "schema/schema_database.h"

namespace document {

// How the open document came about; it chooses the caption.
enum class DocumentKind : int {
  Existing = 0,      // an existing schema file
  MicroStation = 1,  // new from "MstnTemplate.csd"
  AutoCad = 2,       // new from "AutoCadTemplate.csd"
  Other = 3,         // new from a schema file the user picked as template
};

// What the start-up and File, New dialogs return: the kind and the file to
// copy (the document, or the template). An empty path means Cancel.
struct DocumentChoice {
  DocumentKind kind = DocumentKind::Existing;
  QString path;
};

enum class CloseOutcome {
  Closed,     // nothing was open, or the document closed normally
  Cancelled,  // Cancel at the save question: the document stays open
  KeptOpen,   // copying back failed, the user saved under another name (or
              // cancelled that) and the document was opened again
  GaveUp,     // copying back failed and the user declined another name:
              // the working copy is deleted, the caption left as it was
};

// What the main window does for the lifecycle. Every call has a default that
// does nothing, so a test overrides only what it watches.
class DocumentHost {
 public:
  virtual ~DocumentHost() = default;
  // The database is open on the working copy: open the shared recordsets and
  // fill the tabs.
  virtual void openStep(schema::SchemaDatabase& database) { (void)database; }
  // Before the database closes: write the tabs' settings back and close the
  // recordsets.
  virtual void closeStep(schema::SchemaDatabase& database) { (void)database; }
  // After a close: empty lists and controls, select and disable the tabs.
  virtual void clearStep() {}
  virtual void enablingStep() {}
  virtual void setCloseEnabled(bool enabled) { (void)enabled; }
  virtual void setCaption(const QString& caption) { (void)caption; }
  // The hourglass pointer, set and restored around long work.
  virtual void setBusy(bool busy) { (void)busy; }
  // The common error report, for failures of the engine.
  virtual void reportError(int32_t number, const QString& description) {
    (void)number;
    (void)description;
  }
};

class DocumentLifecycle {
 public:
  // programPath is the running program's own file (it locates the template
  // folder); working copies are made in tempFolder.
  DocumentLifecycle(Prompter& prompter, DocumentHost& host, QString programPath,
                    QString tempFolder = QDir::tempPath());
  // Closes the database and deletes the working copy without asking: a
  // window that goes away without its close road keeps nothing behind.
  ~DocumentLifecycle();
  DocumentLifecycle(const DocumentLifecycle&) = delete;
  DocumentLifecycle& operator=(const DocumentLifecycle&) = delete;

  // First activation of the main window; later calls do nothing. Abandoned
  // working copies are offered first; a recovered one stays open and ends
  // the start-up. Otherwise a non-empty command line is the path of an
  // existing document, as it stands, or showIntro (the start-up dialog)
  // chooses.
  void startUp(const QString& commandLine, const std::function<DocumentChoice()>& showIntro);

  // File, Close. Also the first step of New, Open and closing the window.
  CloseOutcome close();
  // File, New: close, then showNewFile picks a template (kind 1 to 3).
  void newDocument(const std::function<DocumentChoice()>& showNewFile);
  // File, Open: close, then the open dialog.
  void openDocument();
  // Exit and closing the main window: false when the window must stay.
  bool closeWindow();

  bool isOpen() const { return open_; }
  // Opened while another program held the document: saved elsewhere only.
  bool isReadOnly() const { return readOnly_; }
  DocumentKind kind() const { return kind_; }
  // The file a Yes at close writes to; empty for a new document not saved.
  const QString& documentPath() const { return documentPath_; }
  const QString& workingCopyPath() const { return workingCopy_; }
  const QString& caption() const { return caption_; }
  schema::SchemaDatabase& database() { return database_; }

  // The start-up and File, New dialogs' helpers.
  QString templateFolder() const;
  // Whether the MicroStation or AutoCAD template file is there (its option
  // is enabled only then).
  bool templateAvailable(DocumentKind kind) const;
  // The template file of the MicroStation or AutoCAD option; when the
  // template folder is unknown, message 5008 and an empty path (the dialog
  // stays open).
  QString templatePath(DocumentKind kind);
  // The file the dialog's OK takes: the text box for an existing document,
  // the template file for the two template options, otherTemplate (picked
  // with Template...) for Other. Empty when the dialog must stay open.
  QString chosenPath(DocumentKind kind, const QString& existingPath, const QString& otherTemplate);

  // The file dialogs of the document roads.
  static FileFilter schemaFilter();
  static FileDialogRequest openDialogRequest();
  static FileDialogRequest saveDialogRequest();
  static FileDialogRequest templateDialogRequest();
  // The caption for an open document of this kind and path.
  static QString captionFor(DocumentKind kind, const QString& documentPath);

 private:
  bool openFrom(const QString& source, const QString& documentPath);
  bool openWorkingCopy(schema::DocumentLock copyLock);
  // Takes the document's lock, or offers it read-only when somebody holds
  // it; false (nothing to open) when the user declines.
  bool lockDocument(const QString& path);
  void releaseDocument();
  // Copies the working copy over name, under name's lock.
  void saveTo(const QString& name);
  // Offers the abandoned working copies; true when one was opened.
  bool offerRecovery();
  bool recover(const AbandonedCopy& copy);
  void showCaption();
  // The window's open step and caption for a database just opened; false
  // (the error reported) when the window could not take it.
  bool showOpened(DocumentKind kind);
  void openDatabase();
  CloseOutcome closeFailed(QString description);
  void deleteWorkingCopy();
  void setCaption(const QString& caption);

  Prompter& prompter_;
  DocumentHost& host_;
  QString programPath_;
  QString tempFolder_;
  schema::SchemaDatabase database_;
  schema::DocumentLock documentLock_;
  bool started_ = false;
  bool open_ = false;
  bool readOnly_ = false;
  bool recovered_ = false;
  DocumentKind kind_ = DocumentKind::Existing;
  QString documentPath_;
  QString workingCopy_;
  QString caption_;
};

}  // namespace document
