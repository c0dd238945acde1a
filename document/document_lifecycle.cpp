#include "document/document_lifecycle.h"

#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <utility>

#include "document/document_files.h"
#include "document/document_settings.h"
#include "document/string_table.h"

namespace document {

namespace {

const QString kCrLf = QStringLiteral("\r\n");

// The hourglass for the length of a road, restored on every way out.
class Busy {
 public:
  explicit Busy(DocumentHost& host) : host_(host) { host_.setBusy(true); }
  ~Busy() { host_.setBusy(false); }
  Busy(const Busy&) = delete;
  Busy& operator=(const Busy&) = delete;

 private:
  DocumentHost& host_;
};

QString describe(const schema::EngineError& e) { return QString::fromStdString(e.description()); }

std::string native(const QString& path) { return QFile::encodeName(path).toStdString(); }

// A description as the first sentence of a message: engine texts end with
// their own full stop, file errors do not.
QString sentence(const QString& description) {
  return description.endsWith(QLatin1Char('.')) ? description : description + QLatin1Char('.');
}

}  // namespace

DocumentLifecycle::DocumentLifecycle(Prompter& prompter, DocumentHost& host, QString programPath,
                                     QString tempFolder)
    : prompter_(prompter),
      host_(host),
      programPath_(std::move(programPath)),
      tempFolder_(std::move(tempFolder)),
      caption_(text(2018)) {}

DocumentLifecycle::~DocumentLifecycle() {
  try {
    database_.close();
  } catch (const schema::EngineError&) {
    // Going away regardless; the working copy is thrown away below.
  }
  deleteWorkingCopy();
}

void DocumentLifecycle::startUp(const QString& commandLine,
                                const std::function<DocumentChoice()>& showIntro) {
  if (started_) return;
  started_ = true;
  if (offerRecovery()) return;
  DocumentChoice choice{DocumentKind::Existing, commandLine};
  if (commandLine.isEmpty()) choice = showIntro();
  if (choice.path.isEmpty()) return;
  // A new document has no file of its own until its first save.
  const bool isNew = choice.kind != DocumentKind::Existing;
  if (!openFrom(choice.path, isNew ? QString() : choice.path)) return;
  showOpened(choice.kind);
}

bool DocumentLifecycle::showOpened(DocumentKind kind) {
  kind_ = kind;
  try {
    host_.openStep(database_);
  } catch (const schema::EngineError& e) {
    host_.reportError(e.number(), describe(e));
    return false;
  }
  host_.setCloseEnabled(true);
  showCaption();
  return true;
}

void DocumentLifecycle::showCaption() {
  QString caption = recovered_ && documentPath_.isEmpty()
                        ? text(2018) + QStringLiteral(" - ") + text(5136)
                        : captionFor(kind_, documentPath_);
  if (readOnly_) caption += QLatin1Char(' ') + text(5131);
  setCaption(caption);
}

CloseOutcome DocumentLifecycle::close() {
  Busy busy(host_);
  bool save = false;
  if (open_) {
    const Answer answer =
        prompter_.ask(text(2010) + QLatin1Char('?'), MessageStyle::YesNoCancel, text(2010));
    if (answer == Answer::Cancel) return CloseOutcome::Cancelled;
    save = answer == Answer::Yes;
    // A cancelled save dialog leaves the path empty; the copy below then
    // fails and the user is offered another name. A document opened
    // read-only is saved under another name only.
    if (save && (documentPath_.isEmpty() || readOnly_)) {
      documentPath_ = prompter_.saveFile(saveDialogRequest());
      readOnly_ = false;
    }
  }
  try {
    if (open_) {
      host_.closeStep(database_);
      database_.close();
      open_ = false;
    }
    if (save) {
      DocumentSettings::setRecentFile(documentPath_);
      saveTo(documentPath_);
    }
  } catch (const FileError& e) {
    return closeFailed(e.description());
  } catch (const schema::EngineError& e) {
    return closeFailed(describe(e));
  }
  deleteWorkingCopy();
  host_.setCloseEnabled(false);
  workingCopy_.clear();
  documentPath_.clear();
  recovered_ = false;
  setCaption(text(2018));
  host_.clearStep();
  return CloseOutcome::Closed;
}

CloseOutcome DocumentLifecycle::closeFailed(QString description) {
  for (;;) {
    const Answer answer =
        prompter_.ask(sentence(description) + kCrLf + text(5039), MessageStyle::YesNo);
    if (answer != Answer::Yes) {
      try {
        database_.close();
      } catch (const schema::EngineError&) {
        // The copy is being thrown away; nothing of it needs writing.
      }
      open_ = false;
      deleteWorkingCopy();
      return CloseOutcome::GaveUp;
    }
    const QString name = prompter_.saveFile(saveDialogRequest());
    if (!name.isEmpty()) {
      try {
        saveTo(name);
      } catch (const FileError& e) {
        // The other name failed too: the same question again.
        description = e.description();
        continue;
      } catch (const schema::EngineError& e) {
        description = describe(e);
        continue;
      }
    }
    // The close is abandoned: the document is open again on its working copy.
    try {
      if (!database_.isOpen()) database_.open(native(workingCopy_));
      open_ = true;
      host_.openStep(database_);
    } catch (const schema::EngineError& e) {
      host_.reportError(e.number(), describe(e));
    }
    return CloseOutcome::KeptOpen;
  }
}

void DocumentLifecycle::newDocument(const std::function<DocumentChoice()>& showNewFile) {
  const CloseOutcome closed = close();
  if (closed == CloseOutcome::Cancelled || closed == CloseOutcome::KeptOpen) return;
  const DocumentChoice choice = showNewFile();
  if (choice.path.isEmpty()) return;
  if (!openFrom(choice.path, QString())) return;
  if (showOpened(choice.kind)) host_.enablingStep();
}

void DocumentLifecycle::openDocument() {
  const CloseOutcome closed = close();
  if (closed == CloseOutcome::Cancelled || closed == CloseOutcome::KeptOpen) return;
  // Only now the dialog: cancelling it leaves no document open.
  const QString name = prompter_.openFile(openDialogRequest());
  if (name.isEmpty()) return;
  if (!openFrom(name, name)) return;
  kind_ = DocumentKind::Existing;
  host_.setCloseEnabled(true);
  try {
    host_.openStep(database_);
  } catch (const schema::EngineError& e) {
    host_.reportError(e.number(), describe(e));
    return;
  }
  // An open document always names its file in the caption, whichever road
  // opened it.
  showCaption();
  DocumentSettings::setRecentFile(name);
}

bool DocumentLifecycle::closeWindow() {
  const CloseOutcome closed = close();
  return closed == CloseOutcome::Closed || closed == CloseOutcome::GaveUp;
}

bool DocumentLifecycle::openFrom(const QString& source, const QString& documentPath) {
  if (!documentPath.isEmpty() && !lockDocument(documentPath)) return false;
  QString workingCopy;
  schema::DocumentLock copyLock;
  try {
    workingCopy = createWorkingCopy(tempFolder_);
    // Locked before it is filled: a copy nobody holds is one the next
    // start-up may take for abandoned.
    copyLock = schema::DocumentLock::acquire(native(workingCopy),
                                             schema::LockHolder::self(native(documentPath)));
    copyFile(source, workingCopy);
  } catch (const std::exception& e) {
    const auto* file = dynamic_cast<const FileError*>(&e);
    const auto* engine = dynamic_cast<const schema::EngineError*>(&e);
    const QString description = file     ? file->description()
                                : engine ? describe(*engine)
                                         : QString::fromUtf8(e.what());
    prompter_.ask(sentence(description) + kCrLf + text(5037) + QLatin1Char(' ') + source +
                      QLatin1Char(' ') + text(5038) + QLatin1Char(' ') + workingCopy +
                      QLatin1Char('.'),
                  MessageStyle::Ok);
    removeIfExists(workingCopy);
    releaseDocument();
    return false;
  }
  workingCopy_ = workingCopy;
  documentPath_ = documentPath;
  return openWorkingCopy(std::move(copyLock));
}

bool DocumentLifecycle::openWorkingCopy(schema::DocumentLock copyLock) {
  try {
    database_.open(native(workingCopy_), std::move(copyLock));
  } catch (const schema::EngineError& e) {
    // Not a schema this engine reads: nothing is opened and the copy is
    // gone before the user reads why.
    deleteWorkingCopy();
    workingCopy_.clear();
    documentPath_.clear();
    host_.reportError(e.number(), describe(e));
    return false;
  }
  open_ = true;
  return true;
}

bool DocumentLifecycle::lockDocument(const QString& path) {
  readOnly_ = false;
  try {
    documentLock_ = schema::DocumentLock::acquire(native(path), schema::LockHolder::self());
    schema::removeLeftoverTemporaries(native(path));
    return true;
  } catch (const schema::EngineError& e) {
    // A folder nobody may create a lock file in is one no save can write
    // to either: there is nothing to guard.
    if (e.number() != schema::err::kFileInUse) return true;
    readOnly_ =
        prompter_.ask(describe(e) + kCrLf + kCrLf + text(5130), MessageStyle::YesNo) == Answer::Yes;
    return readOnly_;
  }
}

void DocumentLifecycle::saveTo(const QString& name) {
  if (name.isEmpty()) replaceFile(workingCopy_, name);  // refused as a bad name
  const bool ownDocument = documentLock_.held() && name == documentPath_;
  schema::DocumentLock lock;
  if (!ownDocument) {
    try {
      lock = schema::DocumentLock::acquire(native(name), schema::LockHolder::self());
      schema::removeLeftoverTemporaries(native(name));
    } catch (const schema::EngineError& e) {
      // Only a file somebody has open is refused here; where no lock file
      // can be made, the copy itself fails with the file's own reason.
      if (e.number() == schema::err::kFileInUse) throw;
    }
  }
  replaceFile(workingCopy_, name);
}

bool DocumentLifecycle::offerRecovery() {
  for (const AbandonedCopy& copy : findAbandonedCopies(tempFolder_)) {
    const QString document = copy.document.isEmpty() ? text(5133) : copy.document;
    const Answer answer = prompter_.ask(
        text(5132) + QLatin1Char(' ') + document + QStringLiteral(", ") + text(5134) +
            QLatin1Char(' ') + QLocale::system().toString(copy.modified, QLocale::ShortFormat) +
            QLatin1Char('.') + kCrLf + kCrLf + text(5135),
        MessageStyle::YesNoCancel);
    if (answer == Answer::No) discardAbandonedCopy(copy);
    if (answer == Answer::Yes && recover(copy)) return true;
  }
  return false;
}

bool DocumentLifecycle::recover(const AbandonedCopy& copy) {
  if (!copy.document.isEmpty() && !lockDocument(copy.document)) return false;
  schema::DocumentLock copyLock;
  try {
    copyLock = schema::DocumentLock::acquire(native(copy.path),
                                             schema::LockHolder::self(native(copy.document)));
  } catch (const schema::EngineError& e) {
    // Another editor took it up first.
    releaseDocument();
    host_.reportError(e.number(), describe(e));
    return false;
  }
  workingCopy_ = copy.path;
  documentPath_ = copy.document;
  if (!openWorkingCopy(std::move(copyLock))) return false;
  recovered_ = true;
  return showOpened(documentPath_.isEmpty() ? DocumentKind::Other : DocumentKind::Existing);
}

void DocumentLifecycle::releaseDocument() {
  documentLock_.release();
  readOnly_ = false;
}

void DocumentLifecycle::deleteWorkingCopy() {
  releaseDocument();
  if (workingCopy_.isEmpty()) return;
  removeIfExists(workingCopy_);
  removeIfExists(workingCopy_ + QStringLiteral("-journal"));
  removeIfExists(lockFilePath(workingCopy_));
}

void DocumentLifecycle::setCaption(const QString& caption) {
  caption_ = caption;
  host_.setCaption(caption);
}

QString DocumentLifecycle::templateFolder() const { return templateFolderFor(programPath_); }

bool DocumentLifecycle::templateAvailable(DocumentKind kind) const {
  const QString folder = templateFolder();
  if (folder.isEmpty()) return false;
  if (kind == DocumentKind::MicroStation) return QFileInfo::exists(folder + '/' + kMstnTemplate);
  if (kind == DocumentKind::AutoCad) return QFileInfo::exists(folder + '/' + kAutoCadTemplate);
  return false;
}

QString DocumentLifecycle::templatePath(DocumentKind kind) {
  const QString folder = templateFolder();
  if (folder.isEmpty()) {
    prompter_.ask(text(5008), MessageStyle::Ok);
    return {};
  }
  return folder + QLatin1Char('/') +
         (kind == DocumentKind::AutoCad ? kAutoCadTemplate : kMstnTemplate);
}

QString DocumentLifecycle::chosenPath(DocumentKind kind, const QString& existingPath,
                                      const QString& otherTemplate) {
  switch (kind) {
    case DocumentKind::Existing:
      return existingPath;
    case DocumentKind::MicroStation:
    case DocumentKind::AutoCad:
      return templatePath(kind);
    case DocumentKind::Other:
      return otherTemplate;
  }
  return {};
}

FileFilter DocumentLifecycle::schemaFilter() {
  return parseFileFilter(text(5032) + QLatin1Char(' ') + text(2015) + QLatin1Char('|') +
                         text(2016));
}

FileDialogRequest DocumentLifecycle::openDialogRequest() {
  return {text(5035), schemaFilter(), {}, false, false};
}

FileDialogRequest DocumentLifecycle::saveDialogRequest() {
  return {text(5034), schemaFilter(), {}, true, true};
}

FileDialogRequest DocumentLifecycle::templateDialogRequest() {
  return {text(5031), schemaFilter(), {}, false, false};
}

QString DocumentLifecycle::captionFor(DocumentKind kind, const QString& documentPath) {
  const QString separator = QStringLiteral(" - ");
  switch (kind) {
    case DocumentKind::Existing:
      return text(2018) + separator + documentPath;
    case DocumentKind::MicroStation:
      return text(2018) + separator + text(2019);
    case DocumentKind::AutoCad:
      return text(2018) + separator + text(2020);
    case DocumentKind::Other:
      return text(2018) + separator + text(2021);
  }
  return text(2018);
}

}  // namespace document
