#include "frontend/environment.h"

#include <ext/stdio_filebuf.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <iostream>

namespace {

// The standard input as a file stream on stdin's descriptor. On std::cin,
// which goes through stdio, a failed read (standard input redirected from a
// directory) looks like the end of the input; here, as on any file stream,
// it sets badbit and leaves errno.
std::istream& StandardInput() {
  static __gnu_cxx::stdio_filebuf<char> buffer(stdin, std::ios_base::in | std::ios_base::binary);
  static std::istream stream(&buffer);
  return stream;
}

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

SystemEnvironment::SystemEnvironment() {
  output = &std::cout;
  error = &std::cerr;
  input = &StandardInput();
  input->tie(output);  // as std::cin is
}

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
