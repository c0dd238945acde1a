// frmDBLinkageOptions: the "Database Linkage Options" dialog. Two grids
// list the non-spatial graphic attributes, one for the attributes that link
// a drawing element to a database table, one for those that link it to a
// row; each row has Link (Space toggles it), the graphic name, the database
// scanner's name (F2, a double click or typing edits it) and the AttrId.
//
// There is no Cancel: closing the dialog by Close, Escape or the window's
// close box stores what the grids show (a pending edit included). A failure
// to store goes to the error sink and the rows stay as they were.
//
// The database and the recordset must outlive the dialog.
#pragma once

#include <QDialog>
#include <array>
#include <memory>

#include "linkage/dialog_support.h"
#include "linkage/linkage_options.h"

namespace Ui {
class frmDBLinkageOptions;
}
class QTableView;

namespace linkage {

class LinkGridModel;

class frmDBLinkageOptions : public QDialog {
  Q_OBJECT

 public:
  // F1 opens the help at its contents, as in every other form; the
  // dialog's own topic is one link away.
  static constexpr int kHelpContext = 131;

  // Fills the grids; fails, before anything is shown, as
  // LinkageOptions::load does.
  frmDBLinkageOptions(schema::SchemaDatabase& db, schema::Recordset& graphicAttributes,
                      QWidget* parent = nullptr);
  ~frmDBLinkageOptions() override;

  void setErrorSink(ErrorSink sink) { sink_ = std::move(sink); }
  const LinkageOptions& options() const { return options_; }

  // Every way of closing ends here, and stores the grids.
  void done(int result) override;

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void setUpGrid(QTableView* view, LinkageOptions::Grid grid);

  std::unique_ptr<Ui::frmDBLinkageOptions> ui_;
  schema::SchemaDatabase& db_;
  LinkageOptions options_;
  std::array<QTableView*, 2> views_{};
  std::array<LinkGridModel*, 2> models_{};
  ErrorSink sink_;
};

}  // namespace linkage
