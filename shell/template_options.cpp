#include "shell/template_options.h"

#include <QAbstractButton>
#include <QButtonGroup>
#include <QDir>
#include <QLabel>

namespace shell {

using document::DocumentKind;
using document::DocumentLifecycle;

TemplateOptions::TemplateOptions(const Controls& controls, DocumentLifecycle& lifecycle,
                                 document::Prompter& prompter)
    : c_(controls), lifecycle_(lifecycle), prompter_(prompter) {
  // The group's ids are the document kinds, so the checked button is the answer.
  c_.group->setId(c_.optMstn, static_cast<int>(DocumentKind::MicroStation));
  c_.group->setId(c_.optAutoCad, static_cast<int>(DocumentKind::AutoCad));
  c_.group->setId(c_.optOther, static_cast<int>(DocumentKind::Other));
  // A template that is not installed cannot be chosen at all.
  c_.optMstn->setEnabled(lifecycle_.templateAvailable(DocumentKind::MicroStation));
  c_.optAutoCad->setEnabled(lifecycle_.templateAvailable(DocumentKind::AutoCad));
}

DocumentKind TemplateOptions::selectedKind() const {
  return static_cast<DocumentKind>(c_.group->checkedId());
}

void TemplateOptions::updateEnabling() {
  const bool other = selectedKind() == DocumentKind::Other;
  c_.butTemplate->setEnabled(other);
  c_.lblTemplate->setEnabled(other);
}

void TemplateOptions::pickTemplate() {
  document::FileDialogRequest request = DocumentLifecycle::templateDialogRequest();
  request.initialPath = otherTemplate_.isEmpty() ? lifecycle_.templateFolder() : otherTemplate_;
  const QString picked = prompter_.openFile(request);
  if (picked.isEmpty()) return;
  otherTemplate_ = picked;
  const QString shown = QDir::toNativeSeparators(picked);
  // The label may be too narrow for a long path; the tip always has all of it.
  c_.lblTemplate->setText(shown);
  c_.lblTemplate->setToolTip(shown);
}

}  // namespace shell
