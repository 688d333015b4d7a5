// The entry function of qv_hivectl: start-up, the three stages over the
// command line, and the exit status (0 or 1).
#ifndef HIVECTL_FRONTEND_ENTRY_H_
#define HIVECTL_FRONTEND_ENTRY_H_

#include <cstddef>
#include <string>
#include <vector>

#include "frontend/command.h"

#include <boost/program_options/options_description.hpp>
#include <boost/program_options/parsers.hpp>

// unix_style plus long_case_insensitive.
constexpr int kCommandLineStyle = 0x7f7;

// Least number of tokens handed to the option library's parser at once.
constexpr size_t kCommandLineWindow = 64;

// Parses the tokens behind argv[0] against `options`, in kCommandLineStyle
// with unregistered options allowed. The result, and any exception, is what
// one run of the library's parser over all tokens gives, but in time linear
// in their number (see entry.cc).
boost::program_options::parsed_options ParseCommandLine(
    const std::vector<std::string>& tokens,
    const boost::program_options::options_description& options,
    size_t window = kCommandLineWindow);

// The whole run of the program; `parse_command` makes each command.
int HivectlMain(int argc, char** argv, CommandParser parse_command);

#endif  // HIVECTL_FRONTEND_ENTRY_H_
