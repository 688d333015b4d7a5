#include "frontend/command.h"

#include <cerrno>
#include <system_error>

#include "registry/key_paths.h"

std::string registry_root;

bool CommandBase::ReadKeyName(TokenCursor& cursor, std::string& target) {
  if (cursor.remaining == 0) {
    FailureStream(true) << "key name is not specified\n";
    return false;
  }
  std::string_view token = *cursor.next;
  if (regkey::StartsWithBackslash(token)) {
    FailureStream(true) << "key name '" << token << "' is invalid: starts with '\\'\n";
    return false;
  }
  if (regkey::EndsWithBackslash(token)) {
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

void CommandBase::ReportReadFailure(const std::string& path, int error_number) {
  const std::error_code error_code(error_number != 0 ? error_number : EIO, std::system_category());
  FailureStream(true) << "can't read file '" << path << "': (" << error_code.value() << ") "
                      << error_code.message() << '\n';
}
