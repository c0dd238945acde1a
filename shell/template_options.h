// TemplateOptions: the template part both document dialogs share - the
// MicroStation, AutoCad and Other options in one button group whose ids are
// the document kinds, the first two enabled only when their template file
// is installed, and Template... picking the file for Other (shown in a label
// beside it, the full path in its tip).
#pragma once

#include <QString>

#include "document/document_lifecycle.h"
#include "document/prompter.h"

class QAbstractButton;
class QButtonGroup;
class QLabel;

namespace shell {

class TemplateOptions {
 public:
  struct Controls {
    QButtonGroup* group;
    QAbstractButton* optMstn;
    QAbstractButton* optAutoCad;
    QAbstractButton* optOther;
    QAbstractButton* butTemplate;
    QLabel* lblTemplate;
  };

  TemplateOptions(const Controls& controls, document::DocumentLifecycle& lifecycle,
                  document::Prompter& prompter);

  document::DocumentKind selectedKind() const;
  // Template... and its label are live only with Other.
  void updateEnabling();
  // Template...: a cancelled pick keeps the earlier one.
  void pickTemplate();
  const QString& otherTemplate() const { return otherTemplate_; }

 private:
  Controls c_;
  document::DocumentLifecycle& lifecycle_;
  document::Prompter& prompter_;
  QString otherTemplate_;
};

}  // namespace shell
