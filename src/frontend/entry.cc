#include "frontend/entry.h"

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "frontend/environment.h"
#include "frontend/options.h"
#include "frontend/usage.h"
#include "registry/backend.h"
#include "registry/key_paths.h"
#include "support/log.h"

namespace {

constexpr uint32_t kMaxDBConnectionsLimit = 512;
constexpr size_t kMaxListedTokens = 5;

void InitRegistryBackend(const Options& options) {
  if (!options.backend.empty()) {
    if (!regkey::InitBackend(options.backend)) {
      throw std::runtime_error("can't initialize registry backend, check the --Backend option");
    }
  } else if (!options.registry_backend.empty()) {
    if (!regkey::InitBackend(options.registry_backend)) {
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

// The connection limit of the import's workers: --MaxDBConnections, cut to
// 1..512, on a database backend; 1 on any other.
uint32_t ConnectionLimit(uint32_t max_db_connections) {
  const std::string& spec = regkey::backend_specification;
  if (spec.size() < 11 || spec.compare(0, 11, "postgresql:") != 0) return 1;
  return std::max<uint32_t>(1, std::min(max_db_connections, kMaxDBConnectionsLimit));
}

void SetUpEnvironment(const Options& options, Environment& env) {
  env.verbose = options.verbose;
  env.progress = options.progress;
  env.ignore_errors = options.ignore_errors;
  env.max_db_connections = ConnectionLimit(options.max_db_connections);
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
  Options options;
  ReadCommandLine(argc, argv, profile, options);
  if (options.help) {
    PrintHelp(program_name, profile, options.help_text);
    return 0;
  }
  if (options.backend.empty()) ReadConfigFile(profile, options);
  LogSetup(4, kLogModuleOther);
  LogSetFile(stderr);
  InitRegistryBackend(options);
  SetRegistryRoot(options.root);
  const std::vector<std::string_view> tokens(options.command_tokens.begin(),
                                             options.command_tokens.end());
  SystemEnvironment env;
  SetUpEnvironment(options, env);
  return RunCommands(tokens, env, parse_command);
}

}  // namespace

int HivectlMain(int argc, char** argv, CommandParser parse_command) {
  try {
    return RunHivectl(argc, argv, parse_command);
  } catch (const std::exception& e) {
    const std::string message = ErrorMessage(e);
    std::cerr << "fatal: " << message << "\n";
    return 1;
  }
}
