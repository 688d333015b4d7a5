#include "frontend/environment.h"

#include <cerrno>
#include <fstream>
#include <iostream>

SystemEnvironment::SystemEnvironment() {
  output = &std::cout;
  error = &std::cerr;
  input = &std::cin;
}

namespace {

// Opens a file stream of type Stream with `mode`; on failure null, with errno
// of the attempt in `error_code`.
template <typename Stream>
std::unique_ptr<Stream> OpenFileStream(const char* path, std::ios_base::openmode mode,
                                       std::error_code& error_code) {
  error_code.assign(0, std::system_category());
  errno = 0;
  auto stream = std::make_unique<Stream>();
  stream->open(path, mode);
  if (!stream->good()) {
    error_code.assign(errno, std::system_category());
    return nullptr;
  }
  return stream;
}

}  // namespace

std::unique_ptr<std::istream> SystemEnvironment::OpenInputFile(const char* path,
                                                               std::error_code& error_code) {
  return OpenFileStream<std::ifstream>(path, std::ios_base::in | std::ios_base::binary,
                                       error_code);
}

std::unique_ptr<std::ostream> SystemEnvironment::OpenOutputFile(const char* path,
                                                                std::error_code& error_code) {
  return OpenFileStream<std::ofstream>(
      path, std::ios_base::out | std::ios_base::binary | std::ios_base::trunc, error_code);
}
