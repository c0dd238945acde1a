// The rules of the Select Folder dialog (frmDir), without its widgets: where
// it opens for a path that may be gone, which mount point (the Linux
// counterpart of a drive) holds a path, and the message for a typed path
// that does not exist.
#pragma once

#include <QString>
#include <QStringList>

namespace folders {

// Where the dialog opens for `path`: the path itself when it is a folder
// that can be entered, else the longest leading part of it that is one;
// `fallback` (the temporary folder) when not even the first part, "/", is
// there, as for a relative path or one written for another system
// ("D:\maps").
QString nearestExistingFolder(const QString& path, const QString& fallback);

// The mount points of the machine's file systems, "/" first.
QStringList mountPoints();
// The mount point among `points` that holds path: the longest one that is
// path or a parent of it; "/" when none is.
QString mountPointOf(const QString& path, const QStringList& points);

// "Folder /data/maps not found."
QString folderNotFoundMessage(const QString& typed);

}  // namespace folders
