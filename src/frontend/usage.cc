#include "frontend/usage.h"

#include <iostream>
#include <iterator>
#include <string>

namespace {

constexpr const char* kDefaultProgramName = "qv_hivectl";

// The last entry, with an empty suffix, is the default.
const Profile kProfiles[] = {
    {"_fa", "/opt/quorvane/cluster/fa/etc/fa/qv_fa.cfg", "Quorvane\\FrontNode"},
    {"_cn", "/opt/quorvane/cluster/cn/etc/cn/qv_cn.cfg", "Quorvane\\CoreNode"},
    {"_nc", "/opt/quorvane/cluster/nc/etc/nc/qv_nc.cfg", "Quorvane\\NodeConsole"},
    {"", "/opt/quorvane/atlas/etc/atlas/qv_node.cfg", "Quorvane\\Node"},
};

const char kHelpText[] =
    R"(
Multiple commands may be specified, one after the other, on the command line.
Each command consists of a keyword identifying it and a variable number of arguments.
Most commands have these two arguments:
* KEY
  Should be a full path to the registry key that the command should operate on.
  To operate on the root key use KEY equal to an empty string.
* VALUE
  Name of the value inside the KEY that the command should operate on.

Supported commands:
    get KEY VALUE
        Load data of the VALUE from the KEY and print it to the standard output.
        Binary values are printed base64-encoded.

    set KEY VALUE TYPE VALUE_DATA
        Parse VALUE_DATA according to TYPE and store the result as VALUE in the KEY.
        If KEY doesn't exist then it is created automatically.
        TYPE can be any of these:
        * i32
          VALUE_DATA is parsed as a decimal or hexadecimal 32-bit number in range [-2^31, 2^32-1].
        * i64
          VALUE_DATA is parsed as a decimal or hexadecimal 64-bit number in range [-2^63, 2^64-1].
        * str
          VALUE_DATA is stored as a string value.
        * bin
          VALUE_DATA is stored as a binary value.
        * b16
          VALUE_DATA is parsed as a base16-encoded block of data (hexadecimal byte sequence) and stored as a binary value.
        * b64
          VALUE_DATA is parsed as a base64-encoded block of data and stored as a binary value.
        * fstr
          VALUE_DATA is interpreted as a file name, content of that file is stored as a string value.
          If VALUE_DATA is "-" then the standard input is used instead of a file.
        * fbin
          VALUE_DATA is interpreted as a file name, content of that file is stored as a binary value.
          If VALUE_DATA is "-" then the standard input is used instead of a file.

    exists KEY VALUE
        Check whether the KEY contains the VALUE and print boolean result to the standard output.

    remove KEY
        Remove all values and subkeys of the KEY.

    rename KEY NEW_KEY
        Move all values and subkeys of the KEY to the NEW_KEY.
        IF NEW_KEY already exists then its content is removed prior to the move.

    copy KEY NEW_KEY
        Copy all values and subkeys of the KEY to the NEW_KEY.
        IF NEW_KEY already exists then its content is preserved,
        except that newly copied values overwrite existing values with matching names.

    removev KEY VALUE
        Remove the VALUE from the KEY.

    renamev KEY VALUE NEW_KEY NEW_VALUE
        Move the VALUE from the KEY to the NEW_KEY and change its name to NEW_VALUE.

    copyv KEY VALUE NEW_KEY NEW_VALUE
        Copy the VALUE from the KEY to the NEW_KEY and change its name to NEW_VALUE.

    export KEY FILE
        Save all values and subkeys of the KEY into FILE using the CSV format.
        If FILE is "-" then the standard output is used instead of a file.

    import KEY FILE
        Load CSV file in the format produced by the "export" command
        and add all values and keys listed in it to the KEY.
        If FILE is "-" then the standard input is used instead of a file.
        If --IgnoreErrors option is specified then:
        1. Invalid rows in the CSV are skipped.
        2. Failure to set a single value does not interrupt the command.

    show KEY
        Display KEY contents in human-friendly format:
        * Names of direct subkeys.
        * Values in a table form, truncating overly long values.

Examples:
* Extract the server certificate:
    PROGRAM get Configuration Certificate | base64 -d > cert.pem
* Enable verbose logs:
    PROGRAM set Configuration "Debug Level" i32 4 set Configuration "Debug Modules" i32 0xffffffff
* Change ID of an existing group conference:
    PROGRAM rename 'Multi Conferences\7495331200' 'Multi Conferences\nice_id'
* Same as the previous example, but using custom root key:
    PROGRAM --Root "ROOT\Multi Conferences" rename 7495331200 nice_id
* Backup the list of group conferences:
    PROGRAM export "Multi Conferences" conf.csv
* Restore the previous backup (removal happens only if the backup file is parsed successfully):
    PROGRAM remove "Multi Conferences" import "Multi Conferences" conf.csv
* Show Configuration of a remote server (use alternative backend):
    PROGRAM --Backend="postgresql:port=5432;dbname=qvs;user=postgres;password=hush;host=db.example.com;" show Configuration
)";

bool EndsWith(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

std::string ReplaceAll(std::string text, std::string_view from, std::string_view to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

}  // namespace

std::string ProgramName(int argc, char** argv) {
  if (argc < 1 || argv[0] == nullptr || argv[0][0] == '\0') return kDefaultProgramName;
  std::string path = argv[0];
  size_t separator = path.find_last_of("/\\");
  if (separator == std::string::npos || separator == 0) return path;
  if (separator + 1 == path.size()) return kDefaultProgramName;
  return path.substr(separator + 1);
}

const Profile& SelectProfile(std::string_view program_name) {
  for (const Profile& profile : kProfiles) {
    if (EndsWith(program_name, profile.suffix)) return profile;
  }
  return kProfiles[std::size(kProfiles) - 1];
}

void PrintHelp(const std::string& program_name, const Profile& profile,
               const std::string& option_groups) {
  std::string text = ReplaceAll(kHelpText, "ROOT\\", std::string(profile.root) + "\\");
  text = ReplaceAll(text, "PROGRAM", program_name);
  std::cerr << "Usage: " << program_name << " [OPTIONS] [--] [COMMAND]...\n\n"
            << option_groups << text;
}

