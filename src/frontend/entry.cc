#include "frontend/entry.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <boost/program_options.hpp>

#include "frontend/command.h"
#include "frontend/environment.h"
#include "registry/backend.h"
#include "registry/key_paths.h"
#include "support/ascii.h"
#include "support/log.h"

namespace po = boost::program_options;

namespace {

constexpr const char* kDefaultProgramName = "qv_hivectl";
constexpr unsigned kHelpLineLength = 1000;
constexpr uint32_t kMaxDBConnectionsLimit = 512;
constexpr size_t kMaxListedTokens = 5;

struct Profile {
  const char* suffix;
  const char* config_file;
  const char* root;
};

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

// The option variables, bound directly to the descriptions.
struct OptionValues {
  std::string config_file;
  std::string backend;
  std::string root;
  uint32_t max_db_connections = 32;
  std::string registry_backend;  // from the configuration file only
};

std::string ProgramName(int argc, char** argv) {
  if (argc < 1 || argv[0] == nullptr || argv[0][0] == '\0') return kDefaultProgramName;
  std::string path = argv[0];
  size_t separator = path.find_last_of("/\\");
  // A separator at index 0 keeps the whole text, separator included.
  if (separator == std::string::npos || separator == 0) return path;
  if (separator + 1 == path.size()) return kDefaultProgramName;
  return path.substr(separator + 1);
}

bool EndsWith(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

const Profile& SelectProfile(std::string_view program_name) {
  for (const Profile& profile : kProfiles) {
    if (EndsWith(program_name, profile.suffix)) return profile;
  }
  return kProfiles[std::size(kProfiles) - 1];
}

std::string ReplaceAll(std::string text, std::string_view from, std::string_view to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

void PrintHelp(const std::string& program_name, const Profile& profile,
               const po::options_description& general,
               const po::options_description& behavior) {
  std::string text = ReplaceAll(kHelpText, "ROOT\\", std::string(profile.root) + "\\");
  text = ReplaceAll(text, "PROGRAM", program_name);
  std::cerr << "Usage: " << program_name << " [OPTIONS] [--] [COMMAND]...\n\n"
            << general << behavior << text;
}

bool EqualIgnoringAsciiCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(),
                    [](char x, char y) { return FoldAscii(x) == FoldAscii(y); });
}

// A token such as "-Root=x" is taken as option -r with value "oot=x"; warn
// when the text behind the single dash spells a long option name.
void WarnAboutSingleDash(const po::parsed_options& parsed, const po::options_description& all) {
  for (const po::option& option : parsed.options) {
    if (option.position_key != -1 || option.original_tokens.empty()) continue;
    const std::string& token = option.original_tokens.front();
    if (token.size() < 3 || token[0] != '-' || token[1] == '-') continue;
    std::string_view candidate = std::string_view(token).substr(1);
    candidate = candidate.substr(0, candidate.find('='));
    for (const auto& description : all.options()) {
      const std::string& long_name = description->long_name();
      if (!EqualIgnoringAsciiCase(candidate, long_name)) continue;
      std::cerr << "warning: argument '" << token << "' is interpreted as option '-" << token[1]
                << "' with value '" << token.substr(2)
                << "', did you miss the second dash in option '--" << long_name << "'?\n";
      break;
    }
  }
}

// Reads RegistryBackend from the configuration file. A missing default
// file is no error; a missing --ConfigFile is.
void ReadConfigFile(OptionValues& values, const Profile& profile,
                    const po::options_description& config) {
  std::string path = values.config_file.empty() ? profile.config_file : values.config_file;
  std::ifstream file(path);
  if (!file) {
    if (!values.config_file.empty()) {
      throw std::runtime_error("can't open the configuration file: " + path);
    }
    return;
  }
  po::variables_map config_map;
  po::store(po::parse_config_file(file, config, true), config_map);
  po::notify(config_map);
}

void InitRegistryBackend(const OptionValues& values) {
  if (!values.backend.empty()) {
    if (!regkey::InitBackend(values.backend)) {
      throw std::runtime_error("can't initialize registry backend, check the --Backend option");
    }
  } else if (!values.registry_backend.empty()) {
    if (!regkey::InitBackend(values.registry_backend)) {
      throw std::runtime_error(
          "can't initialize registry backend, check the 'RegistryBackend' option in the config "
          "file");
    }
  } else {
    throw std::runtime_error("registry backend is not specified");
  }
}

void SetRegistryRoot(const std::string& root) {
  if (root.empty()) return;
  if (regkey::StartsWithBackslash(root)) {
    throw std::runtime_error("invalid registry root: starts with '\\'");
  }
  if (regkey::EndsWithBackslash(root)) {
    throw std::runtime_error("invalid registry root: ends with '\\'");
  }
  registry_root = root;
}

// The option library builds a message by replacing each %name% placeholder
// of its template until none is left, so a text that itself holds a
// placeholder (an option value of "%value%", say) is substituted into
// itself forever. A copy of the exception hides the '%' of every text while
// the library formats, then brings them back.
template <class OptionError>
class PlaceholderSafeError : public OptionError {
 public:
  explicit PlaceholderSafeError(const OptionError& error) : OptionError(error) {}

  std::string Message() {
    for (auto& substitution : this->m_substitutions) {
      substitution.second = HidePercent(substitution.second);
    }
    return RestorePercent(this->what());
  }

 private:
  static constexpr char kMark = '\x01';  // never in a template of the library

  static std::string HidePercent(const std::string& text) {
    std::string hidden;
    for (char c : text) {
      if (c == '%' || c == kMark) {
        hidden += kMark;
        hidden += c == '%' ? 'p' : 'm';
      } else {
        hidden += c;
      }
    }
    return hidden;
  }

  static std::string RestorePercent(const std::string& text) {
    std::string restored;
    for (size_t i = 0; i < text.size(); ++i) {
      if (text[i] == kMark && i + 1 < text.size() && (text[i + 1] == 'p' || text[i + 1] == 'm')) {
        restored += text[++i] == 'p' ? '%' : kMark;
      } else {
        restored += text[i];
      }
    }
    return restored;
  }
};

std::string ExceptionMessage(const std::exception& error) {
  // ambiguous_option formats its own list of alternatives; keep its type.
  if (const auto* ambiguous = dynamic_cast<const po::ambiguous_option*>(&error)) {
    return PlaceholderSafeError<po::ambiguous_option>(*ambiguous).Message();
  }
  if (const auto* named = dynamic_cast<const po::error_with_option_name*>(&error)) {
    return PlaceholderSafeError<po::error_with_option_name>(*named).Message();
  }
  return error.what();
}

// Boost's parser takes each token off the front of the vector it holds, so
// one run costs time quadratic in the tokens it is given. It gets the line
// in windows instead, each ending behind a token that never takes the next
// token as its value: a word without a leading dash, a lone "-", or a short
// option of an unknown letter such as "-5" (the parser keeps that one whole
// as an unregistered option). Every option thus finds its value in its own
// window, and the windows parse as the whole line does. Under
// long_case_insensitive the library matches short names in any case too
// ("-R" is --Root), so the look-up takes the style's case flags.
bool EndsWindow(const std::string& token, const po::options_description& options) {
  if (token.size() < 2 || token[0] != '-') return true;
  if (token[1] == '-') return false;
  constexpr bool kLongIgnoreCase = kCommandLineStyle & po::command_line_style::long_case_insensitive;
  constexpr bool kShortIgnoreCase = kCommandLineStyle & po::command_line_style::short_case_insensitive;
  return options.find_nothrow(token.substr(0, 2), false, kLongIgnoreCase, kShortIgnoreCase) ==
         nullptr;
}

size_t WindowEnd(const std::vector<std::string>& tokens, size_t begin, size_t window,
                 const po::options_description& options) {
  size_t end = std::min(tokens.size(), begin + std::max<size_t>(window, 1));
  while (end < tokens.size() && !EndsWindow(tokens[end - 1], options)) ++end;
  return end;
}

size_t OriginalTokenCount(const std::vector<po::option>& parsed) {
  size_t count = 0;
  for (const po::option& option : parsed) count += option.original_tokens.size();
  return count;
}

po::parsed_options ParseWindow(const std::vector<std::string>& tokens,
                               const po::options_description& options) {
  return po::command_line_parser(tokens)
      .options(options)
      .style(kCommandLineStyle)
      .allow_unregistered()
      .run();
}

// A token behind "--", as the parser records it.
po::option CommandToken(const std::string& token) {
  po::option option;
  option.value.push_back(token);
  option.original_tokens.push_back(token);
  return option;
}

// Every original token of unregistered or positional entries, in order.
std::vector<std::string_view> CollectCommandTokens(const po::parsed_options& parsed, int argc) {
  std::vector<std::string_view> tokens;
  tokens.reserve(static_cast<size_t>(std::max(argc, 0)));
  for (const po::option& option : parsed.options) {
    if (!option.unregistered && option.position_key == -1) continue;
    for (const std::string& token : option.original_tokens) tokens.emplace_back(token);
  }
  return tokens;
}

void ReportParseFailure(std::ostream& error, const std::vector<std::string_view>& tokens,
                        const TokenCursor& cursor) {
  error << "fatal: command parsing failed on argument " << tokens.size() - cursor.remaining;
  if (cursor.remaining > 0) {
    error << ':';
    size_t listed = std::min(cursor.remaining, kMaxListedTokens);
    for (size_t i = 0; i < listed; ++i) error << " '" << cursor.next[i] << "'";
  }
  error << '\n';
}

// The three stages over the whole command line.
int RunCommands(const std::vector<std::string_view>& tokens, Environment& env,
                CommandParser parse_command) {
  std::vector<std::unique_ptr<Command>> commands;
  TokenCursor cursor{tokens.data(), tokens.size()};
  while (cursor.remaining > 0) {
    std::unique_ptr<Command> command = parse_command(cursor, env);
    if (!command) {
      ReportParseFailure(*env.error, tokens, cursor);
      return 1;
    }
    commands.push_back(std::move(command));
  }
  for (std::unique_ptr<Command>& command : commands) {
    if (command->Prepare()) continue;
    if (!env.ignore_errors) return 1;
    command.reset();
  }
  for (std::unique_ptr<Command>& command : commands) {
    if (!command || command->Execute()) continue;
    if (!env.ignore_errors) return 1;
    command.reset();
  }
  return 0;
}

int RunHivectl(int argc, char** argv, CommandParser parse_command) {
  const std::string program_name = ProgramName(argc, argv);
  const Profile& profile = SelectProfile(program_name);

  OptionValues values;
  const std::string config_file_help = std::string(
      "path to the server configuration file, by default '") + profile.config_file +
      "' will be used if it exists";
  po::options_description general("General options", kHelpLineLength);
  general.add_options()
      ("help,h", "produce this help message")
      ("ConfigFile,c", po::value<std::string>(&values.config_file)->value_name("<path>"),
       config_file_help.c_str())
      ("Backend,b", po::value<std::string>(&values.backend)->value_name("<string>"),
       "registry backend specification in the form NAME:[OPTIONS]")
      ("Root,r",
       po::value<std::string>(&values.root)->value_name("<key name>")
           ->default_value(profile.root),
       "key used as base for all other");
  po::options_description behavior("Command behavior options", kHelpLineLength);
  behavior.add_options()
      ("Verbose", "display completion status for successful commands")
      ("Progress", "display progress report for long-running commands")
      ("IgnoreErrors",
       "don't stop after the first command failure, try to execute all subsequent commands")
      ("MaxDBConnections",
       po::value<uint32_t>(&values.max_db_connections)->value_name("<N>")->default_value(32),
       "maximal number of DB connections to use during command execution.\n"
       "This option takes effect only when registry backend is 'postgresql'.");
  po::options_description config("Config options", kHelpLineLength);
  config.add_options()
      ("RegistryBackend", po::value<std::string>(&values.registry_backend)->value_name("<string>"),
       "registry backend specification, this option has lower priority than --Backend");
  po::options_description all;
  all.add(general).add(behavior);

  // argv[0] is no token; without one there is nothing to parse.
  const std::vector<std::string> arguments =
      argc >= 1 ? std::vector<std::string>(argv + 1, argv + argc) : std::vector<std::string>();
  po::parsed_options parsed = ParseCommandLine(arguments, all);
  WarnAboutSingleDash(parsed, all);
  po::variables_map variables;
  po::store(parsed, variables);
  po::notify(variables);

  if (variables.count("help")) {
    PrintHelp(program_name, profile, general, behavior);
    return 0;
  }
  if (values.backend.empty()) ReadConfigFile(values, profile, config);
  LogSetup(4, kLogModuleOther);
  LogSetFile(stderr);
  InitRegistryBackend(values);
  SetRegistryRoot(values.root);
  std::vector<std::string_view> tokens = CollectCommandTokens(parsed, argc);

  SystemEnvironment env;
  env.verbose = variables.count("Verbose") > 0;
  env.progress = variables.count("Progress") > 0;
  env.ignore_errors = variables.count("IgnoreErrors") > 0;
  env.max_db_connections = 1;
  const std::string& spec = regkey::backend_specification;
  if (spec.size() >= 11 && spec.compare(0, 11, "postgresql:") == 0) {
    env.max_db_connections =
        std::max<uint32_t>(1, std::min(values.max_db_connections, kMaxDBConnectionsLimit));
  }
  return RunCommands(tokens, env, parse_command);
}

}  // namespace

po::parsed_options ParseCommandLine(const std::vector<std::string>& tokens,
                                    const po::options_description& options, size_t window) {
  po::parsed_options parsed(&options);
  size_t begin = 0;
  do {
    const size_t end = WindowEnd(tokens, begin, window, options);
    po::parsed_options part = ParseWindow(
        std::vector<std::string>(tokens.begin() + begin, tokens.begin() + end), options);
    parsed.m_options_prefix = part.m_options_prefix;
    const size_t kept = OriginalTokenCount(part.options);
    std::move(part.options.begin(), part.options.end(), std::back_inserter(parsed.options));
    // The parser drops the "--" mark, and no other token: everything behind
    // the mark is a command token.
    if (kept < end - begin) {
      for (size_t i = end; i < tokens.size(); ++i) parsed.options.push_back(CommandToken(tokens[i]));
      break;
    }
    begin = end;
  } while (begin < tokens.size());
  int position = 0;
  for (po::option& option : parsed.options) {
    if (option.string_key.empty()) option.position_key = position++;
  }
  return parsed;
}

int HivectlMain(int argc, char** argv, CommandParser parse_command) {
  try {
    return RunHivectl(argc, argv, parse_command);
  } catch (const std::exception& e) {
    const std::string message = ExceptionMessage(e);
    std::cerr << "fatal: " << message << "\n";
    return 1;
  }
}
