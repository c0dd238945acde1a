#include "document/prompter.h"

#include <QStringList>

namespace document {

bool styleAllows(MessageStyle style, Answer answer) {
  switch (style) {
    case MessageStyle::Ok:
    case MessageStyle::OkExclamation:
    case MessageStyle::OkInformation:
      return answer == Answer::Ok;
    case MessageStyle::YesNoCancel:
      return answer == Answer::Yes || answer == Answer::No || answer == Answer::Cancel;
    case MessageStyle::YesNo:
    case MessageStyle::YesNoQuestion:
      return answer == Answer::Yes || answer == Answer::No;
  }
  return false;
}

FileFilter parseFileFilter(const QString& pipeSeparated) {
  FileFilter filter;
  const QStringList parts = pipeSeparated.split(QLatin1Char('|'));
  for (qsizetype i = 0; i < parts.size(); i += 2) {
    if (parts[i].isEmpty() && i + 1 >= parts.size()) break;  // a trailing "|"
    const QString pattern = i + 1 < parts.size() ? parts[i + 1] : QStringLiteral("*");
    filter.append({parts[i], pattern});
  }
  return filter;
}

QString toQtFilter(const FileFilter& filter) {
  QStringList entries;
  for (const FileFilterItem& item : filter) {
    // Qt takes the patterns from the parenthesised group at the end of an
    // entry, separated by blanks where the common dialog separates them by
    // ";". The description keeps its own wording.
    QString description = item.description;
    const QString shown = QLatin1Char('(') + item.pattern + QLatin1Char(')');
    if (description.endsWith(shown)) description = description.chopped(shown.size()).trimmed();
    QStringList patterns = item.pattern.split(QLatin1Char(';'), Qt::SkipEmptyParts);
    for (QString& pat : patterns) pat = pat.trimmed();
    entries << description + QStringLiteral(" (") + patterns.join(QLatin1Char(' ')) +
                   QLatin1Char(')');
  }
  return entries.join(QStringLiteral(";;"));
}

}  // namespace document
