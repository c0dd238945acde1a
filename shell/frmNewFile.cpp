#include "shell/frmNewFile.h"

#include <QButtonGroup>
#include <QDir>

#include "ui_frmNewFile.h"

namespace shell {

using document::DocumentKind;
using document::DocumentLifecycle;

frmNewFile::frmNewFile(DocumentLifecycle& lifecycle, document::Prompter& prompter, QWidget* parent)
    : QDialog(parent),
      ui_(std::make_unique<Ui::frmNewFile>()),
      lifecycle_(lifecycle),
      prompter_(prompter) {
  ui_->setupUi(this);
  ui_->grpKind->setId(ui_->optMstn, static_cast<int>(DocumentKind::MicroStation));
  ui_->grpKind->setId(ui_->optAutoCad, static_cast<int>(DocumentKind::AutoCad));
  ui_->grpKind->setId(ui_->optOther, static_cast<int>(DocumentKind::Other));

  ui_->optMstn->setEnabled(lifecycle_.templateAvailable(DocumentKind::MicroStation));
  ui_->optAutoCad->setEnabled(lifecycle_.templateAvailable(DocumentKind::AutoCad));
  // The first template that is installed; Other is always there to fall back on.
  if (ui_->optMstn->isEnabled())
    ui_->optMstn->setChecked(true);
  else if (ui_->optAutoCad->isEnabled())
    ui_->optAutoCad->setChecked(true);
  else
    ui_->optOther->setChecked(true);
  updateEnabling();

  connect(ui_->grpKind, &QButtonGroup::idToggled, this, [this](int, bool on) {
    if (on) updateEnabling();
  });
  connect(ui_->butTemplate, &QPushButton::clicked, this, &frmNewFile::pickTemplate);
  connect(ui_->cmdOK, &QPushButton::clicked, this, &frmNewFile::confirm);
  connect(ui_->cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
}

frmNewFile::~frmNewFile() = default;

document::DocumentChoice frmNewFile::choice() const {
  if (result() == QDialog::Accepted) return accepted_;
  return {selectedKind(), QString()};
}

DocumentKind frmNewFile::selectedKind() const {
  return static_cast<DocumentKind>(ui_->grpKind->checkedId());
}

void frmNewFile::updateEnabling() {
  const bool other = selectedKind() == DocumentKind::Other;
  ui_->butTemplate->setEnabled(other);
  ui_->lblTemplate->setEnabled(other);
}

void frmNewFile::pickTemplate() {
  document::FileDialogRequest request = DocumentLifecycle::templateDialogRequest();
  request.initialPath = otherTemplate_.isEmpty() ? lifecycle_.templateFolder() : otherTemplate_;
  const QString picked = prompter_.openFile(request);
  if (picked.isEmpty()) return;
  otherTemplate_ = picked;
  const QString shown = QDir::toNativeSeparators(picked);
  // The label may be too narrow for a long path; the tip always has all of it.
  ui_->lblTemplate->setText(shown);
  ui_->lblTemplate->setToolTip(shown);
}

void frmNewFile::confirm() {
  const DocumentKind kind = selectedKind();
  const QString path = lifecycle_.chosenPath(kind, QString(), otherTemplate_);
  if (path.isEmpty()) {
    // Other without a picked template: stay, ready to pick one. An unknown
    // template folder has been reported by the lifecycle.
    if (kind == DocumentKind::Other) ui_->butTemplate->setFocus();
    return;
  }
  accepted_ = {kind, path};
  accept();
}

}  // namespace shell
