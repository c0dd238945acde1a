// AssociationModel: the map / coordinate-system grid of the "Coordinate
// Systems" tab as a table model over a CoordinateSystemAssociation, so the
// view asks only for the rows it shows and stays quick with tens of
// thousands of maps.
//
// Columns: the map, its coordinate-system file (editable: the edit value is
// a file's display name), the file's key ("CS Id") and the map's bookmark.
// setData() writes the map's row through the association and passes its
// engine failures on to the caller, which must catch them.
#pragma once

#include <QAbstractTableModel>

#include "folders/cs_association.h"

namespace folders {

class AssociationModel : public QAbstractTableModel {
  Q_OBJECT

 public:
  enum Column { kMap, kFile, kCsId, kBookmark, kColumnCount };

  explicit AssociationModel(CoordinateSystemAssociation& association, QObject* parent = nullptr)
      : QAbstractTableModel(parent), association_(association) {}

  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  QVariant headerData(int section, Qt::Orientation orientation,
                      int role = Qt::DisplayRole) const override;
  Qt::ItemFlags flags(const QModelIndex& index) const override;
  bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;

  // Refreshes the association from the tables; when that fails the grid is
  // left empty and the failure passed on.
  void refresh();
  void clear();
  // Every map's file changed at once.
  void filesChanged();

 private:
  CoordinateSystemAssociation& association_;
};

}  // namespace folders
