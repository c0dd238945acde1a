// Splitting lists of extensions, paths and values: where items begin and end,
// which empty items survive, what "^" protects, and which separator is used.
#include "document/split_text.h"

#include <QtTest>

using document::splitText;

class SplitTextTest : public QObject {
  Q_OBJECT

 private:
  static void addColumns() {
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("separator");
    QTest::addColumn<QStringList>("expected");
  }
  static void check() {
    QFETCH(QString, text);
    QFETCH(QString, separator);
    QFETCH(QStringList, expected);
    QCOMPARE(splitText(text, separator), expected);
  }

 private slots:
  void itemsAndEmptyItems_data() {
    addColumns();
    QTest::newRow("empty text") << ""
                                << "," << QStringList{};
    QTest::newRow("one item") << "abc"
                              << "," << QStringList{"abc"};
    QTest::newRow("three items") << "1,2,3"
                                 << "," << QStringList{"1", "2", "3"};
    QTest::newRow("blanks stay") << " a , b "
                                 << "," << QStringList{" a ", " b "};
    QTest::newRow("empty item between") << "a,,b"
                                        << "," << QStringList{"a", "", "b"};
    QTest::newRow("empty item first") << ",a"
                                      << "," << QStringList{"", "a"};
    QTest::newRow("separator at end") << "a,"
                                      << "," << QStringList{"a"};
    QTest::newRow("two at end") << "a,,"
                                << "," << QStringList{"a", ""};
    QTest::newRow("lone separator") << ","
                                    << "," << QStringList{""};
    QTest::newRow("only separators") << ",,,"
                                     << "," << QStringList{"", "", ""};
  }
  void itemsAndEmptyItems() { check(); }

  void escapes_data() {
    addColumns();
    QTest::newRow("escaped separator") << "a^,b,c"
                                       << "," << QStringList{"a,b", "c"};
    QTest::newRow("only an escaped separator") << "^,"
                                               << "," << QStringList{","};
    QTest::newRow("escaped separator at end") << "a^,"
                                              << "," << QStringList{"a,"};
    QTest::newRow("escaped escape") << "a^^,b"
                                    << "," << QStringList{"a^", "b"};
    QTest::newRow("escaped escape then separator") << "a^^^,b"
                                                   << "," << QStringList{"a^,b"};
    QTest::newRow("escaped plain letter") << "^a^b"
                                          << "," << QStringList{"ab"};
    QTest::newRow("escape at end dropped") << "ab^"
                                           << "," << QStringList{"ab"};
    QTest::newRow("lone escape") << "^"
                                 << "," << QStringList{};
    QTest::newRow("escape at end after separator") << "a,^"
                                                   << "," << QStringList{"a"};
    QTest::newRow("escaped blank is kept") << "a,^ "
                                           << "," << QStringList{"a", " "};
  }
  void escapes() { check(); }

  void separatorChoice_data() {
    addColumns();
    QTest::newRow("empty separator means comma") << "a,b"
                                                 << "" << QStringList{"a", "b"};
    QTest::newRow("only the first character counts") << "a;b:c;"
                                                     << ";:" << QStringList{"a", "b:c"};
    QTest::newRow("comma is plain text at ;") << "1,2;3"
                                              << ";" << QStringList{"1,2", "3"};
    QTest::newRow("extension list") << "*.csf; *.dgn"
                                    << ";" << QStringList{"*.csf", " *.dgn"};
    QTest::newRow("extension list with end separator") << "*.dgn;*.dwg;"
                                                       << ";" << QStringList{"*.dgn", "*.dwg"};
    QTest::newRow("escaped ; in an extension") << "*.a^;b;*.c"
                                               << ";" << QStringList{"*.a;b", "*.c"};
    QTest::newRow("absolute path") << "/home/gis/maps/roads.dgn"
                                   << "/" << QStringList{"", "home", "gis", "maps", "roads.dgn"};
    QTest::newRow("folder path with end slash") << "/srv/maps/"
                                                << "/" << QStringList{"", "srv", "maps"};
    QTest::newRow("doubled slash") << "maps//roads.dgn"
                                   << "/" << QStringList{"maps", "", "roads.dgn"};
  }
  void separatorChoice() { check(); }

  void commaWhenNoSeparatorIsGiven() {
    QCOMPARE(splitText("x,y;z"), (QStringList{"x", "y;z"}));
    QCOMPARE(splitText("x^,y"), QStringList{"x,y"});
  }
};

QTEST_GUILESS_MAIN(SplitTextTest)
#include "split_text_test.moc"
