// Row wrappers: an analytics setting out of the table that holds it, and what goes wrong with members.
#include <sqlite3.h>

#include "capture.h"
#include "fixture.h"
#include "velm/vexasetting.h"

enum class TestColumns : std::int32_t {};

template <>
class DBWrapperData<TestColumns> {
 protected:
  DBPrimitiveMember<std::string> m_First, m_Third;
  DBMember* m_Members[3] = {&m_First, nullptr, &m_Third};
};
template <>
const char* const DBWrapper<TestColumns>::m_szTableName = "holes";

namespace {

class RowTest : public SiteTest {};

using Texts = std::vector<std::string>;

// The first column of what a query of the site's records answers.
Texts Query(const std::string& sql) {
  sqlite3* connection = nullptr;
  sqlite3_stmt* statement = nullptr;
  Texts texts;
  sqlite3_open(oculora::kRecordsPath, &connection);
  EXPECT_EQ(sqlite3_prepare_v2(connection, sql.c_str(), -1, &statement, nullptr), SQLITE_OK) << sql;
  while (sqlite3_step(statement) == SQLITE_ROW) {
    texts.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)));
  }
  sqlite3_finalize(statement);
  sqlite3_close(connection);
  return texts;
}

struct OpenSetting : VexaSetting {
  Texts SqlValues() const {
    Texts values;
    for (const DBMember* member : m_Members) values.push_back(member->ToSqlValue());
    return values;
  }
};

// Each column gets a value of its own, texts one with quotes; SQLite says how these are written.
TEST_F(RowTest, SettingHoldsTheColumnsOfTheTable) {
  Query("INSERT INTO vexa_settings (id, camera_id, name, detection_type) VALUES (99, 7, 'x', 5)");
  Query("UPDATE vexa_settings SET camera_id = 7");
  std::string changes = "id = 99";
  Texts expected;
  const Texts columns = Query("SELECT name FROM pragma_table_info('vexa_settings')");
  for (std::size_t i = 3; i < columns.size(); ++i) {
    if (columns[i] == "detection_type") continue;
    changes += ", " + columns[i] + " = iif(typeof(" + columns[i] + ") = 'text', 'it''s ''" + columns[i] + "', " +
               std::to_string(1000 + i) + ")";
  }
  Query("UPDATE vexa_settings SET " + changes);
  for (const std::string& column : columns) {
    expected.push_back(Query("SELECT quote(" + column + ") FROM vexa_settings WHERE id = 99").at(0));
  }
  OpenSetting setting;
  EXPECT_EQ(setting.GetCamId(), 0);
  ASSERT_EQ(setting.LoadById(99), 0);
  EXPECT_EQ(setting.GetCamId(), 7);
  EXPECT_EQ(setting.SqlValues(), expected);
  EXPECT_EQ(expected.size(), 81U);
  EXPECT_EQ(Query("SELECT name FROM pragma_table_info('vexa_settings') WHERE type = 'TEXT'").size(), 9U);
  EXPECT_EQ(setting.LoadById(7), -1);
  EXPECT_EQ(setting.SqlValues(), expected) << "a load that fails leaves it alone";
}

TEST_F(RowTest, TextKeepsItsValueWhenJsonIsNone) {
  Json::Value object;
  object["a"]["b"] = "\xc3\xa9";
  DBPrimitiveMember<std::string> member;
  member.SetByJson("kept");
  for (const Json::Value& json : {object, Json::Value(Json::arrayValue)}) member.SetByJson(json);
  EXPECT_EQ(member.ToJson(), Json::Value("kept"));
  const std::string log = ReadFile(oculora::kLogPath);
  EXPECT_NE(log.find("Failed converting Json [{\"a\":{\"b\":\"\xc3\xa9\"}}] to DBPrimitiveMember"), std::string::npos)
      << log;
  EXPECT_NE(log.find("Failed converting Json [[]]"), std::string::npos) << log;
  member.SetByJson(12);
  EXPECT_EQ(member.Get(), "12");
}

TEST_F(RowTest, ColumnWithoutMemberIsReported) {
  struct Holes : DBWrapper<TestColumns> {
    int LoadById(int) override { return -1; }
  } holes;
  EXPECT_TRUE(holes.ShouldLogOnError());
  const std::string log = ReadFile(oculora::kLogPath);
  const std::string line = "Data member of db wrapper table [holes] is not correctly initialized";
  EXPECT_NE(log.find(line), std::string::npos) << log;
  EXPECT_EQ(log.find(line), log.rfind(line));
}

}  // namespace
