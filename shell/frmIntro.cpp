#include "shell/frmIntro.h"

#include <QButtonGroup>
#include <QDir>

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
  // The group's ids are the document kinds, so the checked button is the answer.
  ui_->grpKind->setId(ui_->optExisting, static_cast<int>(DocumentKind::Existing));
  ui_->grpKind->setId(ui_->optMstn, static_cast<int>(DocumentKind::MicroStation));
  ui_->grpKind->setId(ui_->optAutoCad, static_cast<int>(DocumentKind::AutoCad));
  ui_->grpKind->setId(ui_->optOther, static_cast<int>(DocumentKind::Other));

  // A template that is not installed cannot be chosen at all.
  ui_->optMstn->setEnabled(lifecycle_.templateAvailable(DocumentKind::MicroStation));
  ui_->optAutoCad->setEnabled(lifecycle_.templateAvailable(DocumentKind::AutoCad));
  ui_->optExisting->setChecked(true);
  ui_->tbMdbFileName->setText(document::DocumentSettings::recentFile());
  updateEnabling();

  connect(ui_->grpKind, &QButtonGroup::idToggled, this, [this](int, bool on) {
    if (on) updateEnabling();
  });
  connect(ui_->butBrowse, &QPushButton::clicked, this, &frmIntro::browse);
  connect(ui_->butTemplate, &QPushButton::clicked, this, &frmIntro::pickTemplate);
  connect(ui_->butOK, &QPushButton::clicked, this, &frmIntro::confirm);
  connect(ui_->butCancel, &QPushButton::clicked, this, &QDialog::reject);
}

frmIntro::~frmIntro() = default;

document::DocumentChoice frmIntro::choice() const {
  if (result() == QDialog::Accepted) return accepted_;
  return {selectedKind(), QString()};
}

DocumentKind frmIntro::selectedKind() const {
  return static_cast<DocumentKind>(ui_->grpKind->checkedId());
}

void frmIntro::updateEnabling() {
  const DocumentKind kind = selectedKind();
  const bool existing = kind == DocumentKind::Existing;
  ui_->tbMdbFileName->setEnabled(existing);
  ui_->butBrowse->setEnabled(existing);
  ui_->butTemplate->setEnabled(kind == DocumentKind::Other);
  ui_->lblTemplate->setEnabled(kind == DocumentKind::Other);
}

void frmIntro::browse() {
  document::FileDialogRequest request = DocumentLifecycle::openDialogRequest();
  // Start where the last document was, when the box names one.
  request.initialPath = ui_->tbMdbFileName->text();
  const QString picked = prompter_.openFile(request);
  if (!picked.isEmpty()) ui_->tbMdbFileName->setText(picked);
}

void frmIntro::pickTemplate() {
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

void frmIntro::confirm() {
  const DocumentKind kind = selectedKind();
  const QString path = lifecycle_.chosenPath(kind, ui_->tbMdbFileName->text(), otherTemplate_);
  if (path.isEmpty()) {
    // No file yet: the dialog stays, with the focus where the file is given.
    // An unknown template folder has been reported by the lifecycle.
    if (kind == DocumentKind::Existing) ui_->tbMdbFileName->setFocus();
    if (kind == DocumentKind::Other) ui_->butTemplate->setFocus();
    return;
  }
  accepted_ = {kind, path};
  accept();
}

}  // namespace shell
