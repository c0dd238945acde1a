// LinkGridModel: one grid of the "Database Linkage Options" dialog as a
// table model over the rows of LinkageOptions, which it edits in place.
// Columns: "Link" (a check box), "Graphic attribute name" (read only),
// "Database scanner attribute name" (edited as text, at most the column's
// declared size) and "Attribute ID" (read only).
#pragma once

#include <QAbstractTableModel>
#include <QStringList>
#include <vector>

#include "linkage/linkage_options.h"

namespace linkage {

class LinkGridModel : public QAbstractTableModel {
  Q_OBJECT

 public:
  enum Column { kLink = 0, kName = 1, kDbScaName = 2, kAttrId = 3, kColumnCount = 4 };

  // rows must outlive the model; captions name the four columns.
  LinkGridModel(std::vector<LinkageOptions::Row>& rows, QStringList captions, int maxNameLength,
                QObject* parent = nullptr);

  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
  Qt::ItemFlags flags(const QModelIndex& index) const override;
  QVariant headerData(int section, Qt::Orientation orientation,
                      int role = Qt::DisplayRole) const override;

  // Checks or unchecks the row's Link.
  void toggleLink(int row);
  int maxNameLength() const { return maxNameLength_; }

 private:
  std::vector<LinkageOptions::Row>& rows_;
  QStringList captions_;
  int maxNameLength_;
};

}  // namespace linkage
