// What only the database key does (shared: key_contract_test.cc; user-visible: e2e cases/db).
#include "registry/db_key.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include <cppdb/frontend.h>
#include <cppdb/utils.h>

#include "registry/db_backend.h"
#include "support/log_test_util.h"

namespace regkey {
namespace {

using Texts = std::vector<std::string>;

void RunSql(const std::string& spec, const std::string& statement) {
  cppdb::session(spec).create_statement(statement).exec();
}

// The first column of the first row of a query, "NULL" for a null, "" for no row.
std::string QuerySql(const std::string& spec, const std::string& statement) {
  cppdb::session session(spec);
  cppdb::result row = session.create_statement(statement).query();
  std::string text;
  return !row.next() ? "" : row.fetch(0, text) ? text : "NULL";
}

// Each test has a database of its own, cloned from HIVECTL_PG_TEMPLATE, dropped at the end.
class DBKeyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (server_ == nullptr || *server_ == '\0') GTEST_SKIP() << "no HIVECTL_PG_SPEC";
    static int counter = 0;
    name_ = "hivectl_scratch_" + std::to_string(getpid()) + "_" + std::to_string(counter++);
    const char* source = std::getenv("HIVECTL_PG_TEMPLATE");
    RunSql(server_, "CREATE DATABASE " + name_ + " TEMPLATE " +
                        (source != nullptr ? source : "registry_template"));
    cppdb::connection_info info(server_);
    info.properties["dbname"] = name_;
    spec_ = info.driver + ":";
    for (const auto& [key, value] : info.properties) spec_ += key + "=" + value + ";";
    backend_ = std::make_shared<DBBackend>();
    ASSERT_TRUE(backend_->Init(spec_));
  }
  void TearDown() override {
    if (!name_.empty()) RunSql(server_, "DROP DATABASE IF EXISTS " + name_ + " WITH (FORCE)");
  }
  void Run(const std::string& statement) { RunSql(spec_, statement); }
  KeyPtr Writable(std::string_view path) { return backend_->Create("", 0, false, path, true); }
  void Store(std::string_view path) {
    ASSERT_TRUE(Writable(path)->SetValue("x", 1, kTypeStr, "v")) << path;
  }
  std::string Paths() {
    return QuerySql(spec_, "SELECT string_agg(path, ',' ORDER BY folded) FROM registry.keys "
                           "WHERE folded <> ''");
  }
  void Replace(const std::string& function, const std::string& returns, const std::string& body) {
    Run("CREATE OR REPLACE FUNCTION registry." + function + " RETURNS " + returns +
        " LANGUAGE sql AS $$ " + body + " $$");
  }

  const char* server_ = std::getenv("HIVECTL_PG_SPEC");
  std::string name_, spec_;
  std::shared_ptr<DBBackend> backend_;
};

TEST_F(DBKeyTest, SubtreeOperationsTreatLikeCharactersLiterally) {
  for (const char* path : {"a_b", "a_b\\c", "axb", "a%", "a%\\d", "a_bc"}) Store(path);
  KeyPtr root = Writable("");
  EXPECT_TRUE(root->CopyKey("a_b", "n%"));
  EXPECT_EQ(Paths(), "a%,a%\\d,a_b,a_b\\c,a_bc,axb,n%,n%\\c");
  EXPECT_TRUE(root->RenameKey("A%", "m_"));
  EXPECT_EQ(Paths(), "a_b,a_b\\c,a_bc,axb,m_,m_\\d,n%,n%\\c");
  EXPECT_TRUE(root->RemoveKey("a_b"));
  EXPECT_EQ(Paths(), "a_bc,axb,m_,m_\\d,n%,n%\\c");
}

// Unknown wire codes: reads find nothing, a negative code throws. Server functions answering
// NULL or odd rows: reads find nothing, tests fail.
TEST_F(DBKeyTest, UnknownCodesNullAndOddRows) {
  Store("k");
  Run("UPDATE registry.vals SET type = 7");
  KeyPtr key = Writable("k");
  ValueBuffer buffer;
  ValueType type = kTypeBin;
  EXPECT_EQ(key->GetValue(buffer, &type, "v"), 0);
  EXPECT_EQ(type, kTypeBin);
  std::string value, name;
  EXPECT_FALSE(key->NextString(value, name));
  Run("UPDATE registry.vals SET type = -1");
  EXPECT_THROW(Writable("k")->NextValue(buffer, &type, name), cppdb::cppdb_error);
  Replace("get_value(p_path text, p_name text)", "TABLE (type smallint, value text)",
          "SELECT 1::smallint, NULL");
  Replace("has_value(p_path text, p_name text)", "boolean", "SELECT NULL::boolean");
  Replace("get_subkeys(p_path text)", "SETOF text", "VALUES ('k\\'), (NULL)");
  LogCapture log;
  EXPECT_EQ(key->GetValue(buffer, &type, "v"), 0);
  EXPECT_FALSE(key->CheckValueExists("v"));
  EXPECT_EQ(log.Texts(),
            Texts{"ReqistryKeyDB: CheckValueExists failed: cppdb::null_value_fetch attempt fetch null column"});
  name = "unchanged";
  ASSERT_TRUE(key->NextSubKeyName(name));
  EXPECT_EQ(name, "");
  EXPECT_FALSE(key->NextSubKeyName(name));
}

// Init leaves its connection, set up once, in the pool for the first key; an idle limit
// given in the backend specification stands. Without a pool, a subkey whose session cannot
// open is skipped as null and the cursor moves on to the next row.
TEST_F(DBKeyTest, PoolAndSessions) {
  EXPECT_EQ(PoolConnectionInfo("postgresql:@pool_max_idle=60;").get("@pool_max_idle"), "60");
  const std::string count = "SELECT count(*) FROM pg_stat_activity WHERE datname = '" + name_ + "'";
  EXPECT_EQ(QuerySql(server_, count), "1");
  auto query = [this](const char* sql) {
    cppdb::result row = backend_->ConnectSession().create_statement(sql).query();
    return row.next() ? row.get<std::string>(0) : std::string();
  };
  EXPECT_EQ(query("SHOW client_min_messages"), "error");
  backend_->ConnectSession().create_statement("SET client_min_messages = notice").exec();
  EXPECT_EQ(query("SHOW client_min_messages"), "notice");
  EXPECT_EQ(QuerySql(server_, count), "1");
  auto backend = std::make_shared<DBBackend>();
  ASSERT_TRUE(backend->Init(spec_ + "@pool_size=0;"));
  Store("k\\a");
  Store("k\\b");
  KeyPtr key = backend->Create("", 0, true, "k", false);
  const std::string allow = "ALTER DATABASE " + name_ + " WITH ALLOW_CONNECTIONS ";
  LogCapture log;
  RunSql(server_, allow + "false");
  EXPECT_EQ(key->NextSubKey(true), nullptr);
  EXPECT_EQ(log.Texts().at(0).substr(0, 35), "ReqistryKeyDB: OpenSession failed: ");
  RunSql(server_, allow + "true");
  EXPECT_EQ(key->NextSubKey(true)->GetName(), "b");
}

}  // namespace
}  // namespace regkey
