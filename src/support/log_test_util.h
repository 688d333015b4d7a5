// Points the diagnostic log at a temporary file for one test.
#ifndef HIVECTL_SUPPORT_LOG_TEST_UTIL_H_
#define HIVECTL_SUPPORT_LOG_TEST_UTIL_H_

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "support/log.h"

class LogCapture {
 public:
  // Takes `file` over: it is closed at the end.
  explicit LogCapture(uint32_t level = 4, FILE* file = std::tmpfile())
      : file_(file), old_file_(LogGetFile()), old_level_(LogGetLevel()),
        old_modules_(LogGetModules()) {
    LogSetFile(file_);
    LogSetup(level, kLogModuleOther);
  }
  ~LogCapture() {
    LogSetFile(old_file_);
    LogSetup(old_level_, old_modules_);
    std::fclose(file_);
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  // Everything written so far, headers included.
  std::string Text() {
    std::string all(std::ftell(file_), '\0');  // the whole file: the log only appends
    std::rewind(file_);
    all.resize(std::fread(all.data(), 1, all.size(), file_));
    return all;
  }
  // The lines without their 45-byte headers and line feeds.
  std::vector<std::string> Texts() {
    std::vector<std::string> texts;
    std::istringstream lines(Text());
    for (std::string line; std::getline(lines, line);) {
      texts.push_back(line.size() >= 45 ? line.substr(45) : "SHORT");
    }
    return texts;
  }

 private:
  FILE* file_;
  FILE* old_file_;
  uint32_t old_level_;
  uint32_t old_modules_;
};

#endif  // HIVECTL_SUPPORT_LOG_TEST_UTIL_H_
