// ScannerOptions: the state behind the "Scanner Options" tab, what its
// boxes show and which of them may be changed, and the document's current
// drawing scanner class that the linkage and key dialogs consult.
//
// fill() runs each time a document is opened or created; save() when it is
// saved, before the database closes. The boxes are read only at saving:
// nothing reaches the parameters while the user types.
#pragma once

#include <string>
#include <string_view>

#include "linkage/parameters_table.h"

namespace linkage {

// How the open document came to be.
enum class DocumentKind {
  kExisting = 0,
  kNewFromMicroStation = 1,
  kNewFromAutoCad = 2,
  kNewFromOtherTemplate = 3,
};

class ScannerOptions {
 public:
  // The texts of the boxes; the widget shows and edits them.
  struct Texts {
    std::string cadScannerClass{kAutoCadScanner};       // comboCADScannerCls
    std::string cadConnectString;                       // txtCADConnectStr
    std::string scannerIniFile;                         // txtScannerIniFile
    std::string rdbScannerClass{kOdbcDatabaseScanner};  // comboRDBScannerCls
    std::string rdbConnectString;                       // txtRDBConnectStr
  };

  // Shows the document's settings. A new document takes the scanner classes
  // of the template it came from; the drawing scanner class shown becomes
  // the current one.
  void fill(const ParametersTable& parameters, DocumentKind kind);
  // Writes the boxes and the map-file extensions back, then closes the
  // parameters' recordset.
  void save(ParametersTable& parameters, std::string_view mapFileExtensions) const;
  // Empties the database connect string and the INI file box.
  void clearConnection();

  Texts& texts() { return texts_; }
  const Texts& texts() const { return texts_; }

  const std::string& drawingScannerClass() const { return drawingScannerClass_; }
  bool isAutoCad() const { return drawingScannerClass_ == kAutoCadScanner; }

  // comboCADScannerCls: the drawing scanner class is never changed here.
  bool cadScannerClassEditable() const { return false; }
  // comboRDBScannerCls and txtRDBConnectStr: AutoCAD drawings are scanned
  // without an attribute database.
  bool databaseScannerEditable() const { return !isAutoCad(); }
  // butDBLinkageOptions, and the database-linked choices of the linkage
  // and key dialogs.
  bool databaseLinkageEnabled() const { return !isAutoCad(); }
  // butPrimaryUniqueKeys.
  bool primaryUniqueKeysEnabled() const { return true; }

 private:
  Texts texts_;
  std::string drawingScannerClass_;
};

}  // namespace linkage
