// The diagnostic log: lines with a 45-byte header of time, level, thread and
// module, each written to the log file in one fwrite under log_mutex, so
// lines of concurrent threads never interleave.
//
// Usual form:
//   if (LogEnabled(4, kLogModuleOther)) {
//     LogLine line(4, kLogModuleOther);
//     line << "text " << more;
//   }
// A filtered line costs one test; a written line allocates nothing once the
// thread holds a cached line object.
//
// Thread safety: any thread may log at any time. The settings are plain
// variables, written before threads start.
#ifndef HIVECTL_SUPPORT_LOG_H_
#define HIVECTL_SUPPORT_LOG_H_

#include <cstdint>
#include <cstdio>
#include <ostream>

#include <boost/system/error_code.hpp>

// The one module this tool logs under ("  OTHER").
constexpr uint32_t kLogModuleOther = 0x10000000;

void LogSetup(uint32_t level, uint32_t modules);
// Null means libc's stdout.
void LogSetFile(FILE* file);
FILE* LogGetFile();
uint32_t LogGetLevel();
uint32_t LogGetModules();
// For code that writes to the log file itself; a failed lock throws
// std::system_error.
void LogLock();
void LogUnlock();
// True for level 0; otherwise level <= log level and a common module bit.
bool LogEnabled(uint32_t level, uint32_t module);

// Seven-character label of a module value ("   NONE" for 0, "UNKNOWN" for
// anything not a single known bit).
const char* LogModuleLabel(uint32_t module);

// Writes a boost error code with its symbolic errno name where known:
// "(ENOENT) No such file or directory".
void WriteErrorCode(std::ostream& stream, const boost::system::error_code& code);

struct LogLineObject;

class LogLine {
 public:
  LogLine(uint32_t level, uint32_t module);
  // Writes the line. A failed lock of log_mutex throws std::system_error.
  ~LogLine() noexcept(false);
  LogLine(const LogLine&) = delete;
  LogLine& operator=(const LogLine&) = delete;

  // A filtered-out line: nothing is written to or by it.
  bool inert() const { return level_ != 0 && module_ == 0; }
  // REQUIRES: !inert().
  std::ostream& stream();
  // Nothing on an inert line; null inserts "(null)".
  LogLine& operator<<(const char* text);
  LogLine& operator<<(const boost::system::error_code& code);
  // printf-style insertion, cut at the line's limit. Always true.
  bool Format(const char* format, ...) __attribute__((format(printf, 2, 3)));
  // Drops the text so far, keeping the header.
  void Rewind();

 private:
  uint32_t level_;
  uint32_t module_;
  LogLineObject* object_ = nullptr;
};

#endif  // HIVECTL_SUPPORT_LOG_H_
