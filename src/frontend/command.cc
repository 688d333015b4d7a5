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

LineBuffer::~LineBuffer() { WriteLines(true); }

LineBuffer::int_type LineBuffer::overflow(int_type c) {
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  const char byte = traits_type::to_char_type(c);
  xsputn(&byte, 1);
  return c;
}

std::streamsize LineBuffer::xsputn(const char* text, std::streamsize count) {
  pending_.append(text, static_cast<size_t>(count));
  if (std::char_traits<char>::find(text, static_cast<size_t>(count), '\n') != nullptr) {
    WriteLines(false);
  }
  return count;
}

int LineBuffer::sync() {
  WriteLines(true);
  return 0;
}

void LineBuffer::WriteLines(bool all) {
  const size_t end = all ? pending_.size() : pending_.rfind('\n') + 1;
  if (end == 0) return;
  sink_.write(pending_.data(), static_cast<std::streamsize>(end));
  sink_.flush();
  pending_.erase(0, end);
}

std::ostream& CommandBase::Diagnostics() {
  if (diagnostics_ == nullptr) diagnostics_ = std::make_unique<DiagnosticStream>(*env->error);
  return diagnostics_->stream;
}

void CommandBase::WriteHeader(const char* prefix) {
  std::ostream& out = Diagnostics();
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
  return Diagnostics();
}

void CommandBase::Note(std::string_view text) {
  if (!env->verbose) return;
  WriteHeader("note: ");
  Diagnostics() << text << '\n';
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
  ReportFileFailure("open", path, error_code);
}

void CommandBase::ReportReadFailure(const std::string& path, int error_number) {
  ReportFileFailure("read", path,
                    std::error_code(error_number != 0 ? error_number : EIO, std::system_category()));
}

void CommandBase::ReportFileFailure(const char* verb, const std::string& path,
                                    const std::error_code& error_code) {
  FailureStream(true) << "can't " << verb << " file '" << path << "': (" << error_code.value()
                      << ") " << error_code.message() << '\n';
}
