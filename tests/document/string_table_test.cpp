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
        // Main window caption and the file choosers' captions.
        {2018, "CAD Server Definition"},
        {2019, "MicroStation Template"},
        {2020, "AutoCad Template"},
        {2021, "Other template"},
        {2006, "Available maps:"},
        {2007, "Available coordinate system files:"},
        {2008, "Selected maps:"},
        {2009, "Selected coordinate system files:"},
        // Document lifecycle.
        {2010, "Save File"},
        {2016, "All Files (*.*)|*.*"},
        {5008, "Unable to locate template path in registry."},
        {5031, "Select CAD Server Schema template"},
        {5034, "Save CAD server schema definition as"},
        {5035, "Select CAD schema file"},
        {5037, "Copying file"},
        {5038, "to temporary file"},
        {5039, "Save file with different name?"},
        // Scanner options.
        {2017, "INI Files (*.ini)|*.ini"},
        {5033, "Select INI file"},
        // Data type names of graphic attributes.
        {2022, "Boolean"},
        {2023, "Byte"},
        {2024, "Integer"},
        {2025, "Long"},
        {2026, "Currency"},
        {2027, "Single"},
        {2028, "Double"},
        {2029, "Date"},
        {2030, "Text"},
        {2031, "Spatial"},
        {2032, "Graphic"},
        {2033, "Memo"},
        // Feature Definition Wizard: headings, captions, the name and Finish.
        {2000, "Enter feature name and coordinate system"},
        {2001, "Select exposed graphic attributes"},
        {2002, "Select feature definition attributes"},
        {2003, "Enter feature definition attribute values"},
        {2004, "Select feature maps"},
        {2011, "Available attributes:"},
        {2012, "Selected attributes:"},
        {5020, "Invalid character.  Spaces not allowed in feature names."},
        {5022, "Feature name already defined."},
        {5023, "Feature must have a name."},
        {5054, "Errors detected unable to write feature."},
        {5056, "Invalid character.  Special Charecter is not allowed in feature names."},
        // Exposed attributes and primary geometry.
        {5009, "Unable to locate graphic attribute "},
        {5010, "Attribute will not be added."},
        {5011, "Attribute will not be deleted."},
        {5029, "Primary geometry is a required field."},
        {5049, "Removal of unique id <"},
        {5050, "> may limit Mapgrove functionality."},
        {5051,
         "Do you wish to remove this unique id from the exposed attributes for this feature?"},
        {5057,
         "Either of Linkage Attributes (EntityNumber/OccurenceNumber) must be selected for every "
         "DB-Linked feature."},
        {5058,
         "Do you wish to remove this Linkage Attribute from the exposed attributes for this "
         "DB-Linked feature?"},
        // Definition attributes and their values.
        {5019, "Table not defined for attribute."},
        {5024, "Definition attributes must be defined for the feature."},
        {5025, "Invalid values: Attribute"},
        {5026, "must have associated value(s)."},
        {5027, "Attribute"},
        {5047, "Unable to remove table link attribute "},
        {5048, " from feature definition."},
        {5055,
         "For numeric data,trailing spaces are not allowed.Also ',' and '-' should be used as "
         "delimiters only."},
        // The feature's maps and coordinate system.
        {5012, "Unable to locate map folder"},
        {5013, "Map will not be added."},
        {5014, "Unable to locate map "},
        {5015, "Map will not be deleted."},
        {5016, "Unable to locate feature."},
        {5028, "Maps must be defined for the feature."},
        {5030,
         "Selected maps have defined coordinate system.  Feature must have defined coordinate "
         "system."},
        // The common error report and the error list.
        {5000, "The following error occured:"},
        {5004, "Number: "},
        {5005, "Display the Data Access Errors Collection?"},
        {5006, "There are no current data access errors!"},
        {5007, "Can't show Errors at this time!"},
    };
    for (const auto& [number, expected] : quoted)
      QTest::addRow("%d", number) << number << QString::fromUtf8(expected);
  }
  void quotedTextsAreExact() {
    QFETCH(int, number);
    QFETCH(QString, expected);
    QCOMPARE(text(number), expected);
  }

  // The dialog filters are known only as wholes, each built from its pieces: the schema filter
  // from 5032, a blank, 2015, "|" and 2016; the scanner settings filter from 2017, "|" and 2016.
  void filtersComposeAsQuoted() {
    QCOMPARE(text(5032) + ' ' + text(2015) + '|' + text(2016),
             QStringLiteral("CAD Schema Definition Files (*.csd)|*.csd|All Files (*.*)|*.*"));
    QCOMPARE(text(2017) + '|' + text(2016),
             QStringLiteral("INI Files (*.ini)|*.ini|All Files (*.*)|*.*"));
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
    QVERIFY(t.texts.size() >= 74);
  }
};

QTEST_GUILESS_MAIN(StringTableTest)
#include "string_table_test.moc"
