#include "registry/db_backend.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "registry/db_key.h"
#include "registry/db_test_util.h"

namespace regkey {
namespace {

using testing::LogCapture;
using testing::ScratchDatabase;

// Stray text after a quoted value would make the pool wait forever; the
// other faults are left to cppdb, which rejects them itself.
TEST(ConnectionStringTest, RefusesOnlyStrayTextAfterQuotedValue) {
  for (const char* spec : {"postgresql:password='abc'x;", "postgresql:a=' '  x",
                           "postgresql:a=1;b='x''y' z;c=2;", "postgresql:a='x'\v;",
                           "postgresql:a='x';b='y'''q"}) {
    EXPECT_FALSE(ConnectionStringTerminates(spec)) << spec;
  }
  for (const char* spec : {"postgresql:", "postgresql:password='a;b''c' ;user=u",
                           "postgresql:host=/tmp;port=5432;dbname=r;user=u;",
                           "postgresql:a='x'\t\r\n\f;b=1", "postgresql:a = b'c;d=1",
                           "postgresql:options='-c synchronous_commit=off'",
                           "postgresql:a='unterminated", "postgresql:novalue"}) {
    EXPECT_TRUE(ConnectionStringTerminates(spec)) << spec;
  }
}

TEST(PoolConnectionInfoTest, IdleLimitDefaultsTo15) {
  cppdb::connection_info info = PoolConnectionInfo("postgresql:dbname=r;user=u;");
  EXPECT_EQ(info.driver, "postgresql");
  EXPECT_EQ(info.get("@pool_max_idle"), "15");
  EXPECT_EQ(info.get("dbname"), "r");
  EXPECT_EQ(PoolConnectionInfo("postgresql:@pool_max_idle=60;").get("@pool_max_idle"), "60");
  EXPECT_THROW(PoolConnectionInfo("postgresql:password='abc'x;"), cppdb::cppdb_error);
  EXPECT_THROW(PoolConnectionInfo("postgresql:a=1;a=2;"), cppdb::cppdb_error);
}

// A specification the pool would wait on forever fails at once, like an
// unreachable server; both log at level 0.
TEST(DBBackendTest, BadSpecificationOrUnreachableServerFailsInit) {
  for (const char* spec : {"postgresql:password='abc'x;",
                           "postgresql:host=/nonexistent/socket/dir;dbname=x;"}) {
    LogCapture log;
    auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(MakeBackend(spec), nullptr) << spec;
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5)) << spec;
    EXPECT_CONTAINS(log.Text(), "ReqistryKeyDB: Init failed: ");
    EXPECT_EQ(log.FirstLevel(), '0') << spec;
  }
}

TEST(DBBackendTest, KeyFromUninitialisedBackendIsUnusable) {
  LogCapture log;
  auto backend = std::make_shared<DBBackend>();
  KeyPtr key = backend->Create("", 0, false, "a", true);
  EXPECT_FALSE(key->IsValid());
  EXPECT_FALSE(key->SetValue("x", 2, kTypeStr, "v"));
  EXPECT_CONTAINS(log.Text(), "ReqistryKeyDB: OpenSession failed: ");
}

TEST(DBBackendTest, InitSucceedsOnRegistry) {
  SKIP_WITHOUT_PG_SERVER();
  ScratchDatabase db;
  LogCapture log;
  std::shared_ptr<Backend> backend = MakeBackend(db.spec());
  ASSERT_NE(backend, nullptr);
  EXPECT_NE(dynamic_cast<DBBackend*>(backend.get()), nullptr);
  EXPECT_EQ(log.Text(), "");
}

TEST(DBBackendTest, DatabaseWithoutSchemaFailsCheckSchema) {
  SKIP_WITHOUT_PG_SERVER();
  ScratchDatabase db(/*from_template=*/false);
  LogCapture log;
  EXPECT_EQ(MakeBackend(db.spec()), nullptr);
  std::string text = log.Text();
  EXPECT_CONTAINS(text, "ReqistryKeyDB: CheckSchema failed: ");
  EXPECT_CONTAINS(text, "registry.get_value");
  EXPECT_NOT_CONTAINS(text, "Init failed");
  EXPECT_EQ(log.FirstLevel(), '0');
}

TEST(DBBackendTest, SchemaCheckStopsAtFirstMissingFunctionInOrder) {
  SKIP_WITHOUT_PG_SERVER();
  ScratchDatabase db;
  db.Run("DROP FUNCTION registry.rename_key(text, text)");
  db.Run("DROP FUNCTION registry.has_key(text)");
  LogCapture log;
  EXPECT_EQ(MakeBackend(db.spec()), nullptr);
  std::string text = log.Text();
  EXPECT_CONTAINS(text, "registry.rename_key");
  EXPECT_NOT_CONTAINS(text, "registry.has_key");
}

TEST(DBBackendTest, MissingCopyValuesFailsOnlyCopyKey) {
  SKIP_WITHOUT_PG_SERVER();
  ScratchDatabase db;
  db.Run("DROP FUNCTION registry.copy_values(text, text)");
  LogCapture log;
  std::shared_ptr<Backend> backend = MakeBackend(db.spec());
  ASSERT_NE(backend, nullptr);
  KeyPtr root = backend->Create("", 0, false, "", false);
  ASSERT_TRUE(root->IsValid());
  KeyPtr a = backend->Create("", 0, false, "a", true);
  ASSERT_TRUE(a->SetValue("x", 2, kTypeStr, "v"));
  EXPECT_TRUE(root->RenameKey("a", "b"));
  EXPECT_EQ(log.Text(), "");
  EXPECT_FALSE(root->CopyKey("b", "c"));
  std::string text = log.Text();
  EXPECT_CONTAINS(text, "ReqistryKeyDB: CopyKey failed: ");
  EXPECT_CONTAINS(text, "copy_values");
  EXPECT_EQ(log.FirstLevel(), '4');
}

// The one-time callback runs on a new physical connection only: a setting
// changed on a pooled connection survives its reuse.
TEST(DBBackendTest, PooledConnectionKeepsItsSessionSettings) {
  SKIP_WITHOUT_PG_SERVER();
  ScratchDatabase db;
  auto backend = std::make_shared<DBBackend>();
  ASSERT_TRUE(backend->Init(db.spec()));
  std::string first_pid;
  {
    cppdb::session session = backend->ConnectSession();
    cppdb::result row = session.create_statement("SHOW client_min_messages").query();
    ASSERT_TRUE(row.next());
    EXPECT_EQ(row.get<std::string>(0), "error");
    session.create_statement("SET client_min_messages = notice").exec();
    row = session.create_statement("SELECT pg_backend_pid()").query();
    ASSERT_TRUE(row.next());
    first_pid = row.get<std::string>(0);
  }
  cppdb::session session = backend->ConnectSession();
  cppdb::result row = session.create_statement("SELECT pg_backend_pid()").query();
  ASSERT_TRUE(row.next());
  EXPECT_EQ(row.get<std::string>(0), first_pid);
  row = session.create_statement("SHOW client_min_messages").query();
  ASSERT_TRUE(row.next());
  EXPECT_EQ(row.get<std::string>(0), "notice");
}

// The connection that Init checked the schema on is the first key's.
TEST(DBBackendTest, FirstKeyReusesInitConnection) {
  SKIP_WITHOUT_PG_SERVER();
  ScratchDatabase db;
  auto backend = std::make_shared<DBBackend>();
  ASSERT_TRUE(backend->Init(db.spec()));
  std::string count = "SELECT count(*) FROM pg_stat_activity WHERE datname = '" + db.name() + "'";
  EXPECT_EQ(testing::QuerySql(testing::PgSpec(), count), "1");
  KeyPtr key = backend->Create("", 0, false, "a", true);
  ASSERT_TRUE(key->SetValue("x", 2, kTypeStr, "v"));
  EXPECT_EQ(testing::QuerySql(testing::PgSpec(), count), "1");
}

TEST(DBBackendTest, ServerGoneAfterInitMakesKeysUnusable) {
  SKIP_WITHOUT_PG_SERVER();
  ScratchDatabase db;
  auto backend = std::make_shared<DBBackend>();
  ASSERT_TRUE(backend->Init(db.SpecWithProperty("@pool_size", "0")));
  testing::RunSql(testing::PgSpec(),
                  "ALTER DATABASE " + db.name() + " WITH ALLOW_CONNECTIONS false");
  LogCapture log;
  KeyPtr key = backend->Create("", 0, false, "a", true);
  EXPECT_FALSE(key->IsValid());
  EXPECT_FALSE(key->SetValue("x", 2, kTypeStr, "v"));
  EXPECT_CONTAINS(log.Text(), "ReqistryKeyDB: OpenSession failed: ");
  EXPECT_EQ(log.FirstLevel(), '4');
}

// cppdb hands out a pooled connection whose server process is gone; the one
// operation on it fails, cppdb discards it, and the next key connects anew.
TEST(DBBackendTest, BrokenPooledConnectionFailsOnce) {
  SKIP_WITHOUT_PG_SERVER();
  ScratchDatabase db;
  auto backend = std::make_shared<DBBackend>();
  ASSERT_TRUE(backend->Init(db.spec()));
  testing::QuerySql(testing::PgSpec(),
                    "SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE datname = '" +
                        db.name() + "'");
  LogCapture log;
  {
    KeyPtr key = backend->Create("", 0, false, "a", true);
    EXPECT_FALSE(key->SetValue("x", 2, kTypeStr, "v"));
  }
  EXPECT_CONTAINS(log.Text(), "ReqistryKeyDB: StoreValue failed: ");
  KeyPtr key = backend->Create("", 0, false, "a", true);
  EXPECT_TRUE(key->SetValue("x", 2, kTypeStr, "v"));
}

}  // namespace
}  // namespace regkey
