#include "folders/folder_dialog.h"

#include <QFileInfo>
#include <QStorageInfo>
#include <algorithm>

#include "document/string_table.h"
#include "folders/folder_scan.h"

namespace folders {

namespace {

bool canEnter(const QString& path) {
  const QFileInfo info(path);
  return info.isDir() && info.isExecutable();
}

// Whether `folder` is `path` or one of its parents, by whole components.
bool holds(const QString& folder, const QString& path) {
  if (folder == QStringLiteral("/")) return path.startsWith(u'/');
  return path == folder || path.startsWith(folder + u'/');
}

}  // namespace

QString nearestExistingFolder(const QString& path, const QString& fallback) {
  // Only "/" starts a path here; anything else (a relative path, "D:\maps")
  // has no first part that could be entered.
  const QString root = QStringLiteral("/");
  if (!path.startsWith(root) || !canEnter(root)) return fallback;
  // The parts are taken as they stand: a "^" is part of a folder's name
  // here, not an escape.
  QString found = root;
  for (const QString& part : path.split(u'/', Qt::SkipEmptyParts)) {
    const QString next = joinPath(found, part);
    if (!canEnter(next)) break;
    found = next;
  }
  return found;
}

QStringList mountPoints() {
  QStringList points;
  for (const QStorageInfo& volume : QStorageInfo::mountedVolumes())
    if (volume.isValid() && volume.isReady()) points << volume.rootPath();
  points.removeDuplicates();
  std::sort(points.begin(), points.end());
  if (!points.contains(QStringLiteral("/"))) points.prepend(QStringLiteral("/"));
  return points;
}

QString mountPointOf(const QString& path, const QStringList& points) {
  QString best = QStringLiteral("/");
  for (const QString& point : points)
    if (holds(point, path) && point.size() > best.size()) best = point;
  return best;
}

QString folderNotFoundMessage(const QString& typed) {
  return document::text(5106) + u' ' + typed + u' ' + document::text(5107) + u'.';
}

}  // namespace folders
