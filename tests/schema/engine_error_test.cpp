// Engine error numbers and texts, and the 16-bit keys of the forms.
#include "schema/engine_error.h"

#include <gtest/gtest.h>

#include <climits>

#include "jet/error.h"

using namespace schema;

namespace {

TEST(EngineError, CarriesNumberSourceAndJetsOwnText) {
  EngineError dup(err::kDuplicateKey, sources::kRecordset);
  EXPECT_EQ(dup.number(), 3022);
  EXPECT_EQ(dup.source(), "DAO.Recordset");
  EXPECT_EQ(dup.description(), jet::kDuplicateKeyText);
  EXPECT_STREQ(dup.what(), jet::kDuplicateKeyText);
  EXPECT_TRUE(dup.fromEngine());
  EXPECT_EQ(dup.record(), (ErrorRecord{3022, "DAO.Recordset", jet::kDuplicateKeyText}));

  EngineError missing(err::kTableNotFound, sources::kDatabase, {"Mapz"});
  EXPECT_EQ(missing.description(),
            "The Microsoft Jet database engine cannot find the input table or query 'Mapz'. "
            "Make sure it exists and that its name is spelled correctly.");

  // Arguments fill the gaps in order; a text of the caller's own is kept.
  EXPECT_EQ(errorText(err::kQueryExpressionSyntax, {"Extra )", "a = 1)"}),
            "Extra ) in query expression 'a = 1)'.");
  EXPECT_EQ(errorText(err::kTooFewParameters, {"2"}), "Too few parameters. Expected 2.");
  EXPECT_EQ(errorText(err::kFileNotFound, {"/tmp/x.csd"}), "Could not find file '/tmp/x.csd'.");
  EXPECT_EQ(EngineError::withText(3265, sources::kFields, "mine").description(), "mine");
  EXPECT_EQ(errorText(3999), "Reserved error (3999); there is no message for this error.");
}

TEST(EngineError, EveryNumberTheProgramMeetsHasAText) {
  const std::pair<int32_t, const char*> expected[] = {
      {6, "Overflow"},
      {3020, "Update or CancelUpdate without AddNew or Edit."},
      {3021, "No current record."},
      {3034,
       "You tried to commit or rollback a transaction without first beginning a transaction."},
      {3050, "Could not lock file."},
      {3131, "Syntax error in FROM clause."},
      {3265, "Item not found in this collection."},
      {3464, "Data type mismatch in criteria expression."},
  };
  for (auto [number, text] : expected) EXPECT_EQ(errorText(number), text) << number;
  EXPECT_EQ(errorText(3051, {"a.csd"}),
            "The Microsoft Jet database engine cannot open the file 'a.csd'. It is already "
            "opened exclusively by another user, or you need permission to view its data.");
}

TEST(EngineError, KeysBeyondSixteenBitsOverflow) {
  EXPECT_EQ(toInteger16(0), 0);
  EXPECT_EQ(toInteger16(32767), 32767);
  EXPECT_EQ(toInteger16(-32768), -32768);
  for (int32_t key : {32768, -32769, 65536, INT_MAX, INT_MIN}) {
    try {
      toInteger16(key);
      ADD_FAILURE() << key << " did not overflow";
    } catch (const EngineError& e) {
      EXPECT_EQ(e.number(), 6);
      EXPECT_EQ(e.description(), "Overflow");
      // The program's own error: it must not pose as the engine's.
      EXPECT_FALSE(e.fromEngine());
      EXPECT_EQ(e.source(), "Vantor");
    }
  }
}

}  // namespace
