// What a command may ask of its surroundings: the run-time flags, the
// connection limit, the three standard streams and the opening of files.
// Commands never touch the standard streams or the file system directly.
//
// The fields are written once by the entry function before the first command
// exists and only read afterwards, so worker threads read them without a
// lock. None of the stream pointers owns its stream or is ever null.
#ifndef HIVECTL_FRONTEND_ENVIRONMENT_H_
#define HIVECTL_FRONTEND_ENVIRONMENT_H_

#include <cstdint>
#include <istream>
#include <memory>
#include <ostream>
#include <system_error>

class Environment {
 public:
  bool verbose = false;
  bool progress = false;
  bool ignore_errors = false;
  uint32_t max_db_connections = 1;  // 1 to 512
  std::ostream* output = nullptr;
  std::ostream* error = nullptr;
  std::istream* input = nullptr;

  // Open `path` (used as it stands; "-" is the callers' business) for binary
  // reading, or for binary writing with truncation. On failure: null, and
  // `error_code` holds errno in the system category. Neither writes or
  // throws for a file that cannot be opened.
  virtual std::unique_ptr<std::istream> OpenInputFile(const char* path,
                                                      std::error_code& error_code) = 0;
  virtual std::unique_ptr<std::ostream> OpenOutputFile(const char* path,
                                                       std::error_code& error_code) = 0;

 protected:
  // Never deleted through a base pointer.
  ~Environment() = default;
};

// The real file system and the process's standard streams.
class SystemEnvironment final : public Environment {
 public:
  SystemEnvironment();
  std::unique_ptr<std::istream> OpenInputFile(const char* path,
                                              std::error_code& error_code) override;
  std::unique_ptr<std::ostream> OpenOutputFile(const char* path,
                                               std::error_code& error_code) override;
};

#endif  // HIVECTL_FRONTEND_ENVIRONMENT_H_
