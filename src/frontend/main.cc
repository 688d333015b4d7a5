// The program: main() and the table of command keywords, which sits here at
// the top so that the command framework needs none of the commands.
#include <memory>
#include <string_view>

#include "frontend/command.h"
#include "frontend/entry.h"
#include "frontend/key_commands.h"
#include "frontend/show_command.h"
#include "frontend/value_commands.h"
#include "transfer/export_command.h"
#include "transfer/import_command.h"

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

}  // namespace

int main(int argc, char** argv) { return HivectlMain(argc, argv, &ParseCommand); }
