// An Environment for unit tests: string streams instead of the standard
// streams, input files from a map, and every output file refused.
#ifndef HIVECTL_FRONTEND_TEST_ENVIRONMENT_H_
#define HIVECTL_FRONTEND_TEST_ENVIRONMENT_H_

#include <cerrno>
#include <map>
#include <memory>
#include <sstream>
#include <string>

#include "frontend/environment.h"

class TestEnvironment final : public Environment {
 public:
  TestEnvironment() : Environment() { output = &out, error = &err, input = &in; }
  std::unique_ptr<std::istream> OpenInputFile(const char* path, std::error_code& code) override {
    auto found = files.find(path);
    if (found != files.end()) return std::make_unique<std::istringstream>(found->second);
    code = std::error_code(ENOENT, std::system_category());
    return nullptr;
  }
  std::unique_ptr<std::ostream> OpenOutputFile(const char*, std::error_code& code) override {
    code = std::error_code(EACCES, std::system_category());
    return nullptr;
  }
  std::ostringstream out, err;
  std::istringstream in;
  std::map<std::string, std::string> files;
};

#endif  // HIVECTL_FRONTEND_TEST_ENVIRONMENT_H_
