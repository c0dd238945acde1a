#include "document/split_text.h"

namespace document {

QStringList splitText(const QString& text, const QString& separator) {
  const QChar sep = separator.isEmpty() ? QChar(u',') : separator.front();
  QStringList items;
  QString current;
  for (qsizetype i = 0; i < text.size(); ++i) {
    const QChar c = text[i];
    if (c == u'^') {
      // The escape is checked before the separator, so "^" as the separator
      // itself can never end an item: every "^" escapes.
      if (++i < text.size()) current += text[i];
    } else if (c == sep) {
      items << current;
      current.clear();
    } else {
      current += c;
    }
  }
  if (!current.isEmpty()) items << current;
  return items;
}

}  // namespace document
