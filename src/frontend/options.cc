#include "frontend/options.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include <boost/program_options/errors.hpp>
#include <boost/program_options/value_semantic.hpp>
#include <boost/program_options/variables_map.hpp>

#include "support/ascii.h"

namespace po = boost::program_options;

namespace {

constexpr unsigned kHelpLineLength = 1000;

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
  constexpr bool kLongIgnoreCase =
      (kCommandLineStyle & po::command_line_style::long_case_insensitive) != 0;
  constexpr bool kShortIgnoreCase =
      (kCommandLineStyle & po::command_line_style::short_case_insensitive) != 0;
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

// Every original token of unregistered or positional entries.
std::vector<std::string> CommandTokens(const po::parsed_options& parsed) {
  std::vector<std::string> tokens;
  for (const po::option& option : parsed.options) {
    if (!option.unregistered && option.position_key == -1) continue;
    tokens.insert(tokens.end(), option.original_tokens.begin(), option.original_tokens.end());
  }
  return tokens;
}

// A token behind "--", as the parser records it.
po::option CommandToken(const std::string& token) {
  po::option option;
  option.value.push_back(token);
  option.original_tokens.push_back(token);
  return option;
}

}  // namespace

void ReadCommandLine(int argc, char** argv, const Profile& profile, Options& options) {
  po::options_description general("General options", kHelpLineLength);
  general.add_options()
      ("help,h", "produce this help message")
      ("ConfigFile,c", po::value<std::string>(&options.config_file)->value_name("<path>"),
       (std::string("path to the server configuration file, by default '") +
        profile.config_file + "' will be used if it exists").c_str())
      ("Backend,b", po::value<std::string>(&options.backend)->value_name("<string>"),
       "registry backend specification in the form NAME:[OPTIONS]")
      ("Root,r",
       po::value<std::string>(&options.root)->value_name("<key name>")
           ->default_value(profile.root),
       "key used as base for all other");
  po::options_description behavior("Command behavior options", kHelpLineLength);
  behavior.add_options()
      ("Verbose", "display completion status for successful commands")
      ("Progress", "display progress report for long-running commands")
      ("IgnoreErrors",
       "don't stop after the first command failure, try to execute all subsequent commands")
      ("MaxDBConnections",
       po::value<uint32_t>(&options.max_db_connections)->value_name("<N>")->default_value(32),
       "maximal number of DB connections to use during command execution.\n"
       "This option takes effect only when registry backend is 'postgresql'.");
  po::options_description all;
  all.add(general).add(behavior);

  // argv[0] is no token; without one there is nothing to parse.
  const std::vector<std::string> arguments =
      argc >= 1 ? std::vector<std::string>(argv + 1, argv + argc) : std::vector<std::string>();
  const po::parsed_options parsed = ParseCommandLine(arguments, all);
  WarnAboutSingleDash(parsed, all);
  po::variables_map variables;
  po::store(parsed, variables);
  po::notify(variables);
  options.help = variables.count("help") > 0;
  options.verbose = variables.count("Verbose") > 0;
  options.progress = variables.count("Progress") > 0;
  options.ignore_errors = variables.count("IgnoreErrors") > 0;
  if (options.help) {
    std::ostringstream text;
    text << general << behavior;
    options.help_text = text.str();
  }
  options.command_tokens = CommandTokens(parsed);
}

// A missing default file is no error; a missing --ConfigFile is.
void ReadConfigFile(const Profile& profile, Options& options) {
  const std::string& named = options.config_file;
  const std::string path = named.empty() ? profile.config_file : named;
  std::ifstream file(path);
  if (!file) {
    if (!named.empty()) throw std::runtime_error("can't open the configuration file: " + path);
    return;
  }
  po::options_description config("Config options", kHelpLineLength);
  config.add_options()
      ("RegistryBackend", po::value<std::string>(&options.registry_backend)->value_name("<string>"),
       "registry backend specification, this option has lower priority than --Backend");
  po::variables_map config_map;
  po::store(po::parse_config_file(file, config, true), config_map);
  po::notify(config_map);
}

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

std::string ErrorMessage(const std::exception& error) {
  // ambiguous_option formats its own list of alternatives; keep its type.
  if (const auto* ambiguous = dynamic_cast<const po::ambiguous_option*>(&error)) {
    return PlaceholderSafeError<po::ambiguous_option>(*ambiguous).Message();
  }
  if (const auto* named = dynamic_cast<const po::error_with_option_name*>(&error)) {
    return PlaceholderSafeError<po::error_with_option_name>(*named).Message();
  }
  return error.what();
}

