// Helpers of the tests that run against the PostgreSQL server in HIVECTL_PG_SPEC.
#ifndef HIVECTL_REGISTRY_DB_TEST_UTIL_H_
#define HIVECTL_REGISTRY_DB_TEST_UTIL_H_

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>

#include <cppdb/frontend.h>
#include <cppdb/utils.h>

namespace regkey {
namespace testing {

// The backend specification of the test server; null when none is configured.
inline const char* PgSpec() {
  const char* spec = std::getenv("HIVECTL_PG_SPEC");
  return spec != nullptr && *spec != '\0' ? spec : nullptr;
}

inline void RunSql(const std::string& spec, const std::string& statement) {
  cppdb::session(spec).create_statement(statement).exec();
}

// The first column of the first row of a query, "NULL" for a null, "" for no row.
inline std::string QuerySql(const std::string& spec, const std::string& statement) {
  cppdb::session session(spec);
  cppdb::result row = session.create_statement(statement).query();
  std::string text;
  return !row.next() ? "" : row.fetch(0, text) ? text : "NULL";
}

// A database of its own for one test, cloned from HIVECTL_PG_TEMPLATE, dropped at the end.
class ScratchDatabase {
 public:
  ScratchDatabase() {
    static std::atomic<int> counter{0};
    name_ = "hivectl_scratch_" + std::to_string(getpid()) + "_" + std::to_string(counter++);
    const char* source = std::getenv("HIVECTL_PG_TEMPLATE");
    RunSql(PgSpec(), "CREATE DATABASE " + name_ + " TEMPLATE " +
                         (source != nullptr ? source : "registry_template"));
    cppdb::connection_info info(PgSpec());
    info.properties["dbname"] = name_;
    spec_ = info.driver + ":";
    for (const auto& [key, value] : info.properties) spec_ += key + "=" + value + ";";
  }
  ~ScratchDatabase() {
    try {
      RunSql(PgSpec(), "DROP DATABASE IF EXISTS " + name_ + " WITH (FORCE)");
    } catch (const std::exception& error) {
      ADD_FAILURE() << "dropping " << name_ << ": " << error.what();
    }
  }
  ScratchDatabase(const ScratchDatabase&) = delete;
  ScratchDatabase& operator=(const ScratchDatabase&) = delete;

  const std::string& name() const { return name_; }
  const std::string& spec() const { return spec_; }  // backend specification
  void Run(const std::string& statement) const { RunSql(spec_, statement); }
  std::string Query(const std::string& statement) const { return QuerySql(spec_, statement); }

 private:
  std::string name_;
  std::string spec_;
};

}  // namespace testing
}  // namespace regkey

#endif  // HIVECTL_REGISTRY_DB_TEST_UTIL_H_
