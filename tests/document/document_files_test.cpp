// The files under a document: working-copy names made atomically in the
// temporary folder, the lock file beside them, the copy in and out with the
// errors the user reads, and the template folder found from the program.
#include "document/document_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QRegularExpression>
#include <QtTest>
#include <vector>

#include "jet/journal.h"
#include "jet/page_store.h"

using namespace document;

class DocumentFilesTest : public QObject {
  Q_OBJECT

  static QByteArray readAll(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<unreadable>");
  }
  static void write(const QString& path, const QByteArray& bytes) {
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.write(bytes);
  }
  static int copyError(const QString& from, const QString& to, QString* description = nullptr) {
    try {
      copyFile(from, to);
    } catch (const FileError& e) {
      if (description) *description = e.description();
      return e.number();
    }
    return 0;
  }

 private slots:
  void workingCopiesAreNewEmptyAndDistinct() {
    QTemporaryDir dir;
    const QRegularExpression shape("^CSD[0-9A-F]{4}\\.tmp$");
    QSet<QString> names;
    for (int i = 0; i < 200; ++i) {
      const QString path = createWorkingCopy(dir.path());
      const QFileInfo info(path);
      QVERIFY2(shape.match(info.fileName()).hasMatch(), qPrintable(info.fileName()));
      QCOMPARE(info.absolutePath(), QDir(dir.path()).absolutePath());
      QVERIFY(info.exists());
      QCOMPARE(info.size(), 0);
      names.insert(path);
    }
    // Every call made a file of its own, never reusing one already there.
    QCOMPARE(names.size(), 200);
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files).size(), 200);
  }

  void workingCopyNeedsAUsableFolder() {
    QTemporaryDir dir;
    try {
      createWorkingCopy(dir.path() + "/missing");
      QFAIL("made a working copy in a missing folder");
    } catch (const FileError& e) {
      QCOMPARE(e.number(), 76);
    }
    // A full folder: all 65536 names taken is rare, but the search must end.
  }

  void copyOverwritesInPlace() {
    QTemporaryDir dir;
    const QString from = dir.filePath("from.csd"), to = dir.filePath("to.csd");
    QByteArray big(300000, '\0');
    for (int i = 0; i < big.size(); ++i) big[i] = char(i * 7);
    write(from, big);
    write(to, QByteArray(500000, 'x'));  // longer than the source: must shrink
    QCOMPARE(copyError(from, to), 0);
    QCOMPARE(readAll(to), big);
    // An empty source empties the destination too.
    write(from, {});
    QCOMPARE(copyError(from, to), 0);
    QCOMPARE(QFileInfo(to).size(), 0);
  }

  void aCopyIsNeverOfAnEditKilledHalfway() {
    // An edit in place killed after it wrote one page: its journal, beside
    // the source, holds what that page held.
    QTemporaryDir dir;
    const QString from = dir.filePath("from.csd"), to = dir.filePath("to.csd");
    const QByteArray before(3 * 4096, 'o');
    write(from, before);
    {
      auto store = jet::openFileStore(from.toStdString(), true);
      const std::vector<uint8_t> fresh(4096, 'n');
      const jet::PageWrite writes[] = {{4096, fresh}};
      const int fd = ::open(QFile::encodeName(from).constData(), O_RDONLY);
      {
        jet::Journal journal(from.toStdString(), fd, store->size(), writes);
        store->write(4096, fresh);
      }
      ::close(fd);
    }
    QVERIFY(readAll(from) != before);
    QCOMPARE(copyError(from, to), 0);
    QCOMPARE(readAll(to), before);
    QCOMPARE(readAll(from), before);  // put back on the way
    QVERIFY(!QFileInfo::exists(from + "-journal"));
  }

  void copyFailuresAreWordedForTheUser() {
    QTemporaryDir dir;
    const QString from = dir.filePath("from.csd");
    write(from, "data");
    QString description;
    QCOMPARE(copyError(dir.filePath("absent.csd"), dir.filePath("to.csd"), &description), 53);
    QCOMPARE(description, QStringLiteral("File not found"));
    QVERIFY(!QFileInfo::exists(dir.filePath("to.csd")));
    QCOMPARE(copyError(from, dir.filePath("no/such/folder.csd"), &description), 76);
    QCOMPARE(description, QStringLiteral("Path not found"));
    QCOMPARE(copyError(from, dir.path(), &description), 75);  // a folder
    QCOMPARE(description, QStringLiteral("Path/File access error"));
    QCOMPARE(copyError(from, QString(), &description), 52);
    QCOMPARE(copyError(from, dir.filePath("from.csd/x"), &description), 76);  // a file as folder
    QCOMPARE(readAll(from), QByteArray("data"));
  }

  void replacingADocumentNeverLeavesItHalfWritten() {
    QTemporaryDir dir;
    const QString source = dir.filePath("work.tmp");
    const QString document = dir.filePath("plan.csd");
    write(source, QByteArray(200000, 'n'));
    write(document, "old contents");
    QVERIFY(
        QFile::setPermissions(document, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup));
    replaceFile(source, document);
    QCOMPARE(readAll(document), QByteArray(200000, 'n'));
    // The document keeps its permissions, and nothing is left beside it.
    QCOMPARE(QFileInfo(document).permissions() & 0x7077,  // owner, group, others
             QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup);
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden),
             (QStringList{"plan.csd", "work.tmp"}));

    // Through a chain of links, one of them relative: the file at the end
    // gets the new contents with its mode and owner, every link stays.
    QVERIFY(QDir(dir.path()).mkdir("real"));
    const QString real = dir.filePath("real/plan.csd");
    write(real, "linked");
    QVERIFY(::chmod(QFile::encodeName(real), 0640) == 0);
    const bool root = ::geteuid() == 0;
    if (root) QVERIFY(::chown(QFile::encodeName(real), 4321, 8765) == 0);
    QVERIFY(::symlink("real/plan.csd", QFile::encodeName(dir.filePath("middle.csd"))) == 0);
    QVERIFY(QFile::link(dir.filePath("middle.csd"), dir.filePath("link.csd")));
    replaceFile(source, dir.filePath("link.csd"));
    QVERIFY(QFileInfo(dir.filePath("link.csd")).isSymLink());
    QVERIFY(QFileInfo(dir.filePath("middle.csd")).isSymLink());
    QCOMPARE(readAll(real), QByteArray(200000, 'n'));
    struct stat st {};
    QVERIFY(::stat(QFile::encodeName(real), &st) == 0);
    QCOMPARE(st.st_mode & 07777, 0640u);
    if (root) QVERIFY(st.st_uid == 4321 && st.st_gid == 8765);

    // A new name is simply created.
    replaceFile(source, dir.filePath("fresh.csd"));
    QCOMPARE(readAll(dir.filePath("fresh.csd")), QByteArray(200000, 'n'));
  }

  void failedReplaceLeavesTheDocumentAndNoLeftovers() {
    QTemporaryDir dir;
    const QString document = dir.filePath("plan.csd");
    write(document, "keep me");
    const auto replaceError = [](const QString& from, const QString& to) {
      try {
        replaceFile(from, to);
      } catch (const FileError& e) {
        return e.number();
      }
      return 0;
    };
    QCOMPARE(replaceError(dir.filePath("missing.tmp"), document), 53);
    QCOMPARE(replaceError(QString(), document), 52);
    // A folder where the document should be.
    QVERIFY(QDir(dir.path()).mkdir("taken.csd"));
    write(dir.filePath("work.tmp"), "new");
    QCOMPARE(replaceError(dir.filePath("work.tmp"), dir.filePath("taken.csd")), 75);
    QVERIFY(QFileInfo(dir.filePath("taken.csd")).isDir());
    // A read-only document, refused even to root, which access() lets write.
    QVERIFY(QFile::setPermissions(document, QFile::ReadOwner | QFile::ReadGroup));
    QCOMPARE(replaceError(dir.filePath("work.tmp"), document), 70);
    QVERIFY(QFile::setPermissions(document, QFile::ReadOwner | QFile::WriteOwner));
    // A folder that is not there.
    QCOMPARE(replaceError(dir.filePath("work.tmp"), dir.filePath("gone/plan.csd")), 76);
    // A source that cannot be read part-way (a folder reads as an error):
    // the temporary copy is removed and the document is untouched.
    QCOMPARE(replaceError(dir.path(), document), 75);
    QCOMPARE(readAll(document), QByteArray("keep me"));
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden),
             (QStringList{"plan.csd", "work.tmp"}));
  }

  void templateFolderIsBesideTheProgramsFolder() {
    QCOMPARE(templateFolderFor("/opt/vantor/bin/vantor"),
             QStringLiteral("/opt/vantor/Templates/Warehouses"));
    QCOMPARE(templateFolderFor(QString()), QString());
    // This test runs from <build>/bin, as the editor does.
    QCOMPARE(QDir(templateFolderFor(QCoreApplication::applicationFilePath())).canonicalPath(),
             QDir(VANTOR_TEMPLATE_DIR).canonicalPath());
    QVERIFY(QFileInfo::exists(QString(VANTOR_TEMPLATE_DIR) + '/' + kMstnTemplate));
    QVERIFY(QFileInfo::exists(QString(VANTOR_TEMPLATE_DIR) + '/' + kAutoCadTemplate));
  }
};

QTEST_GUILESS_MAIN(DocumentFilesTest)
#include "document_files_test.moc"
