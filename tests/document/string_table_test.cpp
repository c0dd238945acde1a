// The numbered string table: the parser keeps texts exactly and refuses
// malformed lines, the shipped table is clean, and a missing number is
// remembered.
#include "document/string_table.h"

#include <QtTest>

using document::parseStringTable;
using document::text;

class StringTableTest : public QObject {
  Q_OBJECT

 private slots:
  void unknownNumberIsMarkedAndRemembered() {
    QCOMPARE(text(1), QStringLiteral("[missing string 1]"));
    QVERIFY(document::missingTextNumbers().contains(1));
  }

  void parserKeepsTextsExactly() {
    const auto t = parseStringTable(
        "# comment\r\n"
        "\n"
        "7\tTrailing blank \r\n"
        "8\ttab\tinside\n"
        "9\t\n"
        "10\tlast line without end");
    QVERIFY2(t.problems.isEmpty(), qPrintable(t.problems.join('\n')));
    QCOMPARE(t.texts.size(), 4);
    QCOMPARE(t.texts.value(7), QStringLiteral("Trailing blank "));
    QCOMPARE(t.texts.value(8), QStringLiteral("tab\tinside"));
    QVERIFY(t.texts.contains(9));
    QCOMPARE(t.texts.value(9), QString());
    QCOMPARE(t.texts.value(10), QStringLiteral("last line without end"));
  }

  void parserRefusesMalformedAndRepeatedLines() {
    const auto t = parseStringTable(
        "5\tfirst\n"
        "5\tsecond\n"
        "x5\tnot a number\n"
        "\tno number\n"
        "6 no tab\n");
    QCOMPARE(t.texts.size(), 1);
    QCOMPARE(t.texts.value(5), QStringLiteral("first"));
    QCOMPARE(t.problems.size(), 4);
    QVERIFY(t.problems[0].startsWith("line 2: "));
    QVERIFY(t.problems[0].contains("twice"));
    QVERIFY(t.problems[3].startsWith("line 5: "));
  }

  // The shipped table itself has no malformed or repeated line.
  void shippedTableIsClean() {
    QFile file(":/strings/strings.tsv");
    QVERIFY(file.open(QIODevice::ReadOnly));
    const auto t = parseStringTable(file.readAll());
    QVERIFY2(t.problems.isEmpty(), qPrintable(t.problems.join('\n')));
    QVERIFY(t.texts.size() >= 74);
  }
};

QTEST_GUILESS_MAIN(StringTableTest)
#include "string_table_test.moc"
