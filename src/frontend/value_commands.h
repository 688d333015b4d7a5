// The commands that work on one named value: get, set, exists, removev,
// renamev, copyv. Each reports its failures behind FailureStream(true) and
// a success by Note("completed").
#ifndef HIVECTL_FRONTEND_VALUE_COMMANDS_H_
#define HIVECTL_FRONTEND_VALUE_COMMANDS_H_

#include <cstdint>
#include <memory>
#include <string>

#include "frontend/command.h"

// get KEY VALUE: prints the value on env->output (bin as base64).
class GetCommand final : public CommandBase {
 public:
  using CommandBase::CommandBase;
  bool ParseArguments(TokenCursor& cursor) override;
  bool Prepare() override { return true; }
  bool Execute() override;
};

// set KEY VALUE TYPE VALUE_DATA. VALUE_DATA is decoded while parsing, except
// for fstr and fbin, whose file (or standard input for "-") is read in
// Prepare.
class SetCommand final : public CommandBase {
 public:
  using CommandBase::CommandBase;
  bool ParseArguments(TokenCursor& cursor) override;
  bool Prepare() override;
  bool Execute() override;

 private:
  bool ParseValueData(std::string_view token);
  // Reads `stream` to its end into `data`; false on a read error.
  bool ReadStream(std::istream& stream);

  uint32_t type = 0;                // SetType code, 1 to 8 once parsed
  std::unique_ptr<char[]> data;     // null until the value has been read
  uint64_t size = 0;                // without the NUL behind text
  std::string file_name;            // fstr and fbin only
};

// exists KEY VALUE: prints "true" or "false"; succeeds either way.
class ExistsCommand final : public CommandBase {
 public:
  using CommandBase::CommandBase;
  bool ParseArguments(TokenCursor& cursor) override;
  bool Prepare() override { return true; }
  bool Execute() override;
};

// removev KEY VALUE: fails unless a value was removed.
class RemoveValueCommand final : public CommandBase {
 public:
  using CommandBase::CommandBase;
  bool ParseArguments(TokenCursor& cursor) override;
  bool Prepare() override { return true; }
  bool Execute() override;
};

// renamev KEY VALUE NEW_KEY NEW_VALUE: copy, then remove the source. Not a
// transaction: a failed removal leaves both values.
class RenameValueCommand final : public CommandBase {
 public:
  using CommandBase::CommandBase;
  bool ParseArguments(TokenCursor& cursor) override;
  bool Prepare() override { return true; }
  bool Execute() override;

 private:
  std::string new_key_name;
  std::string new_value_name;
};

// copyv KEY VALUE NEW_KEY NEW_VALUE: the destination key is created if
// missing.
class CopyValueCommand final : public CommandBase {
 public:
  using CommandBase::CommandBase;
  bool ParseArguments(TokenCursor& cursor) override;
  bool Prepare() override { return true; }
  bool Execute() override;

 private:
  std::string new_key_name;
  std::string new_value_name;
};

#endif  // HIVECTL_FRONTEND_VALUE_COMMANDS_H_
