// What the parts of the Feature Definition Wizard share: the open database
// and the main window's recordsets it borrows, the door to the user, the
// feature class being edited and whether it has database linkage, plus the
// few look-ups every step makes.
//
// The recordsets belong to the main window and must outlive the wizard; the
// wizard moves their cursors (FindFirst) and keeps the Features recordset's
// row in add or edit mode from loading to Finish or Cancel.
#pragma once

#include <QString>
#include <cstdint>
#include <optional>
#include <string>

#include "document/prompter.h"
#include "schema/recordset.h"
#include "schema/schema_database.h"

namespace features {

struct WizardRecordsets {
  schema::Recordset& features;
  schema::Recordset& maps;
  schema::Recordset& directories;
  schema::Recordset& coordinateSystemFiles;
  schema::Recordset& graphicAttributes;
  schema::Recordset& featureDefAttr;
};

// A row of GraphicAttributes.
struct GraphicAttribute {
  int32_t attrId = 0;
  QString name;
  int gdoType = 0;
};

struct WizardContext {
  schema::SchemaDatabase& db;
  WizardRecordsets rs;
  document::Prompter& prompter;
  int16_t featureId = 0;
  bool dbLinked = false;

  // "select * from <table> where feaId = <featureId>", or the spelling given.
  std::string featureRowsQuery(std::string_view table, std::string_view keyField = "feaId") const;
  // An OK-only message box.
  void tell(const QString& message) const;
  // A Yes/No question; true for Yes.
  bool confirm(const QString& message) const;
  // The graphic attribute of that name; when there is none the user is told
  // "Unable to locate graphic attribute <name>." and the consequence
  // (string 5010 or 5011).
  std::optional<GraphicAttribute> attributeNamed(const QString& name, int consequence) const;
};

// One line of a step check's text: two blanks, the message, a line end.
QString checkLine(const QString& message);

// The attribute found with "Name = '<name>'" or "AttrId = <id>" in the
// GraphicAttributes recordset; nullopt on no match. A name holding a quote
// makes the criterion fail with the engine's error, as it always has.
std::optional<GraphicAttribute> findAttribute(schema::Recordset& graphicAttributes,
                                              const QString& name);
std::optional<GraphicAttribute> findAttribute(schema::Recordset& graphicAttributes, int32_t attrId);

// The display name of a GDOType (strings 2022 to 2033); "" for other codes.
QString typeName(int gdoType);

// Field readers: Null as 0, "" or nullopt.
int32_t longOrZero(const schema::Recordset& rs, std::string_view field);
QString textOrEmpty(const schema::Recordset& rs, std::string_view field);

QString qs(const std::string& s);
std::string ss(const QString& s);

}  // namespace features
