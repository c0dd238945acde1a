// frmPrimaryUniqueKeys: the "Primary Unique Keys" dialog. Two lists offer
// the non-spatial graphic attributes; the selection in the first is the key
// of graphic-only feature classes, in the second that of database-linked
// ones (disabled for AutoCAD drawings).
//
// There is no Cancel: closing the dialog by Close, Escape or the window's
// close box stores the selections. A failure to store goes to the error
// sink and the rows stay as they were.
//
// The database and the recordset must outlive the dialog.
#pragma once

#include <QDialog>
#include <memory>
#include <string_view>

#include "linkage/dialog_support.h"
#include "linkage/primary_unique_keys.h"

namespace Ui {
class frmPrimaryUniqueKeys;
}

namespace linkage {

class frmPrimaryUniqueKeys : public QDialog {
  Q_OBJECT

 public:
  // F1 opens the help at its contents, as in every other form; the
  // dialog's own topic is one link away.
  static constexpr int kHelpContext = 131;

  // Fills the lists; fails, before anything is shown, as
  // PrimaryUniqueKeys::load does.
  frmPrimaryUniqueKeys(schema::SchemaDatabase& db, schema::Recordset& graphicAttributes,
                       std::string_view drawingScannerClass, QWidget* parent = nullptr);
  ~frmPrimaryUniqueKeys() override;

  void setErrorSink(ErrorSink sink) { sink_ = std::move(sink); }

  // Every way of closing ends here, and stores the selections.
  void done(int result) override;

 private:
  std::unique_ptr<Ui::frmPrimaryUniqueKeys> ui_;
  schema::SchemaDatabase& db_;
  PrimaryUniqueKeys keys_;
  ErrorSink sink_;
};

}  // namespace linkage
