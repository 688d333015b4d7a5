// The installation profiles that the program name selects, and the help
// output.
#ifndef HIVECTL_FRONTEND_USAGE_H_
#define HIVECTL_FRONTEND_USAGE_H_

#include <string>
#include <string_view>

struct Profile {
  const char* suffix;       // ending of the program name
  const char* config_file;  // default configuration file
  const char* root;         // default registry root
};

// The program name: argv[0] behind its last '/' or '\', "qv_hivectl" when
// there is no usable argv[0] or nothing behind the separator. A separator
// at index 0 keeps the whole text, separator included.
std::string ProgramName(int argc, char** argv);

// The first profile whose suffix ends `program_name`, case-sensitively, or
// the default profile.
const Profile& SelectProfile(std::string_view program_name);

// Writes the help output to stderr: the usage line, `option_groups` (the
// options as the option library shows them), then the commands and examples
// with the program name and the profile's root put in.
void PrintHelp(const std::string& program_name, const Profile& profile,
               const std::string& option_groups);

#endif  // HIVECTL_FRONTEND_USAGE_H_
