// The feature class list's Delete: a feature class goes with everything that
// hangs from it, children first, in this order: its FeatureMaps rows, its
// values in the value table of each definition attribute, its
// FeatureDefinition rows, its FeatureAttributes rows, and the Features row
// last. Other feature classes' rows in the same tables are not touched, nor
// are FeatureDefAttr or KeysParameters.
#pragma once

#include <QString>

#include "schema/recordset.h"
#include "schema/schema_database.h"

namespace features {

// Deletes the class found with "Name = '<name>'" in the features recordset
// (the main window's whole-table one); false when there is none. The key is
// held as the forms hold keys, so a class whose feaId passes 32767 fails
// with 6 "Overflow" before anything is deleted. The deletes are written out
// together; an engine error stops them at the failing step, and the rows
// deleted until then stay deleted.
bool deleteFeatureClass(schema::SchemaDatabase& db, schema::Recordset& features,
                        const QString& name);

}  // namespace features
