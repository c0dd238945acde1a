#include "features/feature_list.h"

#include <string>

#include "features/wizard_context.h"
#include "schema/engine_error.h"

namespace features {

namespace {

void deleteAll(schema::Recordset rs) {
  // From the last row back, so no delete moves the rows after it.
  while (rs.recordCount() > 0) {
    rs.moveLast();
    rs.deleteRecord();
  }
}

void deleteChildren(schema::SchemaDatabase& db, const std::string& id) {
  deleteAll(db.openRecordset("select * from FeatureMaps where FeaId = " + id));

  schema::Recordset definition =
      db.openRecordset("select * from FeatureDefinition where FeaId = " + id);
  while (definition.recordCount() > 0) {
    definition.moveFirst();
    schema::Recordset tables = db.openRecordset("select * from FeatureDefAttr where AttrId = " +
                                                std::to_string(longOrZero(definition, "AttrId")));
    if (tables.recordCount() > 0)
      for (tables.moveFirst(); !tables.eof(); tables.moveNext()) {
        // An attribute without a value table has no values to delete.
        const std::string table = ss(textOrEmpty(tables, "tableName"));
        if (!table.empty())
          deleteAll(db.openRecordset("select * from " + table + " where feaId = " + id));
      }
    definition.deleteRecord();
  }

  deleteAll(db.openRecordset("select * from FeatureAttributes where FeaId = " + id));
}

}  // namespace

bool deleteFeatureClass(schema::SchemaDatabase& db, schema::Recordset& features,
                        const QString& name) {
  features.findFirst("Name = '" + ss(name) + "'");
  if (features.noMatch()) return false;
  const std::string id = std::to_string(schema::toInteger16(longOrZero(features, "feaId")));
  // One transaction only so that the file is written once, not once per
  // row; a failure keeps what was deleted before it, as each step would.
  db.beginTrans();
  try {
    deleteChildren(db, id);
    features.deleteRecord();
  } catch (...) {
    try {
      db.commitTrans();
    } catch (...) {
      // The first failure is the one to report.
    }
    throw;
  }
  db.commitTrans();
  return true;
}

}  // namespace features
