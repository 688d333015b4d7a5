#include "registry/db_key.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "registry/db_backend.h"
#include "registry/db_test_util.h"

namespace regkey {
namespace {

using testing::LogCapture;
using testing::ScratchDatabase;

TEST(JoinPathTest, JoinsWithOneBackslash) {
  EXPECT_EQ(JoinPath("", ""), "");
  EXPECT_EQ(JoinPath("", "a\\b"), "a\\b");
  EXPECT_EQ(JoinPath("root", "a"), "root\\a");
  EXPECT_EQ(JoinPath("root", ""), "root\\");
  EXPECT_EQ(JoinPath("root", "a\\\\b"), "root\\a\\\\b");
  EXPECT_EQ(JoinPath("root", "\\a"), "root\\\\a");
}

// A scratch registry database and a backend on it.
class DBKeyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    SKIP_WITHOUT_PG_SERVER();
    db_ = std::make_unique<ScratchDatabase>();
    backend_ = std::make_shared<DBBackend>();
    ASSERT_TRUE(backend_->Init(db_->spec()));
  }

  KeyPtr Writable(std::string_view path) { return backend_->Create("", 0, false, path, true); }
  KeyPtr ReadOnly(std::string_view path) { return backend_->Create("", 0, true, path, false); }
  KeyPtr Root() { return backend_->Create("", 0, false, "", false); }

  // The stored row of a value as "code:text", "" if there is none.
  std::string Row(const std::string& key, const std::string& name) {
    return db_->Query("SELECT type || ':' || value FROM registry.get_value('" + key + "', '" +
                      name + "')");
  }
  std::string Paths() {
    return db_->Query("SELECT string_agg(path, ',' ORDER BY folded) FROM registry.keys "
                      "WHERE folded <> ''");
  }

  std::unique_ptr<ScratchDatabase> db_;
  std::shared_ptr<DBBackend> backend_;
};

TEST_F(DBKeyTest, ValuesTravelAsTextWithWireCodes) {
  KeyPtr key = Writable("k");
  int32_t i32 = -1;
  int64_t i64 = INT64_MIN;
  ASSERT_TRUE(key->SetValue(&i32, 4, kTypeI32, "a"));
  ASSERT_TRUE(key->SetValue(&i64, 8, kTypeI64, "b"));
  ASSERT_TRUE(key->SetValue("text", 99, kTypeStr, "c"));
  ASSERT_TRUE(key->SetValue("cut\0here", 8, kTypeStr, "d"));
  ASSERT_TRUE(key->SetValue("\x01\x02\xff\x00", 4, kTypeBin, "e"));
  ASSERT_TRUE(key->SetValue("", 0, kTypeBin, "f"));
  EXPECT_EQ(Row("k", "a"), "3:-1");
  EXPECT_EQ(Row("k", "b"), "4:-9223372036854775808");
  EXPECT_EQ(Row("k", "c"), "1:text");
  EXPECT_EQ(Row("k", "d"), "1:cut");
  EXPECT_EQ(Row("k", "e"), "2:AQL/AA==");
  EXPECT_EQ(Row("k", "f"), "2:");
}

TEST_F(DBKeyTest, EmptyBinaryReadsAsNothingAndEndsEnumeration) {
  KeyPtr key = Writable("k");
  ASSERT_TRUE(key->SetValue("x", 1, kTypeStr, "a"));
  ASSERT_TRUE(key->SetValue("", 0, kTypeBin, "b"));
  ASSERT_TRUE(key->SetValue("z", 1, kTypeStr, "c"));
  ValueBuffer buffer;
  ValueType type;
  EXPECT_EQ(key->GetValue(buffer, &type, "b"), 0);
  std::string name;
  EXPECT_EQ(key->NextValue(buffer, &type, name), 2);
  EXPECT_EQ(name, "a");
  // The server lists the empty value last, where it ends the enumeration.
  EXPECT_EQ(key->NextValue(buffer, &type, name), 2);
  EXPECT_EQ(name, "c");
  EXPECT_EQ(key->NextValue(buffer, &type, name), 0);
  EXPECT_EQ(key->CountValues(), 3u);
}

TEST_F(DBKeyTest, UnknownWireCodeAnswersNothing) {
  KeyPtr key = Writable("k");
  ASSERT_TRUE(key->SetValue("x", 1, kTypeStr, "a"));
  db_->Run("UPDATE registry.vals SET type = 7");
  ValueBuffer buffer;
  ValueType type = kTypeBin;
  EXPECT_EQ(key->GetValue(buffer, &type, "a"), 0);
  EXPECT_EQ(type, kTypeBin);
  std::string value, name;
  EXPECT_FALSE(key->NextString(value, name));
}

TEST_F(DBKeyTest, UnreadableWireCodePassesOutOfEnumeration) {
  KeyPtr key = Writable("k");
  ASSERT_TRUE(key->SetValue("x", 1, kTypeStr, "a"));
  db_->Run("UPDATE registry.vals SET type = -1");
  ValueBuffer buffer;
  ValueType type;
  std::string name;
  EXPECT_THROW(key->NextValue(buffer, &type, name), cppdb::cppdb_error);
}

// Stored paths are collapsed, and every parent gets a row of its own.
TEST_F(DBKeyTest, CreateStoresCollapsedPathsWithParents) {
  KeyPtr key = backend_->Create("r\\\\s", 0, false, "a\\\\\\b", true);
  ASSERT_TRUE(key->SetValue("x", 1, kTypeStr, "v"));
  EXPECT_EQ(Paths(), "r,r\\s,r\\s\\a,r\\s\\a\\b");
  EXPECT_EQ(key->GetName(), "b");
}

TEST_F(DBKeyTest, ReadOnlyKeyDefersExistenceCheck) {
  LogCapture log;
  KeyPtr key = ReadOnly("missing");
  ValueBuffer buffer;
  ValueType type;
  EXPECT_EQ(key->GetValue(buffer, &type, "v"), 0);
  EXPECT_EQ(key->GetName(), "missing");
  EXPECT_FALSE(key->IsValid());
  EXPECT_EQ(key->GetName(), "");
  EXPECT_FALSE(key->CheckValueExists("v"));
  EXPECT_EQ(log.Text(), "");

  ASSERT_TRUE(Writable("present")->SetValue("x", 1, kTypeStr, "v"));
  KeyPtr present = ReadOnly("PRESENT");
  EXPECT_TRUE(present->IsValid());
  EXPECT_TRUE(present->CheckValueExists("V"));
}

TEST_F(DBKeyTest, ReadOnlyRefusalsNameTheFullPath) {
  ASSERT_TRUE(Writable("a\\b")->SetValue("x", 1, kTypeStr, "v"));
  KeyPtr key = ReadOnly("a\\b");
  LogCapture log;
  EXPECT_FALSE(key->SetValue("y", 1, kTypeStr, nullptr));
  EXPECT_FALSE(key->RemoveValue("v"));
  EXPECT_FALSE(key->RemoveKey("c"));
  EXPECT_FALSE(key->RenameKey("c", "d"));
  EXPECT_FALSE(key->CopyKey("c", "c"));
  std::string text = log.Text();
  EXPECT_EQ(log.FirstLevel(), '1');
  EXPECT_CONTAINS(text, "SetValue '(null)' on read-only key 'a\\b'\n");
  EXPECT_CONTAINS(text, "RemoveValue 'v' on read-only key 'a\\b'\n");
  EXPECT_CONTAINS(text, "RemoveKey 'c' on read-only key 'a\\b'\n");
  EXPECT_CONTAINS(text, "RenameKey 'c'->'d' on read-only key 'a\\b'\n");
  EXPECT_CONTAINS(text, "CopyKey 'c'->'c' on read-only key 'a\\b'\n");
  EXPECT_EQ(Row("a\\b", "v"), "1:x");
}

TEST_F(DBKeyTest, RemoveKeyOfEmptyPathClearsTheKey) {
  ASSERT_TRUE(Writable("a")->SetValue("x", 1, kTypeStr, "v"));
  ASSERT_TRUE(Writable("a\\b")->SetValue("x", 1, kTypeStr, "v"));
  ASSERT_TRUE(Writable("ab")->SetValue("x", 1, kTypeStr, "v"));
  KeyPtr a = backend_->Create("", 0, false, "a", false);
  EXPECT_TRUE(a->RemoveKey(""));
  EXPECT_EQ(Paths(), "a,ab");
  EXPECT_EQ(a->CountValues(), 0u);
  EXPECT_EQ(Row("ab", "v"), "1:x");
  EXPECT_TRUE(Root()->RemoveKey(""));
  EXPECT_EQ(Paths(), "NULL");
  EXPECT_TRUE(Root()->RemoveKey("never\\there"));
}

TEST_F(DBKeyTest, SubtreeOperationsTreatLikeCharactersLiterally) {
  for (const char* path : {"a_b", "a_b\\c", "axb", "a%", "a%\\d", "a_bc"}) {
    ASSERT_TRUE(Writable(path)->SetValue("x", 1, kTypeStr, "v"));
  }
  KeyPtr root = Root();
  EXPECT_TRUE(root->CopyKey("a_b", "n%"));
  EXPECT_EQ(Paths(), "a%,a%\\d,a_b,a_b\\c,a_bc,axb,n%,n%\\c");
  EXPECT_TRUE(root->RenameKey("A%", "m_"));
  EXPECT_EQ(Paths(), "a_b,a_b\\c,a_bc,axb,m_,m_\\d,n%,n%\\c");
  EXPECT_TRUE(root->RemoveKey("a_b"));
  EXPECT_EQ(Paths(), "a_bc,axb,m_,m_\\d,n%,n%\\c");
}

// Equal and nested paths are decided without a statement: the missing
// source would otherwise make the server answer 1.
TEST_F(DBKeyTest, RenameAndCopyDecideEqualAndNestedPathsLocally) {
  KeyPtr root = Root();
  LogCapture log;
  EXPECT_TRUE(root->RenameKey("gone", "GONE"));
  EXPECT_TRUE(root->CopyKey("", ""));
  EXPECT_FALSE(root->RenameKey("a", "a\\b"));
  EXPECT_FALSE(root->CopyKey("a\\b", "A"));
  EXPECT_FALSE(root->RenameKey("x", "\\x"));
  EXPECT_EQ(log.Text(), "");
  ASSERT_TRUE(Writable("a")->SetValue("x", 1, kTypeStr, "v"));
  EXPECT_TRUE(root->CopyKey("a", "ab"));
  EXPECT_EQ(Paths(), "a,ab");
}

TEST_F(DBKeyTest, EnumeratesLazilyAndRestartsOnReset) {
  ASSERT_TRUE(Writable("k\\One")->SetValue("x", 1, kTypeStr, "v1"));
  ASSERT_TRUE(Writable("k\\two\\deep")->SetValue("x", 1, kTypeStr, "v2"));
  KeyPtr key = ReadOnly("k");
  std::string name;
  ASSERT_TRUE(key->NextSubKeyName(name));
  EXPECT_EQ(name, "One");
  // Rows were fetched at the first call: a later change is not seen ...
  ASSERT_TRUE(Writable("k\\three")->SetValue("x", 1, kTypeStr, "v"));
  ASSERT_TRUE(key->NextSubKeyName(name));
  EXPECT_EQ(name, "two");
  EXPECT_FALSE(key->NextSubKeyName(name));
  EXPECT_EQ(key->CountSubKeys(), 3u);
  // ... until the reset.
  key->ResetSubKeys();
  KeyPtr one = key->NextSubKey(true);
  ASSERT_NE(one, nullptr);
  EXPECT_EQ(one->GetName(), "One");
  EXPECT_TRUE(one->CheckValueExists("v1"));
  EXPECT_FALSE(one->SetValue("y", 1, kTypeStr, "v"));
  KeyPtr three = key->NextSubKey(false);
  ASSERT_NE(three, nullptr);
  EXPECT_TRUE(three->SetValue("y", 1, kTypeStr, "w"));
  EXPECT_EQ(Row("k\\three", "w"), "1:y");
  ASSERT_NE(key->NextSubKey(true), nullptr);
  EXPECT_EQ(key->NextSubKey(true), nullptr);
}

TEST_F(DBKeyTest, CloneOfUnusableKeyWorksOnItsPath) {
  KeyPtr refused = backend_->Create("", 0, false, "\\bad", true);
  ASSERT_FALSE(refused->IsValid());
  KeyPtr clone = refused->Clone();
  EXPECT_TRUE(clone->IsValid());
  EXPECT_EQ(clone->GetName(), "");
}

TEST_F(DBKeyTest, UnusableKeyEnumeratesNothing) {
  KeyPtr key = backend_->Create("", 0, true, "a\\", false);
  std::string value, name;
  ValueBuffer buffer;
  ValueType type;
  EXPECT_FALSE(key->NextString(value, name));
  EXPECT_EQ(key->NextValue(buffer, &type, name), 0);
  EXPECT_FALSE(key->NextSubKeyName(name));
  EXPECT_EQ(key->NextSubKey(true), nullptr);
  EXPECT_EQ(key->CountValues(), 0u);
  EXPECT_EQ(key->CountSubKeys(), 0u);
}

// Server functions answering NULL: the reads find nothing, the tests and
// counts fail with the text of cppdb::null_value_fetch.
TEST_F(DBKeyTest, NullRowsAreMissingValuesOrFailures) {
  ASSERT_TRUE(Writable("k")->SetValue("x", 1, kTypeStr, "v"));
  db_->Run(
      "CREATE OR REPLACE FUNCTION registry.get_value(p_path text, p_name text) "
      "RETURNS TABLE (type smallint, value text) LANGUAGE sql AS $$ SELECT 1::smallint, NULL $$");
  db_->Run("CREATE OR REPLACE FUNCTION registry.has_key(p_path text) RETURNS boolean "
           "LANGUAGE sql AS $$ SELECT NULL::boolean $$");
  db_->Run("CREATE OR REPLACE FUNCTION registry.has_value(p_path text, p_name text) RETURNS boolean "
           "LANGUAGE sql AS $$ SELECT NULL::boolean $$");
  db_->Run("CREATE OR REPLACE FUNCTION registry.get_values_cnt(p_path text) RETURNS integer "
           "LANGUAGE sql AS $$ SELECT NULL::integer $$");
  db_->Run("CREATE OR REPLACE FUNCTION registry.delete_value(p_path text, p_name text) RETURNS integer "
           "LANGUAGE sql AS $$ SELECT NULL::integer $$");
  db_->Run("CREATE OR REPLACE FUNCTION registry.get_subkeys(p_path text) RETURNS SETOF text "
           "LANGUAGE sql AS $$ SELECT NULL::text $$");
  KeyPtr key = Writable("k");
  LogCapture log;
  ValueBuffer buffer;
  ValueType type;
  EXPECT_EQ(key->GetValue(buffer, &type, "v"), 0);
  EXPECT_EQ(log.Text(), "");
  std::string name;
  EXPECT_FALSE(key->NextSubKeyName(name));
  EXPECT_FALSE(key->CheckValueExists("v"));
  EXPECT_EQ(key->CountValues(), 0u);
  EXPECT_FALSE(key->RemoveValue("v"));
  EXPECT_FALSE(backend_->Create("", 0, false, "k", false)->IsValid());
  std::string text = log.Text();
  for (const char* step : {"CheckValueExists", "CountValues", "RemoveValue", "CheckKeyExists"}) {
    EXPECT_CONTAINS(text, std::string("ReqistryKeyDB: ") + step +
                              " failed: cppdb::null_value_fetch attempt fetch null column\n");
  }
}

TEST_F(DBKeyTest, SubkeyRowWithTrailingBackslashHasEmptyName) {
  ASSERT_TRUE(Writable("k")->SetValue("x", 1, kTypeStr, "v"));
  db_->Run("CREATE OR REPLACE FUNCTION registry.get_subkeys(p_path text) RETURNS SETOF text "
           "LANGUAGE sql AS $$ VALUES ('k\\'), ('plain') $$");
  KeyPtr key = ReadOnly("k");
  std::string name = "unchanged";
  ASSERT_TRUE(key->NextSubKeyName(name));
  EXPECT_EQ(name, "");
  ASSERT_TRUE(key->NextSubKeyName(name));
  EXPECT_EQ(name, "plain");
  key->ResetSubKeys();
  KeyPtr odd = key->NextSubKey(true);
  ASSERT_NE(odd, nullptr);
  EXPECT_EQ(odd->GetName(), "");
  EXPECT_EQ(key->NextSubKey(true)->GetName(), "plain");
}

TEST_F(DBKeyTest, ServerFailureEndsEnumerationAndLogs) {
  ASSERT_TRUE(Writable("k\\a")->SetValue("x", 1, kTypeStr, "v"));
  KeyPtr key = ReadOnly("k");
  db_->Run("DROP TABLE registry.vals, registry.keys CASCADE");
  LogCapture log;
  std::string value, name;
  EXPECT_FALSE(key->NextString(value, name));
  EXPECT_FALSE(key->NextSubKeyName(name));
  EXPECT_FALSE(key->NextSubKeyName(name));
  std::string text = log.Text();
  EXPECT_CONTAINS(text, "ReqistryKeyDB: LoadValues failed: ");
  EXPECT_CONTAINS(text, "ReqistryKeyDB: ListSubkeys failed: ");
}

// A subkey whose session cannot be opened is skipped as null; the cursor
// goes on to the next row.
TEST_F(DBKeyTest, NextSubKeyWithoutConnectionYieldsNullAndMovesOn) {
  auto backend = std::make_shared<DBBackend>();
  ASSERT_TRUE(backend->Init(db_->SpecWithProperty("@pool_size", "0")));
  ASSERT_TRUE(Writable("k\\a")->SetValue("x", 1, kTypeStr, "v"));
  ASSERT_TRUE(Writable("k\\b")->SetValue("x", 1, kTypeStr, "v"));
  KeyPtr key = backend->Create("", 0, true, "k", false);
  EXPECT_EQ(key->CountSubKeys(), 2u);  // Opens nothing, fetches no rows.
  std::string admin = testing::PgSpec();
  std::string allow = "ALTER DATABASE " + db_->name() + " WITH ALLOW_CONNECTIONS ";
  {
    LogCapture log;
    testing::RunSql(admin, allow + "false");
    EXPECT_EQ(key->NextSubKey(true), nullptr);
    EXPECT_CONTAINS(log.Text(), "ReqistryKeyDB: OpenSession failed: ");
  }
  testing::RunSql(admin, allow + "true");
  KeyPtr b = key->NextSubKey(true);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(b->GetName(), "b");
  EXPECT_EQ(key->NextSubKey(true), nullptr);
}

TEST_F(DBKeyTest, KeyAndValueNamesIgnoreAsciiCaseOnly) {
  ASSERT_TRUE(Writable("Caf\xc3\x89")->SetValue("1", 1, kTypeStr, "N\xc3\x89"));
  ASSERT_TRUE(Writable("caf\xc3\xa9")->SetValue("2", 1, kTypeStr, "n\xc3\xa9"));
  ASSERT_TRUE(Writable("CAF\xc3\x89")->SetValue("3", 1, kTypeStr, "n\xc3\x89"));
  EXPECT_EQ(Paths(), "Caf\xc3\x89,caf\xc3\xa9");
  EXPECT_EQ(Row("caf\xc3\x89", "N\xc3\x89"), "1:3");
  EXPECT_EQ(Row("caf\xc3\xa9", "n\xc3\xa9"), "1:2");
}

// 64 connections store at once below parents that none of them finds: all
// succeed, and each level exists once.
TEST_F(DBKeyTest, ConcurrentAddValueCreatesSharedParentsOnce) {
  constexpr int kThreads = 64;
  std::vector<std::thread> threads;
  std::vector<char> stored(kThreads, 0);
  LogCapture log;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([this, i, &stored] {
      std::string path = "shared\\parent\\level\\k" + std::to_string(i % 8) + "\\leaf" +
                         std::to_string(i);
      KeyPtr key = backend_->Create("", 0, false, path, true);
      int32_t number = i;
      stored[i] = key->SetValue(&number, 4, kTypeI32, "n");
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(log.Text(), "");
  for (int i = 0; i < kThreads; ++i) EXPECT_TRUE(stored[i]) << i;
  EXPECT_EQ(db_->Query("SELECT count(*) FROM registry.keys"), std::to_string(1 + 3 + 8 + 64));
  EXPECT_EQ(db_->Query("SELECT count(*) FROM registry.vals"), std::to_string(kThreads));
  EXPECT_EQ(ReadOnly("shared\\parent\\level")->CountSubKeys(), 8u);
  EXPECT_EQ(ReadOnly("shared\\parent\\level\\k3")->CountSubKeys(), 8u);
}

}  // namespace
}  // namespace regkey
