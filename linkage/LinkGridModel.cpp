#include "linkage/LinkGridModel.h"

namespace linkage {

LinkGridModel::LinkGridModel(std::vector<LinkageOptions::Row>& rows, QStringList captions,
                             int maxNameLength, QObject* parent)
    : QAbstractTableModel(parent),
      rows_(rows),
      captions_(std::move(captions)),
      maxNameLength_(maxNameLength) {}

int LinkGridModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

int LinkGridModel::columnCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : kColumnCount;
}

QVariant LinkGridModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid()) return {};
  const LinkageOptions::Row& row = rows_[static_cast<size_t>(index.row())];
  switch (index.column()) {
    case kLink:
      if (role == Qt::CheckStateRole) return int(row.link ? Qt::Checked : Qt::Unchecked);
      break;
    case kName:
      if (role == Qt::DisplayRole) return QString::fromStdString(row.name);
      break;
    case kDbScaName:
      if (role == Qt::DisplayRole || role == Qt::EditRole)
        return QString::fromStdString(row.dbScaName);
      break;
    case kAttrId:
      if (role == Qt::DisplayRole) return row.attrId;
      if (role == Qt::TextAlignmentRole) return int(Qt::AlignRight | Qt::AlignVCenter);
      break;
  }
  return {};
}

bool LinkGridModel::setData(const QModelIndex& index, const QVariant& value, int role) {
  if (!index.isValid()) return false;
  LinkageOptions::Row& row = rows_[static_cast<size_t>(index.row())];
  if (index.column() == kLink && role == Qt::CheckStateRole) {
    row.link = value.toInt() == Qt::Checked;
  } else if (index.column() == kDbScaName && role == Qt::EditRole) {
    const QString text = value.toString();
    // The column could not store more; the editor stops the user earlier.
    if (maxNameLength_ > 0 && text.size() > maxNameLength_) return false;
    row.dbScaName = text.toStdString();
  } else {
    return false;
  }
  emit dataChanged(index, index, {role});
  return true;
}

Qt::ItemFlags LinkGridModel::flags(const QModelIndex& index) const {
  if (!index.isValid()) return Qt::NoItemFlags;
  Qt::ItemFlags f = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
  if (index.column() == kLink) f |= Qt::ItemIsUserCheckable;
  if (index.column() == kDbScaName) f |= Qt::ItemIsEditable;
  return f;
}

QVariant LinkGridModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation == Qt::Horizontal && role == Qt::DisplayRole && section < captions_.size())
    return captions_[section];
  return QAbstractTableModel::headerData(section, orientation, role);
}

void LinkGridModel::toggleLink(int row) {
  if (row < 0 || row >= rowCount()) return;
  const bool checked = rows_[static_cast<size_t>(row)].link;
  setData(index(row, kLink), int(checked ? Qt::Unchecked : Qt::Checked), Qt::CheckStateRole);
}

}  // namespace linkage
