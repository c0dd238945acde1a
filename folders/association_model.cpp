#include "folders/association_model.h"

#include "document/string_table.h"

namespace folders {

int AssociationModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : int(association_.maps().size());
}

int AssociationModel::columnCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : kColumnCount;
}

QVariant AssociationModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || (role != Qt::DisplayRole && role != Qt::EditRole)) return {};
  const CoordinateSystemAssociation::MapRow& map = association_.maps().at(size_t(index.row()));
  switch (index.column()) {
    case kMap:
      return association_.mapName(size_t(index.row()));
    case kFile:
      return association_.fileName(map.csfid);
    case kCsId:
      return map.csfid ? QVariant(int(*map.csfid)) : QVariant();
    case kBookmark:
      return QVariant::fromValue(qulonglong(map.mark.value));
  }
  return {};
}

QVariant AssociationModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
  if (section < 0 || section >= kColumnCount) return {};
  return document::text(5120 + section);
}

Qt::ItemFlags AssociationModel::flags(const QModelIndex& index) const {
  Qt::ItemFlags f = QAbstractTableModel::flags(index);
  if (index.column() == kFile) f |= Qt::ItemIsEditable;
  return f;
}

bool AssociationModel::setData(const QModelIndex& index, const QVariant& value, int role) {
  if (!index.isValid() || index.column() != kFile || role != Qt::EditRole) return false;
  const std::optional<int16_t> csfid = association_.csfidOf(value.toString());
  if (!csfid) return false;
  association_.assign(index.row(), *csfid);
  emit dataChanged(this->index(index.row(), kFile), this->index(index.row(), kCsId));
  return true;
}

void AssociationModel::refresh() {
  beginResetModel();
  try {
    association_.refresh();
  } catch (...) {
    association_.clear();
    endResetModel();
    throw;
  }
  endResetModel();
}

void AssociationModel::clear() {
  beginResetModel();
  association_.clear();
  endResetModel();
}

void AssociationModel::filesChanged() {
  if (rowCount() == 0) return;
  emit dataChanged(index(0, kFile), index(rowCount() - 1, kCsId));
}

}  // namespace folders
