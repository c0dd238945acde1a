// frmAbout: the About box. It shows the program's title, version and purpose,
// and System Info... starts the desktop's own system-information program, or,
// where none is installed, tells the basic facts of the machine in a message.
//
// The prompter must outlive the dialog. How programs are found and started is
// replaceable, so tests neither depend on what the machine has installed nor
// start anything.
#pragma once

#include <QDialog>
#include <QString>
#include <QStringList>
#include <functional>
#include <memory>

#include "document/prompter.h"

namespace Ui {
class frmAbout;
}

namespace shell {

class frmAbout : public QDialog {
  Q_OBJECT

 public:
  // The full path of a program found on PATH, or an empty text.
  using ProgramFinder = std::function<QString(const QString& name)>;
  // Starts a program without waiting for it; false when it could not start.
  using ProgramStarter = std::function<bool(const QString& program)>;

  explicit frmAbout(document::Prompter& prompter, QWidget* parent = nullptr);
  ~frmAbout() override;

  void setProgramFinder(ProgramFinder finder) { finder_ = std::move(finder); }
  void setProgramStarter(ProgramStarter starter) { starter_ = std::move(starter); }

  // The version the program was built as, "0.1.0".
  static QString version();
  // The system-information programs looked for, most specific first.
  static QStringList systemInfoTools();
  // The full path of the first of systemInfoTools() that find knows; empty
  // when there is none.
  static QString systemInfoProgram(const ProgramFinder& find);
  // What the machine is, one fact a line, for when no tool can be started.
  static QString systemFacts();

 private:
  void showSystemInfo();

  std::unique_ptr<Ui::frmAbout> ui_;
  document::Prompter& prompter_;
  ProgramFinder finder_;
  ProgramStarter starter_;
};

}  // namespace shell
