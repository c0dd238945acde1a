#include "features/ValueGridModel.h"

namespace features {

ValueGridModel::ValueGridModel(DefinitionAttributes& definition, QStringList captions,
                               QObject* parent)
    : QAbstractTableModel(parent), definition_(definition), captions_(std::move(captions)) {}

void ValueGridModel::refresh() {
  beginResetModel();
  endResetModel();
}

int ValueGridModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(definition_.rows().size());
}

int ValueGridModel::columnCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : kColumnCount;
}

QVariant ValueGridModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= rowCount()) return {};
  if (role != Qt::DisplayRole && role != Qt::EditRole) return {};
  const ValueRow& row = definition_.rows()[size_t(index.row())];
  switch (index.column()) {
    case kName:
      return row.attribute.name;
    case kType:
      return typeName(row.attribute.gdoType);
    case kValues:
      return row.values;
    case kTableName:
      return qs(row.attribute.tableName);
    case kTableId:
      return row.attribute.attrId;
    case kUpdateFlag:
      return row.updated;
    default:
      return {};
  }
}

bool ValueGridModel::setData(const QModelIndex& index, const QVariant& value, int role) {
  if (!index.isValid() || index.column() != kValues || role != Qt::EditRole) return false;
  definition_.setValues(size_t(index.row()), value.toString());
  emit dataChanged(this->index(index.row(), kValues), this->index(index.row(), kUpdateFlag));
  return true;
}

Qt::ItemFlags ValueGridModel::flags(const QModelIndex& index) const {
  Qt::ItemFlags f = QAbstractTableModel::flags(index);
  if (index.column() == kValues) f |= Qt::ItemIsEditable;
  return f;
}

QVariant ValueGridModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
  return section >= 0 && section < captions_.size() ? captions_[section] : QVariant();
}

}  // namespace features
