// The numbered string table: every text the document, shell and error
// report quote is present with its exact wording, and the parser keeps texts
// exactly and refuses malformed lines.
#include "document/string_table.h"

#include <QtTest>

using document::parseStringTable;
using document::text;

class StringTableTest : public QObject {
  Q_OBJECT

 private slots:
  void quotedTextsAreExact_data() {
    QTest::addColumn<int>("number");
    QTest::addColumn<QString>("expected");
    const std::pair<int, const char*> quoted[] = {
        {2006, "Available maps:"},
        {2007, "Available coordinate system files:"},
        {2008, "Selected maps:"},
        {2009, "Selected coordinate system files:"},
        {2010, "Save File"},
        {2016, "All Files (*.*)|*.*"},
        {2018, "CAD Server Definition"},
        {2019, "MicroStation Template"},
        {2020, "AutoCad Template"},
        {2021, "Other template"},
        {5000, "The following error occured:"},
        {5004, "Number: "},
        {5005, "Display the Data Access Errors Collection?"},
        {5006, "There are no current data access errors!"},
        {5007, "Can't show Errors at this time!"},
        {5008, "Unable to locate template path in registry."},
        {5013, "Map will not be added."},
        {5014, "Unable to locate map "},
        {5031, "Select CAD Server Schema template"},
        {5034, "Save CAD server schema definition as"},
        {5035, "Select CAD schema file"},
        {5037, "Copying file"},
        {5038, "to temporary file"},
        {5039, "Save file with different name?"},
    };
    for (const auto& [number, expected] : quoted)
      QTest::addRow("%d", number) << number << QString::fromUtf8(expected);
  }
  void quotedTextsAreExact() {
    QFETCH(int, number);
    QFETCH(QString, expected);
    QCOMPARE(text(number), expected);
  }

  // The schema filter is quoted only as a whole: 5032, a blank, 2015, "|", 2016.
  void schemaFilterComposesAsQuoted() {
    QCOMPARE(text(5032) + ' ' + text(2015) + '|' + text(2016),
             QStringLiteral("CAD Schema Definition Files (*.csd)|*.csd|All Files (*.*)|*.*"));
  }

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
    QVERIFY(t.texts.size() >= 25);
  }
};

QTEST_GUILESS_MAIN(StringTableTest)
#include "string_table_test.moc"
