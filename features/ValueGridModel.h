// ValueGridModel: the wizard's value grid (TDBGrid1) as a table model over
// the definition attributes' rows, one row per attribute in the order they
// were chosen. Columns: the attribute's name and type (read only), its
// values (edited), and its value table, AttrId and whether its values were
// edited, which the grid keeps out of sight. QtCore only: it is tested
// without a display.
#pragma once

#include <QAbstractTableModel>
#include <QStringList>

#include "features/definition_attributes.h"

namespace features {

class ValueGridModel : public QAbstractTableModel {
  Q_OBJECT

 public:
  enum Column {
    kName = 0,
    kType = 1,
    kValues = 2,
    kTableName = 3,
    kTableId = 4,
    kUpdateFlag = 5,
    kColumnCount = 6
  };

  // definition must outlive the model; captions name the six columns.
  ValueGridModel(DefinitionAttributes& definition, QStringList captions, QObject* parent = nullptr);

  // The definition attributes changed: the rows are read again.
  void refresh();

  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
  Qt::ItemFlags flags(const QModelIndex& index) const override;
  QVariant headerData(int section, Qt::Orientation orientation,
                      int role = Qt::DisplayRole) const override;

 private:
  DefinitionAttributes& definition_;
  QStringList captions_;
};

}  // namespace features
