#include "shell/frmIntro.h"

#include <QButtonGroup>

#include "document/document_settings.h"
#include "ui_frmIntro.h"

namespace shell {

using document::DocumentKind;
using document::DocumentLifecycle;

frmIntro::frmIntro(DocumentLifecycle& lifecycle, document::Prompter& prompter, QWidget* parent)
    : QDialog(parent),
      ui_(std::make_unique<Ui::frmIntro>()),
      lifecycle_(lifecycle),
      prompter_(prompter) {
  ui_->setupUi(this);
  ui_->grpKind->setId(ui_->optExisting, static_cast<int>(DocumentKind::Existing));
  options_ = std::make_unique<TemplateOptions>(
      TemplateOptions::Controls{ui_->grpKind, ui_->optMstn, ui_->optAutoCad, ui_->optOther,
                                ui_->butTemplate, ui_->lblTemplate},
      lifecycle, prompter);
  ui_->optExisting->setChecked(true);
  ui_->tbMdbFileName->setText(document::DocumentSettings::recentFile());
  updateEnabling();

  connect(ui_->grpKind, &QButtonGroup::idToggled, this, [this](int, bool on) {
    if (on) updateEnabling();
  });
  connect(ui_->butBrowse, &QPushButton::clicked, this, &frmIntro::browse);
  connect(ui_->butTemplate, &QPushButton::clicked, this, [this] { options_->pickTemplate(); });
  connect(ui_->butOK, &QPushButton::clicked, this, &frmIntro::confirm);
  connect(ui_->butCancel, &QPushButton::clicked, this, &QDialog::reject);
}

frmIntro::~frmIntro() = default;

document::DocumentChoice frmIntro::choice() const {
  if (result() == QDialog::Accepted) return accepted_;
  return {options_->selectedKind(), QString()};
}

void frmIntro::updateEnabling() {
  const bool existing = options_->selectedKind() == DocumentKind::Existing;
  ui_->tbMdbFileName->setEnabled(existing);
  ui_->butBrowse->setEnabled(existing);
  options_->updateEnabling();
}

void frmIntro::browse() {
  document::FileDialogRequest request = DocumentLifecycle::openDialogRequest();
  // Start where the last document was, when the box names one.
  request.initialPath = ui_->tbMdbFileName->text();
  const QString picked = prompter_.openFile(request);
  if (!picked.isEmpty()) ui_->tbMdbFileName->setText(picked);
}

void frmIntro::confirm() {
  const DocumentKind kind = options_->selectedKind();
  const QString path =
      lifecycle_.chosenPath(kind, ui_->tbMdbFileName->text(), options_->otherTemplate());
  // An unknown template folder has been reported; the dialog stays for
  // another choice. Any other empty choice closes it with nothing to open.
  if (path.isEmpty() && (kind == DocumentKind::MicroStation || kind == DocumentKind::AutoCad))
    return;
  accepted_ = {kind, path};
  accept();
}

}  // namespace shell
