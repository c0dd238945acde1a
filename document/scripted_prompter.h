// ScriptedPrompter: a Prompter for tests. It answers from a queue the test
// fills beforehand and records everything shown, in order, so a test can
// assert the exact texts, titles, styles and dialog settings of a road.
//
// Message boxes whose only button is OK do not take an entry from the queue
// (there is nothing to choose). Every other prompt takes the next entry; an
// entry of the wrong kind, an answer the style does not offer, or an empty
// queue is a fault: it is listed in faults() and the prompt is answered as
// if cancelled (Cancel, or No where there is no Cancel; an empty path).
#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <deque>

#include "document/prompter.h"

namespace document {

class ScriptedPrompter : public Prompter {
 public:
  enum class Kind { Message, OpenFile, SaveFile, Folder };

  struct Shown {
    Kind kind;
    QString text;  // the message; empty for dialogs
    QString title;
    MessageStyle style = MessageStyle::Ok;  // messages only
    FileDialogRequest request;              // file dialogs only
    QString initialPath;                    // folder dialogs only
  };

  // Queue the user's next answer to a message box with buttons to choose.
  ScriptedPrompter& answer(Answer a);
  // Queue the path the user picks in the next open, save or folder dialog;
  // an empty path is a cancelled dialog.
  ScriptedPrompter& pickOpen(const QString& path);
  ScriptedPrompter& pickSave(const QString& path);
  ScriptedPrompter& pickFolder(const QString& path);

  const QList<Shown>& shown() const { return shown_; }
  // The texts of the message boxes shown, in order.
  QStringList messages() const;
  const QStringList& faults() const { return faults_; }
  qsizetype pending() const { return static_cast<qsizetype>(queue_.size()); }
  void clearShown() { shown_.clear(); }

  using Prompter::ask;
  Answer ask(const QString& text, MessageStyle style, const QString& title) override;
  QString openFile(const FileDialogRequest& request) override;
  QString saveFile(const FileDialogRequest& request) override;
  QString chooseFolder(const QString& title, const QString& initialPath) override;

 private:
  struct Entry {
    Kind kind;
    Answer answer = Answer::Cancel;
    QString path;
  };
  QString takePath(Kind kind, const QString& what);

  std::deque<Entry> queue_;
  QList<Shown> shown_;
  QStringList faults_;
};

}  // namespace document
