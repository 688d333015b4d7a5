#include "frontend/key_commands.h"

#include "registry/backend.h"

namespace {

// The registry's root key, which the whole-key operations work from.
regkey::KeyPtr OpenRootKey() {
  return regkey::registry_backend->Create(registry_root, 0, false, std::string_view(), false);
}

}  // namespace

bool RemoveKeyCommand::ParseArguments(TokenCursor& cursor) {
  return ReadKeyName(cursor, key_name);
}

bool RemoveKeyCommand::Execute() {
  if (!OpenRootKey()->RemoveKey(key_name)) {
    FailureStream(true) << "backend operation failed\n";
    return false;
  }
  Note("completed");
  return true;
}

bool RenameKeyCommand::ParseArguments(TokenCursor& cursor) {
  return ReadKeyName(cursor, key_name) && ReadKeyName(cursor, new_key_name);
}

bool RenameKeyCommand::Execute() {
  if (!OpenRootKey()->RenameKey(key_name, new_key_name)) {
    FailureStream(true) << "backend operation failed\n";
    return false;
  }
  Note("completed");
  return true;
}

bool CopyKeyCommand::ParseArguments(TokenCursor& cursor) {
  return ReadKeyName(cursor, key_name) && ReadKeyName(cursor, new_key_name);
}

bool CopyKeyCommand::Execute() {
  if (!OpenRootKey()->CopyKey(key_name, new_key_name)) {
    FailureStream(true) << "backend operation failed\n";
    return false;
  }
  Note("completed");
  return true;
}
