#include "features/feature_name.h"

#include "document/string_table.h"
#include "features/wizard_context.h"
#include "jet/text.h"

namespace features {

namespace {

constexpr int kSpacesNotAllowed = 5020;
constexpr int kSpecialCharacter = 5056;
constexpr int kNoName = 5023;

// Whether the character has a code in Windows-1252. The five bytes the code
// page leaves undefined decode to C1 controls, which are no letters anyway.
bool inCodePage1252(QChar c) {
  static const QString repertoire = [] {
    QString all;
    for (int b = 1; b < 256; ++b) all += QChar(char16_t(jet::cp1252ToUnicode(uint8_t(b))));
    return all;
  }();
  return repertoire.contains(c);
}

}  // namespace

bool isSpecialCharacter(QChar c) {
  if (c == QLatin1Char('_')) return false;
  return !(inCodePage1252(c) && (c.isLetter() || c.isDigit()));
}

QString nameCheck(const QString& name) {
  if (name.isEmpty()) return checkLine(document::text(kNoName));
  if (name.contains(QLatin1Char(' '))) return checkLine(document::text(kSpacesNotAllowed));
  if (name.front() >= QLatin1Char('0') && name.front() <= QLatin1Char('9'))
    return QStringLiteral("  Feature name cannot start with a number");
  return {};
}

NameEdit nameTyped(const QString& text, const QString& nameAsOpened) {
  if (text.isEmpty()) return {text, 0};
  if (text.back() == QLatin1Char(' ')) return {text.chopped(1), kSpacesNotAllowed};
  if (text != nameAsOpened && isSpecialCharacter(text.back()))
    return {text.chopped(1), kSpecialCharacter};
  return {text, 0};
}

NameLeave nameLeft(const QString& text, const QString& nameAsOpened) {
  if (text.isEmpty()) return {true, 0};
  if (text.contains(QLatin1Char(' '))) return {true, kSpacesNotAllowed};
  if (text == nameAsOpened) return {};
  for (qsizetype i = text.size() - 1; i >= 0; --i)
    if (isSpecialCharacter(text[i])) return {true, kSpecialCharacter};
  return {};
}

}  // namespace features
