// The backend of a registry in a PostgreSQL database, reached through cppdb
// and the server functions of schema "registry" (sql/registry.sql).
//
// The backend owns one connection pool; every DBKey holds a session, and so
// one connection, of its own for its whole life. cppdb's PostgreSQL driver is
// linked statically and installed under the name "postgresql" during static
// initialisation of this module; no loadable driver is ever searched for.
//
// Thread safety: Init runs before any other thread uses the backend; Create,
// ConnectSession and OpenSession may then be called from several threads at
// once (cppdb's pool locks inside itself).
#ifndef HIVECTL_REGISTRY_DB_BACKEND_H_
#define HIVECTL_REGISTRY_DB_BACKEND_H_

#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include <cppdb/backend.h>
#include <cppdb/frontend.h>
#include <cppdb/pool.h>
#include <cppdb/utils.h>

#include "registry/backend.h"

namespace regkey {

class DBBackend final : public Backend, public std::enable_shared_from_this<DBBackend> {
 public:
  // REQUIRES: the object is owned by a std::shared_ptr (keys share it).
  KeyPtr Create(std::string_view root, int reserved, bool read_only, std::string_view path,
                bool create) override;
  void Dump() override {}
  // Parses the backend specification as a cppdb connection string, creates the pool
  // (with @pool_max_idle=15 unless given), connects once and prepares the
  // schema's statements as a check. False, with a level-0 log line, on any
  // failure; the backend must then be dropped.
  bool Init(std::string_view spec) override;

  // A session on a pooled connection; throws cppdb::cppdb_error, also when
  // Init has not created the pool.
  cppdb::session ConnectSession();
  // ConnectSession, with a failure logged at level 4 and answered by a
  // closed session.
  cppdb::session OpenSession();

 private:
  cppdb::ref_ptr<cppdb::pool> pool_;  // Written only by Init.
};

// Writes "ReqistryKeyDB: <step> failed: " and the error's text to the
// diagnostic log at `level` under kLogModuleOther.
void LogDBFailure(uint32_t level, const char* step, const std::exception& error);

// False for a connection string on which cppdb 0.3.1's parser would never
// return: a quoted value followed by anything but blanks and a ";".
bool ConnectionStringTerminates(std::string_view spec);

// The parsed specification as the pool gets it: @pool_max_idle is 15 unless
// given, fallback_application_name the program's name unless given. Throws cppdb::cppdb_error for a malformed string, also for one
// that ConnectionStringTerminates refuses.
cppdb::connection_info PoolConnectionInfo(std::string_view spec);

// The SQL texts of the server functions, constant after static
// initialisation. cppdb caches prepared statements per connection under
// their text.
namespace sql {
extern const std::string kGetValue;
extern const std::string kAddValue;
extern const std::string kHasValue;
extern const std::string kDeleteValue;
extern const std::string kDeleteKey;
extern const std::string kRenameKey;
extern const std::string kCopyValues;
extern const std::string kGetValuesCount;
extern const std::string kGetValues;
extern const std::string kCountSubkeys;
extern const std::string kGetSubkeys;
extern const std::string kHasKey;
extern const std::string kClientMessages;
}  // namespace sql

}  // namespace regkey

#endif  // HIVECTL_REGISTRY_DB_BACKEND_H_
