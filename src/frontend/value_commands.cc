#include "frontend/value_commands.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <istream>
#include <system_error>

#include "frontend/value_parse.h"
#include "registry/backend.h"
#include "support/value_codec.h"

namespace {

// Room kept behind the content while reading a file, and the chunk size.
constexpr size_t kReadChunk = 4096;
constexpr size_t kReadReserve = kReadChunk + 1;

// The shared part of copyv and renamev: reads the source value as stored and
// writes it under the new name, creating the destination key if needed.
// Null on success, else the failure text. `source` receives the source key.
const char* CopyValue(const std::string& key_name, const std::string& value_name,
                      const std::string& new_key_name, const std::string& new_value_name,
                      regkey::KeyPtr& source) {
  source = regkey::registry_backend->Create(registry_root, 0, false, key_name, false);
  regkey::ValueBuffer value;
  regkey::ValueType type = regkey::kTypeBin;
  int64_t result = source->GetValue(value, &type, value_name.c_str());
  if (result <= 0) return "backend operation failed (read source)\n";
  regkey::KeyPtr destination =
      regkey::registry_backend->Create(registry_root, 0, false, new_key_name, true);
  if (!destination->SetValue(value.get(), static_cast<size_t>(result), type,
                             new_value_name.c_str())) {
    return "backend operation failed (write destination)\n";
  }
  return nullptr;
}

}  // namespace

bool GetCommand::ParseArguments(TokenCursor& cursor) {
  return ReadKeyName(cursor, key_name) && ReadValueName(cursor, value_name);
}

bool GetCommand::Execute() {
  regkey::KeyPtr key = regkey::registry_backend->Create(registry_root, 0, true, key_name, false);
  regkey::ValueBuffer value;
  regkey::ValueType type = regkey::kTypeBin;
  int64_t result = key->GetValue(value, &type, value_name.c_str());
  if (result <= 0) {
    FailureStream(true) << "backend operation failed\n";
    return false;
  }
  std::ostream& out = *env->output;
  switch (type) {
    case regkey::kTypeI32:
      WriteDecimal(out, DecodeFixed32(value.get()));
      out << '\n';
      break;
    case regkey::kTypeI64:
      WriteDecimal(out, DecodeFixed64(value.get()));
      out << '\n';
      break;
    case regkey::kTypeStr: {
      size_t length = static_cast<size_t>(result) - 1;
      out.write(value.get(), static_cast<std::streamsize>(length));
      if (length == 0 || value.get()[length - 1] != '\n') out << '\n';
      break;
    }
    case regkey::kTypeBin: {
      std::string encoded;
      if (!Base64EncodeTo(value.get(), static_cast<size_t>(result), encoded)) {
        FailureStream(true) << "base64 encode failed\n";
        return false;
      }
      out << encoded << '\n';
      break;
    }
    default:
      FailureStream(true) << "unexpected type: " << static_cast<int>(type) << '\n';
      return false;
  }
  out.flush();
  Note("completed");
  return true;
}

bool SetCommand::ParseArguments(TokenCursor& cursor) {
  if (!ReadKeyName(cursor, key_name) || !ReadValueName(cursor, value_name)) return false;
  if (cursor.remaining == 0) {
    FailureStream(true) << "type is not specified\n";
    return false;
  }
  type = ParseSetType(*cursor.next);
  if (type == kSetUnknown) {
    FailureStream(true) << "unknown type '" << *cursor.next << "'\n";
    return false;
  }
  ++cursor.next;
  --cursor.remaining;
  if (cursor.remaining == 0) {
    FailureStream(true) << "value is not specified\n";
    return false;
  }
  if (!ParseValueData(*cursor.next)) return false;
  ++cursor.next;
  --cursor.remaining;
  return true;
}

bool SetCommand::ParseValueData(std::string_view token) {
  if (type == kSetFstr || type == kSetFbin) {  // read in Prepare
    file_name.assign(token);
    return true;
  }
  return DecodeValueText(type, token, data, size,
                         [this]() -> std::ostream& { return FailureStream(true); });
}

bool SetCommand::Prepare() {
  if (file_name.empty()) return true;
  std::unique_ptr<std::istream> file;
  std::istream* stream = env->input;
  if (file_name != "-") {
    std::error_code error_code;
    file = env->OpenInputFile(file_name.c_str(), error_code);
    if (!file) {
      ReportOpenFailure(file_name, error_code);
      return false;
    }
    stream = file.get();
  }
  errno = 0;
  if (!ReadStream(*stream)) {
    // A read error (e.g. FILE is a directory) must not pass for an empty file.
    ReportReadFailure(file_name, errno);
    return false;
  }
  if (type == kSetFstr) {
    data[size] = '\0';
    const void* nul = std::memchr(data.get(), '\0', size);
    if (nul != nullptr) {
      FailureStream(true) << "file '" << file_name << "' contains a null byte at position "
                          << static_cast<const char*>(nul) - data.get()
                          << " and can not be stored as a string\n";
      return false;
    }
  }
  Note("file/stdin parsing completed");
  return true;
}

// Reads to the end of `stream` in chunks, growing the block by half its
// capacity at a time, always keeping one byte free behind the content.
bool SetCommand::ReadStream(std::istream& stream) {
  size = 0;
  size_t capacity = kReadReserve;
  data = std::make_unique<char[]>(capacity);
  if (stream.eof()) return true;
  while (true) {
    if (capacity < size + kReadReserve) {
      size_t grown = std::max<size_t>(size + kReadReserve, capacity * 3 >> 1);
      auto block = std::make_unique<char[]>(grown);
      std::memcpy(block.get(), data.get(), size);
      data = std::move(block);
      capacity = grown;
    }
    stream.read(data.get() + size, kReadChunk);
    size += static_cast<size_t>(stream.gcount());
    if (stream.eof()) return true;
    // A stream that failed without reaching its end would never get there.
    if (stream.fail()) return false;
  }
}

bool SetCommand::Execute() {
  regkey::KeyPtr key = regkey::registry_backend->Create(registry_root, 0, false, key_name, true);
  const bool stored =
      key->SetValue(data.get(), size, SetTypeToValueType(type), value_name.c_str());
  return ReportBackendResult(stored);
}

bool ExistsCommand::ParseArguments(TokenCursor& cursor) {
  return ReadKeyName(cursor, key_name) && ReadValueName(cursor, value_name);
}

bool ExistsCommand::Execute() {
  regkey::KeyPtr key = regkey::registry_backend->Create(registry_root, 0, true, key_name, false);
  *env->output << (key->CheckValueExists(value_name) ? "true\n" : "false\n");
  env->output->flush();
  Note("completed");
  return true;
}

bool RemoveValueCommand::ParseArguments(TokenCursor& cursor) {
  return ReadKeyName(cursor, key_name) && ReadValueName(cursor, value_name);
}

bool RemoveValueCommand::Execute() {
  regkey::KeyPtr key = regkey::registry_backend->Create(registry_root, 0, false, key_name, false);
  return ReportBackendResult(key->RemoveValue(value_name));
}

bool RenameValueCommand::ParseArguments(TokenCursor& cursor) {
  return ReadKeyName(cursor, key_name) && ReadValueName(cursor, value_name) &&
         ReadKeyName(cursor, new_key_name) && ReadValueName(cursor, new_value_name);
}

bool RenameValueCommand::Execute() {
  regkey::KeyPtr source;
  if (const char* failure = CopyValue(key_name, value_name, new_key_name, new_value_name, source)) {
    FailureStream(true) << failure;
    return false;
  }
  if (!source->RemoveValue(value_name)) {
    FailureStream(true) << "backend operation failed (remove source)\n";
    return false;
  }
  Note("completed");
  return true;
}

bool CopyValueCommand::ParseArguments(TokenCursor& cursor) {
  return ReadKeyName(cursor, key_name) && ReadValueName(cursor, value_name) &&
         ReadKeyName(cursor, new_key_name) && ReadValueName(cursor, new_value_name);
}

bool CopyValueCommand::Execute() {
  regkey::KeyPtr source;
  if (const char* failure = CopyValue(key_name, value_name, new_key_name, new_value_name, source)) {
    FailureStream(true) << failure;
    return false;
  }
  Note("completed");
  return true;
}
