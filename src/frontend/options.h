// The options of qv_hivectl, read from the command line and the server's
// configuration file.
#ifndef HIVECTL_FRONTEND_OPTIONS_H_
#define HIVECTL_FRONTEND_OPTIONS_H_

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <vector>

#include <boost/program_options/cmdline.hpp>
#include <boost/program_options/options_description.hpp>
#include <boost/program_options/parsers.hpp>

#include "frontend/usage.h"

struct Options {
  std::string config_file;
  std::string backend;
  std::string root;
  uint32_t max_db_connections = 32;
  std::string registry_backend;  // from the configuration file only
  bool help = false;
  bool verbose = false;
  bool progress = false;
  bool ignore_errors = false;
  std::string help_text;  // with `help`: the options as the library shows them
  std::vector<std::string> command_tokens;  // what no option took, in order
};

// Reads the tokens behind argv[0] into `options`, the profile giving the
// default configuration file and root, and warns on stderr about each option
// token that spells a long name behind a single dash. The option library's
// errors are thrown.
void ReadCommandLine(int argc, char** argv, const Profile& profile, Options& options);

// RegistryBackend from options.config_file, or from the profile's file if it
// exists. A named file that can't be opened throws std::runtime_error.
void ReadConfigFile(const Profile& profile, Options& options);

// The message of `error`; the option library's errors are formatted without
// expanding placeholders in the texts they quote.
std::string ErrorMessage(const std::exception& error);

// Long names match in any letter case, and under that flag the library
// matches short names in any case too.
constexpr int kCommandLineStyle = boost::program_options::command_line_style::unix_style |
                                  boost::program_options::command_line_style::long_case_insensitive;
static_assert(kCommandLineStyle == 0x7f7, "the command-line style as documented");

// Least number of tokens handed to the option library's parser at once.
constexpr size_t kCommandLineWindow = 64;

// Parses `tokens` against `options` in kCommandLineStyle, unregistered
// options allowed. The result, and any exception, is what one run of the
// library's parser over all tokens gives, but in time linear in their number:
// the parser gets them in windows of at least `window` tokens.
boost::program_options::parsed_options ParseCommandLine(
    const std::vector<std::string>& tokens,
    const boost::program_options::options_description& options,
    size_t window = kCommandLineWindow);

#endif  // HIVECTL_FRONTEND_OPTIONS_H_
