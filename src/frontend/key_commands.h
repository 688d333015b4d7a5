// The commands that act on a key with everything below it: remove, rename,
// copy. They open the registry's root key and hand KEY and NEW_KEY, as
// given, to RemoveKey, RenameKey and CopyKey.
#ifndef HIVECTL_FRONTEND_KEY_COMMANDS_H_
#define HIVECTL_FRONTEND_KEY_COMMANDS_H_

#include <string>

#include "frontend/command.h"

class RemoveKeyCommand final : public CommandBase {
 public:
  using CommandBase::CommandBase;
  bool ParseArguments(TokenCursor& cursor) override;
  bool Prepare() override { return true; }
  bool Execute() override;
};

class RenameKeyCommand final : public CommandBase {
 public:
  using CommandBase::CommandBase;
  bool ParseArguments(TokenCursor& cursor) override;
  bool Prepare() override { return true; }
  bool Execute() override;

 private:
  std::string new_key_name;
};

class CopyKeyCommand final : public CommandBase {
 public:
  using CommandBase::CommandBase;
  bool ParseArguments(TokenCursor& cursor) override;
  bool Prepare() override { return true; }
  bool Execute() override;

 private:
  std::string new_key_name;
};

#endif  // HIVECTL_FRONTEND_KEY_COMMANDS_H_
