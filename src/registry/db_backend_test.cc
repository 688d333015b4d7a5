#include "registry/db_backend.h"

#include <gtest/gtest.h>

#include <string>

#include "registry/db_test_util.h"

namespace regkey {
namespace {

TEST(PoolConnectionInfoTest, IdleLimitDefaultsTo15) {
  EXPECT_EQ(PoolConnectionInfo("postgresql:dbname=r;").get("@pool_max_idle"), "15");
  EXPECT_EQ(PoolConnectionInfo("postgresql:@pool_max_idle=60;").get("@pool_max_idle"), "60");
}

// Init leaves its connection in the pool for the first key, and the
// one-time setting of a new connection is not made again on reuse.
TEST(DBBackendTest, PoolReusesInitConnectionWithItsSettings) {
  SKIP_WITHOUT_PG_SERVER();
  testing::ScratchDatabase db;
  DBBackend backend;
  ASSERT_TRUE(backend.Init(db.spec()));
  const std::string count =
      "SELECT count(*) FROM pg_stat_activity WHERE datname = '" + db.name() + "'";
  EXPECT_EQ(testing::QuerySql(testing::PgSpec(), count), "1");
  auto query = [](cppdb::session& session, const char* sql) {
    cppdb::result row = session.create_statement(sql).query();
    return row.next() ? row.get<std::string>(0) : std::string();
  };
  std::string first_pid;
  {
    cppdb::session session = backend.ConnectSession();
    EXPECT_EQ(query(session, "SHOW client_min_messages"), "error");
    session.create_statement("SET client_min_messages = notice").exec();
    first_pid = query(session, "SELECT pg_backend_pid()");
  }
  cppdb::session session = backend.ConnectSession();
  EXPECT_EQ(query(session, "SELECT pg_backend_pid()"), first_pid);
  EXPECT_EQ(query(session, "SHOW client_min_messages"), "notice");
  EXPECT_EQ(testing::QuerySql(testing::PgSpec(), count), "1");
}

}  // namespace
}  // namespace regkey
