// The numbered string table: every text the user sees is looked up here by
// its number (text(2018)), so wording lives in one file,
// resources/strings/strings.tsv, compiled into the program as a resource.
//
// Promises: text() never fails. A number the table lacks gives
// "[missing string N]" and is remembered, so a test that drives the program
// can prove afterwards that every number it met exists.
#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

namespace document {

QString text(int number);

// The numbers text() was asked for and did not hold, in the order asked.
QList<int> missingTextNumbers();

// The table as read from its tab-separated form: "number<TAB>text" per line;
// "#" lines and empty lines skipped; the text kept exactly, trailing blanks
// included. Lines that are not of that shape, and repeated numbers, are
// listed in problems (with their line number) and do not enter the table.
struct StringTable {
  QMap<int, QString> texts;
  QStringList problems;
};
StringTable parseStringTable(const QByteArray& tsv);

}  // namespace document
