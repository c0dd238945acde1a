#include "linkage/dialog_support.h"

#include <QLabel>

namespace linkage {

void nameControlsFromLabels(QWidget* form) {
  for (QLabel* label : form->findChildren<QLabel*>()) {
    QWidget* control = label->buddy();
    if (!control || !control->accessibleName().isEmpty()) continue;
    QString name = label->text();
    // "&&" is a literal ampersand; a single one marks the mnemonic.
    name.replace(QLatin1String("&&"), QLatin1String("\x01"));
    name.remove(QLatin1Char('&'));
    name.replace(QLatin1Char('\x01'), QLatin1Char('&'));
    control->setAccessibleName(name);
  }
}

}  // namespace linkage
