// frmIntro: the start-up dialog, shown when the program is started without a
// file. The user opens an existing schema or creates a new one from the
// MicroStation, AutoCAD or another template. The dialog only chooses; the
// lifecycle copies and opens what was chosen.
//
// The lifecycle and the prompter must outlive the dialog. choice() has a path
// only after OK was accepted; the dialog never closes on OK without one.
#pragma once

#include <QDialog>
#include <QString>
#include <memory>

#include "document/document_lifecycle.h"
#include "document/prompter.h"
#include "shell/template_options.h"

namespace Ui {
class frmIntro;
}

namespace shell {

class frmIntro : public QDialog {
  Q_OBJECT

 public:
  frmIntro(document::DocumentLifecycle& lifecycle, document::Prompter& prompter,
           QWidget* parent = nullptr);
  ~frmIntro() override;

  // The selected kind and, once OK was accepted, the file to copy: the
  // existing document or the template. An empty path means Cancel.
  document::DocumentChoice choice() const;

 private:
  void updateEnabling();
  void browse();
  void confirm();

  std::unique_ptr<Ui::frmIntro> ui_;
  document::DocumentLifecycle& lifecycle_;
  document::Prompter& prompter_;
  std::unique_ptr<TemplateOptions> options_;
  document::DocumentChoice accepted_;
};

}  // namespace shell
