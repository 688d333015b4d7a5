// Helpers of the tests that run against a live PostgreSQL server: the server
// named by HIVECTL_PG_SPEC (scripts/test.sh starts one), a scratch database
// per test cloned from the template database HIVECTL_PG_TEMPLATE (default
// "registry_template", holding the registry schema), and a capture of the
// diagnostic log.
#ifndef HIVECTL_REGISTRY_DB_TEST_UTIL_H_
#define HIVECTL_REGISTRY_DB_TEST_UTIL_H_

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <cppdb/frontend.h>
#include <cppdb/utils.h>

#include "support/log.h"

namespace regkey {
namespace testing {

// The backend specification of the test server; null when none is configured.
inline const char* PgSpec() {
  const char* spec = std::getenv("HIVECTL_PG_SPEC");
  return spec != nullptr && *spec != '\0' ? spec : nullptr;
}

#define SKIP_WITHOUT_PG_SERVER()                                                    \
  do {                                                                              \
    if (::regkey::testing::PgSpec() == nullptr)                                     \
      GTEST_SKIP() << "HIVECTL_PG_SPEC names no PostgreSQL server; scripts/test.sh " \
                      "starts one and sets it";                                     \
  } while (0)

// `spec` with its property `name` set to `value`, each value quoted.
inline std::string SpecWith(const std::string& spec, const std::string& name,
                            const std::string& value) {
  cppdb::connection_info info(spec);
  info.properties[name] = value;
  std::string text = info.driver + ":";
  for (const auto& [key, each] : info.properties) {
    text += key + "='";
    for (char c : each) text += c == '\'' ? std::string("''") : std::string(1, c);
    text += "';";
  }
  return text;
}

// Runs one statement that returns no rows.
inline void RunSql(const std::string& spec, const std::string& statement) {
  cppdb::session session(spec);
  session.create_statement(statement).exec();
}

// The first column of the first row of a query, "NULL" for a null, "" for
// no row.
inline std::string QuerySql(const std::string& spec, const std::string& statement) {
  cppdb::session session(spec);
  cppdb::result row = session.create_statement(statement).query();
  if (!row.next()) return "";
  std::string text;
  return row.fetch(0, text) ? text : "NULL";
}

inline ::testing::AssertionResult Contains(const char* text_expr, const char* part_expr,
                                          const std::string& text, const std::string& part) {
  if (text.find(part) != std::string::npos) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << text_expr << " does not contain " << part_expr
                                       << "\n  text: " << text << "\n  part: " << part;
}
#define EXPECT_CONTAINS(text, part) \
  EXPECT_PRED_FORMAT2(::regkey::testing::Contains, text, part)
#define EXPECT_NOT_CONTAINS(text, part) \
  EXPECT_EQ(std::string(text).find(part), std::string::npos) << "text: " << (text)

// A database of its own for one test, dropped at the end. `from_template`
// false gives an empty database without the registry schema.
class ScratchDatabase {
 public:
  explicit ScratchDatabase(bool from_template = true) {
    static std::atomic<int> counter{0};
    name_ = "hivectl_scratch_" + std::to_string(getpid()) + "_" + std::to_string(counter++);
    const char* template_name = std::getenv("HIVECTL_PG_TEMPLATE");
    std::string source = from_template ? (template_name ? template_name : "registry_template")
                                       : "template0";
    RunSql(PgSpec(), "CREATE DATABASE " + name_ + " TEMPLATE " + source);
    spec_ = SpecWith(PgSpec(), "dbname", name_);
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
  // Backend specification of this database.
  const std::string& spec() const { return spec_; }
  // The same with one more property.
  std::string SpecWithProperty(const std::string& property, const std::string& value) const {
    return SpecWith(spec_, property, value);
  }
  void Run(const std::string& statement) const { RunSql(spec_, statement); }
  std::string Query(const std::string& statement) const { return QuerySql(spec_, statement); }

 private:
  std::string name_;
  std::string spec_;
};

// Points the diagnostic log at a temporary file for the life of the object.
class LogCapture {
 public:
  LogCapture()
      : saved_file_(LogGetFile()), saved_level_(LogGetLevel()), saved_modules_(LogGetModules()) {
    file_ = std::tmpfile();
    LogSetFile(file_);
    LogSetup(4, kLogModuleOther);
  }
  ~LogCapture() {
    LogSetFile(saved_file_);
    LogSetup(saved_level_, saved_modules_);
    std::fclose(file_);
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  // Everything written so far, headers included.
  std::string Text() {
    std::fflush(file_);
    std::rewind(file_);
    std::string all;
    char chunk[4096];
    size_t got;
    while ((got = std::fread(chunk, 1, sizeof chunk, file_)) > 0) all.append(chunk, got);
    return all;
  }
  // The level digit of the first line, or '\0'.
  char FirstLevel() {
    std::fflush(file_);
    std::rewind(file_);
    char header[45];
    if (std::fread(header, 1, sizeof header, file_) != sizeof header) return '\0';
    return header[25];
  }

 private:
  FILE* saved_file_;
  uint32_t saved_level_;
  uint32_t saved_modules_;
  FILE* file_;
};

}  // namespace testing
}  // namespace regkey

#endif  // HIVECTL_REGISTRY_DB_TEST_UTIL_H_
