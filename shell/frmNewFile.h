// frmNewFile: File, New's choice of template: MicroStation, AutoCAD, or any
// schema file picked with Template.... The dialog only chooses; the lifecycle
// copies the template and opens the copy.
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
class frmNewFile;
}

namespace shell {

class frmNewFile : public QDialog {
  Q_OBJECT

 public:
  frmNewFile(document::DocumentLifecycle& lifecycle, document::Prompter& prompter,
             QWidget* parent = nullptr);
  ~frmNewFile() override;

  // The selected template kind and, once OK was accepted, the template file.
  // An empty path means Cancel.
  document::DocumentChoice choice() const;

 private:
  void confirm();

  std::unique_ptr<Ui::frmNewFile> ui_;
  document::DocumentLifecycle& lifecycle_;
  std::unique_ptr<TemplateOptions> options_;
  document::DocumentChoice accepted_;
};

}  // namespace shell
