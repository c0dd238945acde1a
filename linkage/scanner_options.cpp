#include "linkage/scanner_options.h"

namespace linkage {

void ScannerOptions::fill(const ParametersTable& parameters, DocumentKind kind) {
  switch (kind) {
    case DocumentKind::kNewFromMicroStation:
      texts_.rdbScannerClass = kOdbcDatabaseScanner;
      texts_.cadScannerClass = kVektScanner;
      break;
    case DocumentKind::kNewFromAutoCad:
      // The database scanner box keeps whatever it showed before.
      texts_.cadScannerClass = kAutoCadScanner;
      break;
    case DocumentKind::kExisting:
    case DocumentKind::kNewFromOtherTemplate:
      texts_.rdbScannerClass = parameters.DbScannerClass();
      texts_.cadScannerClass = parameters.GraphicScannerClass();
      break;
  }
  texts_.scannerIniFile = parameters.INI();
  texts_.cadConnectString = parameters.GraphicConnectString();
  texts_.rdbConnectString = parameters.DbConnectString();
  drawingScannerClass_ = texts_.cadScannerClass;
}

void ScannerOptions::save(ParametersTable& parameters, std::string_view mapFileExtensions) const {
  parameters.setCADextension(mapFileExtensions);
  parameters.setINI(texts_.scannerIniFile);
  parameters.setDbScannerClass(texts_.rdbScannerClass);
  parameters.setGraphicScannerClass(texts_.cadScannerClass);
  parameters.setGraphicConnectString(texts_.cadConnectString);
  parameters.setDbConnectString(texts_.rdbConnectString);
  parameters.CloseRecordSet();
}

void ScannerOptions::clearConnection() {
  texts_.rdbConnectString.clear();
  texts_.scannerIniFile.clear();
}

}  // namespace linkage
