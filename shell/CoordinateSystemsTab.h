// CoordinateSystemsTab: the wiring of the "Coordinate Systems" tab of
// frmMain. CoordinateSystemAssociation holds the state, AssociationModel
// shows it in tdbgCS, whose file column is edited with a drop-down list of
// the coordinate-system files; the two options and comboCS choose between
// one file for every map and a file per map.
//
// Promises: every handler runs under the host's error trap; "same" over
// many maps shows its progress; a failed write leaves the grid showing
// what the file holds.
#pragma once

#include <QObject>
#include <QStyledItemDelegate>

#include "folders/association_model.h"
#include "folders/cs_association.h"
#include "shell/tab_host.h"

namespace Ui {
class frmMain;
}

namespace shell {

// The drop-down of the grid's file column: the coordinate-system files by
// display name; choosing one writes the map at once.
class CoordinateSystemDelegate : public QStyledItemDelegate {
  Q_OBJECT

 public:
  CoordinateSystemDelegate(const folders::CoordinateSystemAssociation& association,
                           const TabHost& host, QObject* parent = nullptr)
      : QStyledItemDelegate(parent), association_(association), host_(host) {}

  QWidget* createEditor(QWidget* parent, const QStyleOptionViewItem& option,
                        const QModelIndex& index) const override;
  void setEditorData(QWidget* editor, const QModelIndex& index) const override;
  void setModelData(QWidget* editor, QAbstractItemModel* model,
                    const QModelIndex& index) const override;

 private:
  const folders::CoordinateSystemAssociation& association_;
  const TabHost& host_;
};

class CoordinateSystemsTab : public QObject {
  Q_OBJECT

 public:
  CoordinateSystemsTab(Ui::frmMain& ui, TabHost host);
  ~CoordinateSystemsTab() override;

  // Works out the mode and fills the combo and the grid from the tables.
  void refresh();
  // Empties the combo and the grid and clears both options.
  void clear();
  // The tab's part of the window's enabling.
  void setEnabled(bool open);

  const folders::CoordinateSystemAssociation& association() const { return association_; }

 private:
  void chooseSame();
  void chooseDifferent();
  void showMode(bool same);

  Ui::frmMain& ui_;
  TabHost host_;
  folders::CoordinateSystemAssociation association_;
  folders::AssociationModel model_;
  CoordinateSystemDelegate delegate_;
};

}  // namespace shell
