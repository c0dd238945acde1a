#include "shell/frmNewFile.h"

#include <QButtonGroup>

#include "ui_frmNewFile.h"

namespace shell {

using document::DocumentKind;
using document::DocumentLifecycle;

frmNewFile::frmNewFile(DocumentLifecycle& lifecycle, document::Prompter& prompter, QWidget* parent)
    : QDialog(parent), ui_(std::make_unique<Ui::frmNewFile>()), lifecycle_(lifecycle) {
  ui_->setupUi(this);
  options_ = std::make_unique<TemplateOptions>(
      TemplateOptions::Controls{ui_->grpKind, ui_->optMstn, ui_->optAutoCad, ui_->optOther,
                                ui_->butTemplate, ui_->lblTemplate},
      lifecycle, prompter);
  // The first template that is installed; Other is always there to fall back on.
  if (ui_->optMstn->isEnabled())
    ui_->optMstn->setChecked(true);
  else if (ui_->optAutoCad->isEnabled())
    ui_->optAutoCad->setChecked(true);
  else
    ui_->optOther->setChecked(true);
  options_->updateEnabling();

  connect(ui_->grpKind, &QButtonGroup::idToggled, this, [this](int, bool on) {
    if (on) options_->updateEnabling();
  });
  connect(ui_->butTemplate, &QPushButton::clicked, this, [this] { options_->pickTemplate(); });
  connect(ui_->cmdOK, &QPushButton::clicked, this, &frmNewFile::confirm);
  connect(ui_->cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
}

frmNewFile::~frmNewFile() = default;

document::DocumentChoice frmNewFile::choice() const {
  if (result() == QDialog::Accepted) return accepted_;
  return {options_->selectedKind(), QString()};
}

void frmNewFile::confirm() {
  const DocumentKind kind = options_->selectedKind();
  const QString path = lifecycle_.chosenPath(kind, QString(), options_->otherTemplate());
  // As in frmIntro: only an unknown template folder keeps the dialog open.
  if (path.isEmpty() && (kind == DocumentKind::MicroStation || kind == DocumentKind::AutoCad))
    return;
  accepted_ = {kind, path};
  accept();
}

}  // namespace shell
