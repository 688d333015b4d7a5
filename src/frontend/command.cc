#include "frontend/command.h"

#include "frontend/key_commands.h"
#include "frontend/show_command.h"
#include "frontend/value_commands.h"
#include "transfer/export_command.h"
#include "transfer/import_command.h"

std::string registry_root;

bool CommandBase::ReadKeyName(TokenCursor& cursor, std::string& target) {
  if (cursor.remaining == 0) {
    FailureStream(true) << "key name is not specified\n";
    return false;
  }
  std::string_view token = *cursor.next;
  if (!token.empty() && token.front() == '\\') {
    FailureStream(true) << "key name '" << token << "' is invalid: starts with '\\'\n";
    return false;
  }
  if (!token.empty() && token.back() == '\\') {
    FailureStream(true) << "key name '" << token << "' is invalid: ends with '\\'\n";
    return false;
  }
  target.assign(token);
  ++cursor.next;
  --cursor.remaining;
  return true;
}

bool CommandBase::ReadValueName(TokenCursor& cursor, std::string& target) {
  if (cursor.remaining == 0) {
    FailureStream(true) << "value name is not specified\n";
    return false;
  }
  target.assign(*cursor.next);
  ++cursor.next;
  --cursor.remaining;
  return true;
}

bool CommandBase::ReadFileName(TokenCursor& cursor, std::string& target) {
  if (cursor.remaining == 0) {
    FailureStream(true) << "file is not specified\n";
    return false;
  }
  target.assign(*cursor.next);
  ++cursor.next;
  --cursor.remaining;
  return true;
}

void CommandBase::WriteHeader(const char* prefix) {
  std::ostream& out = *env->error;
  out << prefix << name;
  if (key_name.empty() && value_name.empty()) {
    out << ": ";
    return;
  }
  out << " '" << key_name;
  if (!key_name.empty() && !value_name.empty()) out << '\\';
  out << value_name << "': ";
}

std::ostream& CommandBase::FailureStream(bool always_fatal) {
  WriteHeader(!always_fatal && env->ignore_errors ? "error: " : "fatal: ");
  return *env->error;
}

void CommandBase::Note(std::string_view text) {
  if (!env->verbose) return;
  WriteHeader("note: ");
  *env->error << text << '\n';
}

bool CommandBase::ReportBackendResult(bool succeeded) {
  if (!succeeded) {
    FailureStream(true) << "backend operation failed\n";
    return false;
  }
  Note("completed");
  return true;
}

void CommandBase::ReportOpenFailure(const std::string& path, const std::error_code& error_code) {
  FailureStream(true) << "can't open file '" << path << "': (" << error_code.value() << ") "
                      << error_code.message() << '\n';
}

namespace {

template <typename T>
std::unique_ptr<Command> Make(const char* name, Environment* env) {
  return std::make_unique<T>(name, env);
}

struct Keyword {
  std::string_view token;
  const char* name;  // what messages show; differs for hidden aliases
  std::unique_ptr<Command> (*make)(const char* name, Environment* env);
};

// Matching is exact and case-sensitive, so the order changes no result.
const Keyword kKeywords[] = {
    {"get", "get", &Make<GetCommand>},
    {"set", "set", &Make<SetCommand>},
    {"exists", "exists", &Make<ExistsCommand>},
    {"removev", "removev", &Make<RemoveValueCommand>},
    {"renamev", "renamev", &Make<RenameValueCommand>},
    {"copyv", "copyv", &Make<CopyValueCommand>},
    {"show", "show", &Make<ShowCommand>},
    {"remove", "remove", &Make<RemoveKeyCommand>},
    {"rename", "rename", &Make<RenameKeyCommand>},
    {"copy", "copy", &Make<CopyKeyCommand>},
    {"export", "export", &Make<ExportCommand>},
    {"store", "export", &Make<ExportCommand>},
    {"import", "import", &Make<ImportCommand>},
    {"load", "import", &Make<ImportCommand>},
};

}  // namespace

std::unique_ptr<Command> ParseCommand(TokenCursor& cursor, Environment& env) {
  std::string_view token = *cursor.next;
  for (const Keyword& keyword : kKeywords) {
    if (token != keyword.token) continue;
    std::unique_ptr<Command> command = keyword.make(keyword.name, &env);
    ++cursor.next;
    --cursor.remaining;
    if (!command->ParseArguments(cursor)) return nullptr;
    return command;
  }
  *env.error << "fatal: unknown command '" << token << "'\n";
  return nullptr;
}
