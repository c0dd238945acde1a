#include "folders/folder_scan.h"

#include <dirent.h>
#include <sys/stat.h>

#include <QFile>
#include <cerrno>
#include <cstring>
#include <memory>

#include "document/split_text.h"
#include "document/string_table.h"

namespace folders {

namespace {

bool sameLetter(QChar a, QChar b) { return a == b || a.toCaseFolded() == b.toCaseFolded(); }

// "*" and "?" over the whole name; a "*" that fails to place the rest is
// retried one character further on, which keeps the match linear in
// practice and never recursive.
bool matchWhole(QStringView pattern, QStringView name) {
  qsizetype p = 0, n = 0, star = -1, resume = 0;
  while (n < name.size()) {
    if (p < pattern.size() && pattern[p] == u'*') {
      star = p++;
      resume = n;
    } else if (p < pattern.size() && (pattern[p] == u'?' || sameLetter(pattern[p], name[n]))) {
      ++p;
      ++n;
    } else if (star >= 0) {
      p = star + 1;
      n = ++resume;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == u'*') ++p;
  return p == pattern.size();
}

struct DirCloser {
  void operator()(DIR* d) const { closedir(d); }
};

bool isOrdinaryFile(DIR* dir, const dirent* entry) {
  if (entry->d_type == DT_REG) return true;
  if (entry->d_type != DT_LNK && entry->d_type != DT_UNKNOWN) return false;
  struct stat st;
  return fstatat(dirfd(dir), entry->d_name, &st, 0) == 0 && S_ISREG(st.st_mode);
}

}  // namespace

QStringList extensionPatterns(const QString& extensions) {
  QStringList patterns;
  for (const QString& item : document::splitText(extensions, QStringLiteral(";"))) {
    const QString pattern = item.trimmed();
    if (!pattern.isEmpty()) patterns << pattern;
  }
  return patterns;
}

bool wildcardMatch(QStringView pattern, QStringView name) {
  if (matchWhole(pattern, name)) return true;
  return pattern.endsWith(u".*") && !name.contains(u'.') && matchWhole(pattern.chopped(2), name);
}

ScanResult scanFolder(const QString& folder, const QString& extensions) {
  ScanResult result;
  const QStringList patterns = extensionPatterns(extensions);
  if (patterns.isEmpty()) return result;
  std::unique_ptr<DIR, DirCloser> dir(opendir(QFile::encodeName(folder).constData()));
  if (!dir) {
    result.problem = document::text(5112) + u' ' + folder + QStringLiteral(". ") +
                     QString::fromLocal8Bit(std::strerror(errno)) + u'.';
    return result;
  }
  // One pass over the folder, then each pattern over the names in the
  // order the file system gave them.
  QStringList files;
  while (const dirent* entry = readdir(dir.get())) {
    if (entry->d_name[0] == '.') continue;  // ".", ".." and hidden files
    if (isOrdinaryFile(dir.get(), entry)) files << QFile::decodeName(entry->d_name);
  }
  for (const QString& pattern : patterns)
    for (const QString& name : files)
      if (wildcardMatch(pattern, name)) result.names << name;
  return result;
}

QString joinPath(const QString& folder, const QString& name) {
  return folder.endsWith(u'/') ? folder + name : folder + u'/' + name;
}

}  // namespace folders
