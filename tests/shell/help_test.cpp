// Help: the language folder worked out from the locale, the file path, when
// ShowHelp opens the viewer, shows a message or does nothing, F1 reaching
// help from any control of a form, the viewer's navigation, and the shipped
// help file, menu entry and icon agreeing with each other.
#include "shell/help.h"

#include <QAbstractTextDocumentLayout>
#include <QAction>
#include <QDialog>
#include <QDir>
#include <QFile>
#include <QIcon>
#include <QLineEdit>
#include <QLocale>
#include <QProcess>
#include <QPushButton>
#include <QRegularExpression>
#include <QScrollBar>
#include <QSet>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTextBlock>
#include <QTextBrowser>
#include <QVBoxLayout>
#include <QXmlStreamReader>
#include <QtTest>

#include "document/scripted_prompter.h"
#include "shell/HelpViewer.h"

using document::MessageStyle;
using document::ScriptedPrompter;
using namespace shell;

namespace {

struct HelpCall {
  QWidget* parent;
  QString file;
  int context;
};

// Points ShowHelp at a folder of the test's own and records what it would
// open instead of opening it; the defaults come back at the end of the scope.
class HelpSeams {
 public:
  HelpSeams(const QString& programDir, uint32_t windowsLocale) {
    previousOpener_ = setHelpOpener([this](QWidget* parent, const QString& file, int context) {
      calls.append({parent, file, context});
    });
    previousSource_ = setHelpLookupSource([programDir, windowsLocale] {
      return HelpLookup{programDir, windowsLocale};
    });
  }
  ~HelpSeams() {
    setHelpOpener(previousOpener_);
    setHelpLookupSource(previousSource_);
  }
  QList<HelpCall> calls;

 private:
  HelpOpener previousOpener_;
  HelpLookupSource previousSource_;
};

// A program folder holding resdlls/<folder>/Vantor.HLP; returns its path.
QString putHelpFile(const QTemporaryDir& programDir, const QString& folder,
                    const QByteArray& html = "<html><body><a name=\"131\"></a>Help</body></html>") {
  const QString dir = programDir.path() + QStringLiteral("/resdlls/") + folder;
  QDir().mkpath(dir);
  QFile file(dir + QStringLiteral("/Vantor.HLP"));
  if (!file.open(QIODevice::WriteOnly)) return {};
  file.write(html);
  return file.fileName();
}

QString sourceTree() {
  // tests/shell/ -> the repository
  return QFileInfo(QFINDTESTDATA("help_test.cpp")).absoluteDir().absoluteFilePath("../..");
}

QString readText(const QString& path) {
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly)) return {};
  return QString::fromUtf8(file.readAll());
}

QStringList captures(const QString& text, const QString& pattern) {
  QStringList found;
  QRegularExpressionMatchIterator it = QRegularExpression(pattern).globalMatch(text);
  while (it.hasNext()) found << it.next().captured(1);
  return found;
}

// The document position of the first link to href, or -1.
int linkPosition(QTextDocument* document, const QString& href) {
  for (QTextBlock block = document->begin(); block.isValid(); block = block.next())
    for (auto it = block.begin(); !it.atEnd(); ++it)
      if (it.fragment().charFormat().anchorHref() == href) return it.fragment().position();
  return -1;
}

// Where the named anchor sits in the document, in document coordinates.
qreal anchorTop(QTextBrowser* browser, const QString& name) {
  QTextDocument* document = browser->document();
  for (QTextBlock block = document->begin(); block.isValid(); block = block.next())
    for (auto it = block.begin(); !it.atEnd(); ++it)
      if (it.fragment().charFormat().anchorNames().contains(name))
        return document->documentLayout()->blockBoundingRect(block).top();
  return -1;
}

// A help file long enough to scroll: contents at 131 linking to a topic 140
// far below, which links back.
QByteArray scrollingHelp() {
  QByteArray html =
      "<html><body><h1><a name=\"131\"></a>Contents</h1>"
      "<p><a href=\"#140\">Far topic</a></p>";
  for (int i = 0; i < 120; ++i) html += "<p>Filler paragraph " + QByteArray::number(i) + "</p>";
  html += "<h2><a name=\"140\"></a>Far topic</h2><p><a href=\"#131\">Contents</a></p>";
  for (int i = 0; i < 60; ++i) html += "<p>More text " + QByteArray::number(i) + "</p>";
  return html + "</body></html>";
}

}  // namespace

class HelpTest : public QObject {
  Q_OBJECT

 private slots:
  void languageFolderFromLocaleNumber() {
    QCOMPARE(languageFolder(1033), QStringLiteral("resdlls/0009"));  // "409"
    QCOMPARE(languageFolder(2057), QStringLiteral("resdlls/0009"));  // "809"
    QCOMPARE(languageFolder(1031), QStringLiteral("resdlls/0007"));  // "407"
    QCOMPARE(languageFolder(1040), QStringLiteral("resdlls/0010"));  // "410"
    QCOMPARE(languageFolder(2052), QStringLiteral("resdlls/0004"));  // "804"
    // Four hexadecimal digits: the second of them and the last.
    QCOMPARE(languageFolder(4105), QStringLiteral("resdlls/0009"));  // "1009"
    QCOMPARE(languageFolder(5129), QStringLiteral("resdlls/0049"));  // "1409"
    // One digit is both the second-of-two and the last.
    QCOMPARE(languageFolder(9), QStringLiteral("resdlls/0099"));
    QCOMPARE(languageFolder(0), QStringLiteral("resdlls/0000"));

    for (uint32_t withLetter : {3082u, 1036u, 1053u, 0xABCDu}) {
      try {
        languageFolder(withLetter);
        QFAIL(qPrintable(QStringLiteral("no error for %1").arg(withLetter)));
      } catch (const HelpError& error) {
        QCOMPARE(error.number(), kTypeMismatch);
        QCOMPARE(error.description(), QStringLiteral("Type mismatch"));
      }
    }
  }

  void localeNumbersOfLocales() {
    QCOMPARE(windowsLocaleNumber(QLocale(QLocale::English, QLocale::UnitedStates)), 1033u);
    QCOMPARE(windowsLocaleNumber(QLocale(QLocale::English, QLocale::UnitedKingdom)), 2057u);
    QCOMPARE(windowsLocaleNumber(QLocale(QLocale::German, QLocale::Germany)), 1031u);
    QCOMPARE(windowsLocaleNumber(QLocale(QLocale::German, QLocale::Austria)), 3079u);
    QCOMPARE(windowsLocaleNumber(QLocale(QLocale::Spanish, QLocale::Spain)), 3082u);
    QCOMPARE(windowsLocaleNumber(QLocale(QLocale::Japanese, QLocale::Japan)), 1041u);
    // A territory the table lacks falls back on the language's main one.
    QCOMPARE(windowsLocaleNumber(QLocale(QLocale::German, QLocale::Belgium)), 1031u);
    QCOMPARE(windowsLocaleNumber(QLocale(QLocale::English, QLocale::Kenya)), 1033u);
    QCOMPARE(windowsLocaleNumber(QLocale(QLocale::French, QLocale::Senegal)), 1036u);
    // No language, or one the table lacks: English.
    QCOMPARE(windowsLocaleNumber(QLocale::c()), 1033u);
    QCOMPARE(windowsLocaleNumber(QLocale(QLocale::Zulu)), 1033u);
  }

  void helpFilePathJoinsFolderAndName() {
    QCOMPARE(helpFilePath(QStringLiteral("/opt/vantor/bin"), 1033),
             QStringLiteral("/opt/vantor/bin/resdlls/0009/Vantor.HLP"));
    QCOMPARE(helpFilePath(QStringLiteral("/opt/vantor/bin"), 1031),
             QStringLiteral("/opt/vantor/bin/resdlls/0007/Vantor.HLP"));
    QVERIFY_THROWS_EXCEPTION(HelpError, helpFilePath(QStringLiteral("/opt/vantor/bin"), 3082));
    QCOMPARE(systemHelpLookup().programDir, QCoreApplication::applicationDirPath());
  }

  void showHelpOpensAnExistingFileAtTheContents() {
    QTemporaryDir programDir;
    ScriptedPrompter prompter;
    QWidget asking;
    {
      HelpSeams seams(programDir.path(), 1033);
      ShowHelp(&asking, prompter);  // no file yet: nothing at all
      QVERIFY(seams.calls.isEmpty());

      const QString file = putHelpFile(programDir, QStringLiteral("0009"));
      QVERIFY(!file.isEmpty());
      ShowHelp(&asking, prompter);
      QCOMPARE(seams.calls.size(), 1);
      QCOMPARE(seams.calls[0].parent, &asking);
      QCOMPARE(seams.calls[0].file, file);
      QCOMPARE(seams.calls[0].context, 131);
    }
    {
      // German looks in 0007, which this program folder lacks.
      HelpSeams seams(programDir.path(), 1031);
      ShowHelp(&asking, prompter);
      QVERIFY(seams.calls.isEmpty());
    }
    QVERIFY(prompter.shown().isEmpty());
  }

  void showHelpReportsAFolderThatCannotBeNamed() {
    QTemporaryDir programDir;
    putHelpFile(programDir, QStringLiteral("0009"));
    HelpSeams seams(programDir.path(), 3082);
    ScriptedPrompter prompter;
    ShowHelp(nullptr, prompter);
    QVERIFY(seams.calls.isEmpty());
    QCOMPARE(prompter.messages(), QStringList{QStringLiteral("Type mismatch")});
    QCOMPARE(prompter.shown().constFirst().style, MessageStyle::Ok);
    QVERIFY(prompter.faults().isEmpty());
  }

  void f1OnAnyControlOfAFormOpensHelpForThatForm() {
    QTemporaryDir programDir;
    putHelpFile(programDir, QStringLiteral("0009"));
    HelpSeams seams(programDir.path(), 1033);
    ScriptedPrompter prompter;

    QWidget form;
    auto* layout = new QVBoxLayout(&form);
    auto* edit = new QLineEdit(&form);
    auto* button = new QPushButton(QStringLiteral("OK"), &form);
    layout->addWidget(edit);
    layout->addWidget(button);
    installHelpKey(&form, prompter);
    installHelpKey(&form, prompter);  // once is enough, and twice is no harm
    // A second window with a help key of its own.
    QWidget other;
    installHelpKey(&other, prompter);

    form.show();
    other.show();
    form.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&form));
    edit->setFocus();
    QTest::keyClicks(edit, QStringLiteral("ab"));
    QTest::keyClick(edit, Qt::Key_F2);
    QVERIFY(seams.calls.isEmpty());
    QTest::keyClick(edit, Qt::Key_F1);
    QTest::keyClick(button, Qt::Key_F1);
    QCOMPARE(seams.calls.size(), 2);
    for (const HelpCall& call : seams.calls) {
      QCOMPARE(call.parent, &form);
      QCOMPARE(call.context, 131);
    }
    QCOMPARE(edit->text(), QStringLiteral("ab"));

    other.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&other));
    QTest::keyClick(&other, Qt::Key_F1);
    QCOMPARE(seams.calls.size(), 3);
    QCOMPARE(seams.calls.constLast().parent, &other);
    QVERIFY(prompter.shown().isEmpty());
  }

  void viewerShowsTheTopicAndFollowsLinks() {
    QTemporaryDir programDir;
    const QString file = putHelpFile(programDir, QStringLiteral("0009"), scrollingHelp());

    HelpViewer* viewer = HelpViewer::open(file, 131);
    QVERIFY(viewer);
    QCOMPARE(HelpViewer::current(), viewer);
    QVERIFY(QTest::qWaitForWindowExposed(viewer));
    QCOMPARE(viewer->windowTitle(), QStringLiteral("Vantor Help"));
    QTextBrowser* browser = viewer->browser();
    QCOMPARE(browser->source().toLocalFile(), QFileInfo(file).absoluteFilePath());
    QCOMPARE(browser->source().fragment(), QStringLiteral("131"));
    // The file's extension is no HTML one, and still it is read as HTML.
    QVERIFY(!browser->toPlainText().contains(QStringLiteral("<p>")));
    QVERIFY(browser->toPlainText().startsWith(QStringLiteral("Contents")));
    // A screenshot that is not installed gives a note, not a broken picture.
    const QVariant missing = browser->loadResource(
        QTextDocument::ImageResource, browser->source().resolved(QUrl("screenshots/none.png")));
    QVERIFY(missing.canConvert<QImage>() && !missing.value<QImage>().isNull());
    QVERIFY(qAbs(anchorTop(browser, QStringLiteral("131")) -
                 browser->verticalScrollBar()->value()) < 40);

    // Following the link lands on the far topic, scrolled to its top.
    const int at = linkPosition(browser->document(), QStringLiteral("#140"));
    QVERIFY(at >= 0);
    QTextCursor cursor(browser->document());
    cursor.setPosition(at + 1);
    const QPoint click = browser->cursorRect(cursor).center();
    QTest::mouseClick(browser->viewport(), Qt::LeftButton, {}, click);
    QTRY_COMPARE(browser->source().fragment(), QStringLiteral("140"));
    const int top = browser->verticalScrollBar()->value();
    QVERIFY(top > 0);
    QVERIFY(qAbs(anchorTop(browser, QStringLiteral("140")) - top) < 40);

    auto* back = viewer->findChild<QAction*>(QStringLiteral("actionBack"));
    auto* forward = viewer->findChild<QAction*>(QStringLiteral("actionForward"));
    auto* contents = viewer->findChild<QAction*>(QStringLiteral("actionContents"));
    QVERIFY(back && forward && contents);
    QVERIFY(back->isEnabled());
    QVERIFY(!forward->isEnabled());
    viewer->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(viewer));
    QTest::keyClick(browser, Qt::Key_Left, Qt::AltModifier);
    QCOMPARE(browser->source().fragment(), QStringLiteral("131"));
    QVERIFY(forward->isEnabled());
    QTest::keyClick(browser, Qt::Key_Right, Qt::AltModifier);
    QCOMPARE(browser->source().fragment(), QStringLiteral("140"));
    QTest::keyClick(browser, Qt::Key_Home, Qt::AltModifier);
    QCOMPARE(browser->source().fragment(), QStringLiteral("131"));

    // Asking again reuses the one viewer, at the asked topic.
    QCOMPARE(HelpViewer::open(file, 140), viewer);
    QCOMPARE(browser->source().fragment(), QStringLiteral("140"));
    QTest::keyClick(browser, Qt::Key_Escape);
    QVERIFY(!viewer->isVisible());
    QCOMPARE(HelpViewer::open(file, 131), viewer);
    QVERIFY(QTest::qWaitForWindowActive(viewer));
    QTest::keyClick(browser, Qt::Key_W, Qt::ControlModifier);
    QVERIFY(!viewer->isVisible());
  }

  void viewerIsUsableBesideAModalDialog() {
    QTemporaryDir programDir;
    const QString file = putHelpFile(programDir, QStringLiteral("0009"));
    QDialog dialog;
    dialog.setModal(true);
    dialog.show();
    QCOMPARE(QApplication::activeModalWidget(), &dialog);

    HelpViewer* viewer = HelpViewer::open(file, 131);
    // Inside the dialog's family the dialog does not block it.
    QCOMPARE(viewer->parentWidget(), &dialog);
    QVERIFY(viewer->isWindow());
    QVERIFY(viewer->isVisible());

    // The dialog is done: the viewer stays open on its own.
    dialog.accept();
    QCOMPARE(viewer->parentWidget(), nullptr);
    QVERIFY(viewer->isVisible());
    QCOMPARE(HelpViewer::current(), viewer);
    viewer->close();
  }

  // Every topic the shipped help links to exists, the contents come first and
  // lead to every topic, and pictures are screenshots of a sensible width.
  void shippedHelpLinksResolve() {
    const QString html = readText(sourceTree() + QStringLiteral("/resources/help/Vantor.HLP"));
    QVERIFY(!html.isEmpty());
    const QStringList anchors = captures(html, QStringLiteral("<a\\s+name=\"([^\"]*)\""));
    QVERIFY(anchors.size() > 10);
    QCOMPARE(anchors.constFirst(), QStringLiteral("131"));
    QCOMPARE(QSet<QString>(anchors.begin(), anchors.end()).size(), anchors.size());
    for (const QString& anchor : anchors) QVERIFY2(anchor.toInt() > 0, qPrintable(anchor));

    const QStringList links = captures(html, QStringLiteral("href=\"#([^\"]*)\""));
    for (const QString& link : links)
      QVERIFY2(anchors.contains(link), qPrintable(QStringLiteral("no anchor ") + link));
    QVERIFY(captures(html, QStringLiteral("href=\"([^#\"][^\"]*)\"")).isEmpty());

    const qsizetype contentsEnd = html.indexOf(QStringLiteral("name=\"") + anchors[1] + '"');
    const QStringList fromContents =
        captures(html.left(contentsEnd), QStringLiteral("href=\"#([^\"]*)\""));
    for (const QString& anchor : anchors.mid(1))
      QVERIFY2(fromContents.contains(anchor),
               qPrintable(QStringLiteral("not in contents ") + anchor));

    const QStringList images = captures(html, QStringLiteral("(<img[^>]*>)"));
    QVERIFY(!images.isEmpty());
    for (const QString& image : images) {
      QVERIFY2(
          image.contains(QRegularExpression(QStringLiteral("src=\"screenshots/[^\"/]+\\.png\""))),
          qPrintable(image));
      const QStringList width = captures(image, QStringLiteral("width=\"(\\d+)\""));
      QVERIFY2(width.size() == 1 && width[0].toInt() <= 620, qPrintable(image));
    }
  }

  // The screenshots are taken apart from the build; until the first one is
  // there this waits, after that every picture must be there.
  void shippedHelpPicturesExist() {
    const QString html = readText(sourceTree() + QStringLiteral("/resources/help/Vantor.HLP"));
    QStringList names = captures(html, QStringLiteral("<img[^>]*src=\"screenshots/([^\"]+)\""));
    names.removeDuplicates();
    QVERIFY(!names.isEmpty());
    const QDir shots(sourceTree() + QStringLiteral("/docs/screenshots"));
    QStringList missing;
    for (const QString& name : names)
      if (!shots.exists(name)) missing << name;
    if (missing.size() == names.size())
      QSKIP("docs/screenshots holds none of the help's pictures yet");
    QVERIFY2(missing.isEmpty(), qPrintable(QStringLiteral("missing in docs/screenshots: ") +
                                           missing.join(QStringLiteral(", "))));
  }

  void desktopEntryTypeAndIconAgree() {
    const QString desktop =
        readText(sourceTree() + QStringLiteral("/resources/desktop/vantor.desktop"));
    QVERIFY(desktop.startsWith(QStringLiteral("[Desktop Entry]\n")));
    const auto value = [&desktop](const QString& key) {
      const QStringList found = captures(desktop, QStringLiteral("(?m)^") + key + "=(.*)$");
      return found.size() == 1 ? found[0] : QString();
    };
    QCOMPARE(value(QStringLiteral("Exec")), QStringLiteral("vantor %f"));
    const QString mimeType = value(QStringLiteral("MimeType")).section(QLatin1Char(';'), 0, 0);
    QCOMPARE(mimeType, QStringLiteral("application/x-vantor-csd"));

    // The shared-mime-info package names that type for *.csd.
    QFile mime(sourceTree() + QStringLiteral("/resources/desktop/vantor-csd.xml"));
    QVERIFY(mime.open(QIODevice::ReadOnly));
    QXmlStreamReader xml(&mime);
    QString declared, glob;
    while (!xml.atEnd()) {
      if (xml.readNext() != QXmlStreamReader::StartElement) continue;
      if (xml.name() == QLatin1String("mime-type"))
        declared = xml.attributes().value(QStringLiteral("type")).toString();
      else if (xml.name() == QLatin1String("glob"))
        glob = xml.attributes().value(QStringLiteral("pattern")).toString();
    }
    QVERIFY2(!xml.hasError(), qPrintable(xml.errorString()));
    QCOMPARE(declared, mimeType);
    QCOMPARE(glob, QStringLiteral("*.csd"));

    // The icon the menu names is the one the windows show, and it renders.
    const QString icon = value(QStringLiteral("Icon"));
    QVERIFY(QFile::exists(sourceTree() + QStringLiteral("/resources/icons/") + icon + ".svg"));
    const QString resource = QStringLiteral(":/icons/") + icon + ".svg";
    QVERIFY(QFile::exists(resource));
    const QPixmap pixmap = QIcon(resource).pixmap(48, 48);
    QVERIFY2(!pixmap.isNull(), "the SVG icon plugin (libqt6svg6) is missing");
    QVERIFY(pixmap.toImage().pixelColor(24, 24).alpha() > 0);
  }

  void desktopEntryValidates() {
    const QString validator =
        QStandardPaths::findExecutable(QStringLiteral("desktop-file-validate"));
    if (validator.isEmpty()) QSKIP("desktop-file-validate is not installed");
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(validator, {sourceTree() + QStringLiteral("/resources/desktop/vantor.desktop")});
    QVERIFY(process.waitForFinished());
    const QString output = QString::fromUtf8(process.readAll());
    QVERIFY2(process.exitCode() == 0 && output.trimmed().isEmpty(), qPrintable(output));
  }
};

QTEST_MAIN(HelpTest)
#include "help_test.moc"
