#include "registry/db_backend.h"

#include <cerrno>

#include <cppdb/backend.h>
#include <cppdb/driver_manager.h>
#include <cppdb/errors.h>
#include <cppdb/utils.h>

#include "registry/db_key.h"
#include "support/ascii.h"
#include "support/log.h"

// Entry point of the statically linked PostgreSQL driver of cppdb.
extern "C" cppdb::backend::connection* cppdb_postgresql_get_connection(
    cppdb::connection_info const& info);

namespace regkey {

namespace sql {
const std::string kGetValue = "SELECT * FROM registry.get_value(?,?);";
const std::string kAddValue = "SELECT registry.add_value(?,?,?,?);";
const std::string kHasValue = "SELECT registry.has_value(?,?);";
const std::string kDeleteValue = "SELECT registry.delete_value(?,?);";
const std::string kDeleteKey = "SELECT registry.delete_key(?);";
const std::string kRenameKey = "SELECT registry.rename_key(?,?);";
const std::string kCopyValues = "SELECT registry.copy_values(?,?);";
const std::string kGetValuesCount = "SELECT registry.get_values_cnt(?);";
const std::string kGetValues = "SELECT * FROM registry.get_values(?);";
const std::string kCountSubkeys = "SELECT count(*) FROM registry.get_subkeys(?);";
const std::string kGetSubkeys = "SELECT registry.get_subkeys(?);";
const std::string kHasKey = "SELECT registry.has_key(?);";
const std::string kClientMessages = "SET client_min_messages = error;";
}  // namespace sql

namespace {

// Installs the driver before main() runs. Living in this translation unit,
// which the program needs for DBBackend anyway, it is never dropped by the
// linker.
struct StaticDriverInstaller {
  StaticDriverInstaller() {
    cppdb::driver_manager& manager = cppdb::driver_manager::instance();
    manager.install_driver(
        "postgresql", new cppdb::backend::static_driver(cppdb_postgresql_get_connection));
    manager.use_default_search_path(false);
  }
};
const StaticDriverInstaller static_driver_installer;

// Runs once per physical connection, not again when the pool hands it out
// anew.
void SetClientMessages(cppdb::session& session) {
  session.create_statement(sql::kClientMessages).exec();
}

// The statements the client prepares at start-up to prove the schema is
// there, in this order. copy_values is not among them: a server without it
// still starts, and only copying fails.
const std::string* const kSchemaCheck[] = {
    &sql::kGetValue,    &sql::kAddValue,       &sql::kHasValue,  &sql::kDeleteValue,
    &sql::kDeleteKey,   &sql::kRenameKey,      &sql::kGetValuesCount, &sql::kGetValues,
    &sql::kCountSubkeys, &sql::kGetSubkeys,    &sql::kHasKey,
};

bool CheckSchema(cppdb::session& session) {
  try {
    for (const std::string* text : kSchemaCheck) session.prepare(*text);
    return true;
  } catch (const cppdb::cppdb_error& error) {
    LogDBFailure(0, "CheckSchema", error);
    return false;
  }
}

// The blanks cppdb's connection-string parser skips: those of the C locale
// but the vertical tab.
bool IsConnectionBlank(char c) { return IsBlank(c) && c != '\v'; }

}  // namespace

void LogDBFailure(uint32_t level, const char* step, const std::exception& error) {
  if (!LogEnabled(level, kLogModuleOther)) return;
  LogLine line(level, kLogModuleOther);
  line << "ReqistryKeyDB: " << step << " failed: " << error.what();
}

// Walks the entries "key=value;" as cppdb's parser does. Everything but a
// quoted value followed by stray text is left for cppdb to accept or reject.
bool ConnectionStringTerminates(std::string_view spec) {
  size_t pos = spec.find(':');
  if (pos == std::string_view::npos) return true;
  ++pos;
  while (pos < spec.size()) {
    size_t equals = spec.find('=', pos);
    if (equals == std::string_view::npos) return true;
    pos = equals + 1;
    while (pos < spec.size() && IsConnectionBlank(spec[pos])) ++pos;
    if (pos < spec.size() && spec[pos] == '\'') {
      // A quote inside a quoted value is written twice.
      for (++pos;; pos += 2) {
        pos = spec.find('\'', pos);
        if (pos == std::string_view::npos) return true;
        if (pos + 1 >= spec.size() || spec[pos + 1] != '\'') break;
      }
      ++pos;
      while (pos < spec.size() && IsConnectionBlank(spec[pos])) ++pos;
      if (pos < spec.size() && spec[pos] != ';') return false;
    } else {
      pos = spec.find(';', pos);
      if (pos == std::string_view::npos) return true;
    }
    ++pos;
  }
  return true;
}

cppdb::connection_info PoolConnectionInfo(std::string_view spec) {
  if (!ConnectionStringTerminates(spec)) {
    throw cppdb::cppdb_error("Invalid connection string - text after a quoted value");
  }
  cppdb::connection_info info{std::string(spec)};
  if (!info.has("@pool_max_idle")) info.properties["@pool_max_idle"] = "15";
  // libpq takes this name only when neither the backend specification nor PGAPPNAME
  // names the application, as libpq's own tools do.
  if (!info.has("fallback_application_name") && *program_invocation_short_name != '\0') {
    info.properties["fallback_application_name"] = program_invocation_short_name;
  }
  return info;
}

KeyPtr DBBackend::Create(std::string_view root, int /*reserved*/, bool read_only,
                         std::string_view path, bool create) {
  return KeyPtr(new DBKey(shared_from_this(), root, path, read_only, create));
}

bool DBBackend::Init(std::string_view spec) {
  try {
    pool_ = cppdb::pool::create(PoolConnectionInfo(spec));
    cppdb::session session = ConnectSession();
    if (!session.is_open()) return false;
    return CheckSchema(session);
  } catch (const cppdb::cppdb_error& error) {
    LogDBFailure(0, "Init", error);
    return false;
  }
}

cppdb::session DBBackend::ConnectSession() {
  if (!pool_) throw cppdb::cppdb_error("no connection pool");
  return cppdb::session(pool_->open(), &SetClientMessages);
}

cppdb::session DBBackend::OpenSession() {
  try {
    return ConnectSession();
  } catch (const cppdb::cppdb_error& error) {
    LogDBFailure(4, "OpenSession", error);
    return cppdb::session();
  }
}

}  // namespace regkey
