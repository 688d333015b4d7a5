// export KEY FILE: writes every value of KEY and of all keys below it as
// registry CSV to FILE, or to the standard output for "-". Prepare creates
// or truncates the file, so that it is emptied before any command of the
// line executes; Execute walks the tree depth first and streams the rows.
#ifndef HIVECTL_TRANSFER_EXPORT_COMMAND_H_
#define HIVECTL_TRANSFER_EXPORT_COMMAND_H_

#include <memory>
#include <ostream>
#include <string>

#include "frontend/command.h"
#include "registry/key.h"
#include "transfer/progress.h"

class ExportCommand final : public CommandBase {
 public:
  using CommandBase::CommandBase;

  bool ParseArguments(TokenCursor& cursor) override;
  bool Prepare() override;
  bool Execute() override;

 private:
  // Writes the rows of `top` (empty KNAME) and of every key below it.
  // False on a value that cannot be written; the message is out.
  bool ExportKey(regkey::Key& top, std::ostream& out, ProgressReport& progress);
  bool WriteKeyValues(regkey::Key& key, const std::string& path, std::ostream& out,
                      ProgressReport& progress);

  std::string file_name;
  std::unique_ptr<std::ostream> output_file;  // null for "-" and after Execute
};

#endif  // HIVECTL_TRANSFER_EXPORT_COMMAND_H_
