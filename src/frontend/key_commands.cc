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
  return ReportBackendResult(OpenRootKey()->RemoveKey(key_name));
}

bool RenameKeyCommand::ParseArguments(TokenCursor& cursor) {
  return ReadKeyName(cursor, key_name) && ReadKeyName(cursor, new_key_name);
}

bool RenameKeyCommand::Execute() {
  return ReportBackendResult(OpenRootKey()->RenameKey(key_name, new_key_name));
}

bool CopyKeyCommand::ParseArguments(TokenCursor& cursor) {
  return ReadKeyName(cursor, key_name) && ReadKeyName(cursor, new_key_name);
}

bool CopyKeyCommand::Execute() {
  return ReportBackendResult(OpenRootKey()->CopyKey(key_name, new_key_name));
}
