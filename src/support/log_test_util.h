// Points the diagnostic log at a temporary file for one test.
#ifndef HIVECTL_SUPPORT_LOG_TEST_UTIL_H_
#define HIVECTL_SUPPORT_LOG_TEST_UTIL_H_

#include <cstdio>
#include <string>
#include <vector>

#include "support/log.h"

class LogCapture {
 public:
  explicit LogCapture(uint32_t level = 4)
      : file_(std::tmpfile()), old_file_(LogGetFile()), old_level_(LogGetLevel()),
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
    std::fflush(file_);
    std::rewind(file_);
    std::string all;
    char chunk[4096];
    for (size_t got; (got = std::fread(chunk, 1, sizeof chunk, file_)) > 0;) all.append(chunk, got);
    return all;
  }
  // The lines without their 45-byte headers and line feeds.
  std::vector<std::string> Texts() {
    std::vector<std::string> texts;
    const std::string all = Text();
    for (size_t start = 0, end; (end = all.find('\n', start)) != std::string::npos;
         start = end + 1) {
      texts.push_back(end - start >= 45 ? all.substr(start + 45, end - start - 45) : "SHORT");
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
