// Splitting lists of extensions, paths and values: where items begin and end,
// which empty items survive, what "^" protects, and which separator is used.
#include "document/split_text.h"

#include <QtTest>

using document::splitText;

class SplitTextTest : public QObject {
  Q_OBJECT

 private slots:
  void itemsEscapesAndSeparators() {
    struct Case {
      const char* text;
      const char* separator;
      QStringList expected;
    };
    const Case cases[] = {
        {"", ",", {}},
        {" a , b ", ",", {" a ", " b "}},
        {"a,,b", ",", {"a", "", "b"}},
        {",a", ",", {"", "a"}},
        {"a,", ",", {"a"}},  // one separator at the end adds nothing ...
        {"a,,", ",", {"a", ""}},  // ... a second one an empty item
        {",,,", ",", {"", "", ""}},
        {"a^,b,c", ",", {"a,b", "c"}},
        {"a^^,b", ",", {"a^", "b"}},
        {"a^^^,b", ",", {"a^,b"}},
        {"^a^b", ",", {"ab"}},
        {"ab^", ",", {"ab"}},
        {"^", ",", {}},
        {"a,^ ", ",", {"a", " "}},
        {"a,b", "", {"a", "b"}},  // no separator: a comma
        {"a;b:c;", ";:", {"a", "b:c"}},  // only the first character counts
        {"*.csf; *.dgn", ";", {"*.csf", " *.dgn"}},
        {"*.a^;b;*.c", ";", {"*.a;b", "*.c"}},
        {"/home/gis/roads.dgn", "/", {"", "home", "gis", "roads.dgn"}},
        {"maps//roads.dgn", "/", {"maps", "", "roads.dgn"}},
    };
    for (const Case& c : cases)
      QVERIFY2(splitText(c.text, c.separator) == c.expected, c.text);
    QCOMPARE(splitText("x,y;z"), (QStringList{"x", "y;z"}));
  }
};

QTEST_GUILESS_MAIN(SplitTextTest)
#include "split_text_test.moc"
