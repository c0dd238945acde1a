#include "document/string_table.h"

#include <QFile>
#include <QMutex>
#include <QMutexLocker>
#include <QtGlobal>

namespace document {

namespace {

const char kTablePath[] = ":/strings/strings.tsv";

const StringTable& table() {
  static const StringTable loaded = [] {
    QFile file(kTablePath);
    if (!file.open(QIODevice::ReadOnly)) {
      qWarning("string table %s cannot be read", kTablePath);
      return StringTable{};
    }
    StringTable t = parseStringTable(file.readAll());
    for (const QString& p : t.problems) qWarning("string table: %s", qPrintable(p));
    return t;
  }();
  return loaded;
}

QMutex& missingMutex() {
  static QMutex m;
  return m;
}

QList<int>& missing() {
  static QList<int> numbers;
  return numbers;
}

}  // namespace

StringTable parseStringTable(const QByteArray& tsv) {
  StringTable t;
  const QList<QByteArray> lines = tsv.split('\n');
  for (qsizetype i = 0; i < lines.size(); ++i) {
    QByteArray line = lines[i];
    // A file saved on Windows ends its lines with CR LF; the CR is no text.
    if (line.endsWith('\r')) line.chop(1);
    if (line.isEmpty() || line.startsWith('#')) continue;
    const QString where = QStringLiteral("line %1: ").arg(i + 1);
    const qsizetype tab = line.indexOf('\t');
    bool ok = false;
    const int number = tab > 0 ? line.left(tab).toInt(&ok) : 0;
    if (!ok) {
      t.problems << where + QStringLiteral("no number and tab at its start");
      continue;
    }
    if (t.texts.contains(number)) {
      t.problems << where + QStringLiteral("number %1 given twice").arg(number);
      continue;
    }
    t.texts.insert(number, QString::fromUtf8(line.mid(tab + 1)));
  }
  return t;
}

QString text(int number) {
  const auto& texts = table().texts;
  auto it = texts.constFind(number);
  if (it != texts.constEnd()) return *it;
  QMutexLocker lock(&missingMutex());
  missing().append(number);
  return QStringLiteral("[missing string %1]").arg(number);
}

QList<int> missingTextNumbers() {
  QMutexLocker lock(&missingMutex());
  return missing();
}

}  // namespace document
