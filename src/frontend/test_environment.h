// An Environment for unit tests that records what commands write: string
// streams instead of the standard streams, files read from a map, and every
// output file refused.
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
  TestEnvironment() {
    output = &out;
    error = &err;
    input = &in;
  }
  std::unique_ptr<std::istream> OpenInputFile(const char* path,
                                              std::error_code& error_code) override {
    auto found = files.find(path);
    if (found == files.end()) {
      error_code = std::error_code(ENOENT, std::system_category());
      return nullptr;
    }
    return std::make_unique<std::istringstream>(found->second);
  }
  std::unique_ptr<std::ostream> OpenOutputFile(const char*, std::error_code& error_code) override {
    error_code = std::error_code(EACCES, std::system_category());
    return nullptr;
  }

  std::ostringstream out;
  std::ostringstream err;
  std::istringstream in;
  std::map<std::string, std::string> files;
};

#endif  // HIVECTL_FRONTEND_TEST_ENVIRONMENT_H_
