#include "registry/db_key.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <utility>

#include <cppdb/errors.h>

#include "registry/conversions.h"
#include "registry/db_backend.h"
#include "registry/key_paths.h"
#include "support/encoders.h"
#include "support/log.h"

namespace regkey {

namespace {

// What the memory backend throws for a null text or value name; both
// backends end such a call the same way.
constexpr char kNullStringError[] = "basic_string: construction from null is not valid";

std::string CollapseBackslashes(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (c != '\\' || out.empty() || out.back() != '\\') out.push_back(c);
  }
  return out;
}

bool HasOuterBackslash(std::string_view text) {
  return !text.empty() && (text.front() == '\\' || text.back() == '\\');
}

// Reads column `col` of the current row; NULL is an error.
template <typename T>
T FetchNotNull(cppdb::result& row, int col) {
  T value{};
  if (!row.fetch(col, value)) throw cppdb::null_value_fetch();
  return value;
}

bool CheckKeyExists(cppdb::session& session, const std::string& path) {
  try {
    cppdb::result row = session.prepare(sql::kHasKey).bind(path.c_str()).query();
    return row.next() && FetchNotNull<std::string>(row, 0) == "t";
  } catch (const cppdb::cppdb_error& error) {
    LogDBFailure(4, "CheckKeyExists", error);
    return false;
  }
}

bool StoreValue(cppdb::session& session, const std::string& path, const char* name, int code,
                const char* text) {
  try {
    session.prepare(sql::kAddValue).bind(path.c_str()).bind(name).bind(code).bind(text).query();
    return true;
  } catch (const cppdb::cppdb_error& error) {
    LogDBFailure(4, "StoreValue", error);
    return false;
  }
}

// The value type of a wire code; false for a code outside the four.
bool TypeOfCode(int code, ValueType& type) {
  switch (code) {
    case kWireI32: type = kTypeI32; return true;
    case kWireI64: type = kTypeI64; return true;
    case kWireStr: type = kTypeStr; return true;
    case kWireBin: type = kTypeBin; return true;
    default: return false;
  }
}

bool IsTextCode(int code) { return code == kWireStr || code == kWireI32 || code == kWireI64; }

// ConvertStoredText into a fresh block that `out` takes over on success.
int64_t ConvertToBuffer(int code, const std::string& text, ValueType type, ValueBuffer& out) {
  void* block = nullptr;
  int64_t size = ConvertStoredText(code, text, type, &block, kMaxValueSize);
  if (size > 0) {
    out.reset(static_cast<char*>(block));
  } else {
    std::free(block);
  }
  return size;
}

}  // namespace

std::string JoinPath(std::string_view path, std::string_view relative) {
  if (path.empty()) return std::string(relative);
  std::string joined;
  joined.reserve(path.size() + 1 + relative.size());
  joined.append(path).append(1, '\\').append(relative);
  return joined;
}

DBKey::DBKey(std::shared_ptr<DBBackend> backend_in, std::string_view root,
             std::string_view relative, bool read_only_in, bool create)
    : backend(std::move(backend_in)), read_only(read_only_in) {
  if (HasOuterBackslash(root) || HasOuterBackslash(relative)) return;
  cppdb::session local = backend->OpenSession();
  if (!local.is_open()) return;
  path = CollapseBackslashes(root);
  if (!root.empty() && !relative.empty()) path.push_back('\\');
  path += CollapseBackslashes(relative);
  if (read_only) {
    check_pending = true;  // Opening for reading costs no round trip.
  } else if (!create && !CheckKeyExists(local, path)) {
    return;
  }
  session = local;
}

DBKey::DBKey(std::shared_ptr<DBBackend> backend_in, std::string path_in, bool read_only_in,
             bool check_pending_in)
    : backend(std::move(backend_in)),
      path(std::move(path_in)),
      read_only(read_only_in),
      check_pending(check_pending_in) {
  cppdb::session local = backend->OpenSession();
  if (local.is_open()) session = local;
}

KeyPtr DBKey::Clone() { return KeyPtr(new DBKey(backend, path, read_only, check_pending)); }

bool DBKey::IsValid() {
  if (!session.is_open()) return false;
  if (check_pending) {
    check_pending = false;
    if (!CheckKeyExists(session, path)) {
      session.close();
      return false;
    }
  }
  return true;
}

bool DBKey::LoadValue(const char* name, int& code, std::string& text) {
  try {
    cppdb::result row = session.prepare(sql::kGetValue).bind(path.c_str()).bind(name).query();
    unsigned short wire = 0;
    if (!row.next() || !row.fetch(0, wire) || !row.fetch(1, text)) return false;
    code = wire;
    return true;
  } catch (const cppdb::cppdb_error& error) {
    LogDBFailure(4, "LoadValue", error);
    return false;
  }
}

int64_t DBKey::GetValue(void* buffer, size_t size, ValueType type, const char* name) {
  int code = 0;
  std::string text;
  if (!session.is_open() || !LoadValue(name, code, text)) return 0;
  void* out = buffer;
  return ConvertStoredText(code, text, type, &out, size);
}

int64_t DBKey::GetValue(ValueBuffer& out, ValueType type, const char* name) {
  int code = 0;
  std::string text;
  if (!session.is_open() || !LoadValue(name, code, text)) return 0;
  return ConvertToBuffer(code, text, type, out);
}

int64_t DBKey::GetValue(void* buffer, size_t size, ValueType* type, const char* name) {
  int code = 0;
  std::string text;
  if (!session.is_open() || !LoadValue(name, code, text) || !TypeOfCode(code, *type)) return 0;
  void* out = buffer;
  return ConvertStoredText(code, text, *type, &out, size);
}

int64_t DBKey::GetValue(ValueBuffer& out, ValueType* type, const char* name) {
  int code = 0;
  std::string text;
  if (!session.is_open() || !LoadValue(name, code, text) || !TypeOfCode(code, *type)) return 0;
  return ConvertToBuffer(code, text, *type, out);
}

bool DBKey::GetString(std::string& out, const char* name) {
  int code = 0;
  std::string text;
  if (!session.is_open() || !LoadValue(name, code, text) || !IsTextCode(code)) return false;
  out = std::move(text);
  return true;
}

bool DBKey::SetValue(const void* data, size_t size, ValueType type, const char* name) {
  if (!session.is_open()) return false;
  if (read_only) {
    LogReadOnly("SetValue", name ? name : "(null)", nullptr, {});
    return false;
  }
  switch (type) {
    case kTypeStr:
      if (data == nullptr) throw std::logic_error(kNullStringError);
      return StoreNamedValue(name, kWireStr, static_cast<const char*>(data));
    case kTypeI32: {
      if (size < 4) return false;
      int32_t number;
      std::memcpy(&number, data, 4);
      char text[12];
      std::snprintf(text, sizeof text, "%i", number);
      return StoreNamedValue(name, kWireI32, text);
    }
    case kTypeI64: {
      if (size < 8) return false;
      int64_t number;
      std::memcpy(&number, data, 8);
      char text[21];
      std::snprintf(text, sizeof text, "%" PRId64, number);
      return StoreNamedValue(name, kWireI64, text);
    }
    case kTypeBin: {
      size_t encoded_size = 0;
      Base64Encode(data, size, nullptr, encoded_size);
      std::string text(encoded_size, '\0');
      if (!Base64Encode(data, size, text.data(), encoded_size)) return false;
      return StoreNamedValue(name, kWireBin, text.c_str());
    }
  }
  return false;
}

bool DBKey::StoreNamedValue(const char* name, int code, const char* text) {
  if (name == nullptr) throw std::logic_error(kNullStringError);
  return StoreValue(session, path, name, code, text);
}

bool DBKey::CheckValueExists(std::string_view name) {
  if (!session.is_open()) return false;
  try {
    cppdb::result row =
        session.prepare(sql::kHasValue).bind(path.c_str()).bind(std::string(name).c_str()).query();
    return row.next() && FetchNotNull<std::string>(row, 0) == "t";
  } catch (const cppdb::cppdb_error& error) {
    LogDBFailure(4, "CheckValueExists", error);
    return false;
  }
}

bool DBKey::RemoveValue(std::string_view name) {
  if (!session.is_open()) return false;
  if (read_only) {
    LogReadOnly("RemoveValue", name, nullptr, {});
    return false;
  }
  try {
    cppdb::result row = session.prepare(sql::kDeleteValue)
                            .bind(path.c_str())
                            .bind(std::string(name).c_str())
                            .query();
    return row.next() && FetchNotNull<int>(row, 0) == 0;
  } catch (const cppdb::cppdb_error& error) {
    LogDBFailure(4, "RemoveValue", error);
    return false;
  }
}

bool DBKey::RemoveKey(std::string_view relative) {
  if (!session.is_open()) return false;
  if (read_only) {
    LogReadOnly("RemoveKey", relative, nullptr, {});
    return false;
  }
  try {
    session.prepare(sql::kDeleteKey).bind(JoinPath(path, relative).c_str()).query();
    return true;
  } catch (const cppdb::cppdb_error& error) {
    LogDBFailure(4, "RemoveKey", error);
    return false;
  }
}

bool DBKey::RenameKey(std::string_view from, std::string_view to) {
  return MoveOrCopy("RenameKey", sql::kRenameKey, from, to);
}

bool DBKey::CopyKey(std::string_view from, std::string_view to) {
  return MoveOrCopy("CopyKey", sql::kCopyValues, from, to);
}

bool DBKey::MoveOrCopy(const char* operation, const std::string& statement, std::string_view from,
                       std::string_view to) {
  if (!session.is_open()) return false;
  if (read_only) {
    LogReadOnly(operation, from, "'->'", to);
    return false;
  }
  switch (ComparePaths(from, to)) {
    case PathRelation::kSame: return true;
    case PathRelation::kNested: return false;
    case PathRelation::kApart: break;
  }
  try {
    cppdb::result row = session.prepare(statement)
                            .bind(JoinPath(path, from).c_str())
                            .bind(JoinPath(path, to).c_str())
                            .query();
    return row.next() && FetchNotNull<int>(row, 0) == 0;
  } catch (const cppdb::cppdb_error& error) {
    LogDBFailure(4, operation, error);
    return false;
  }
}

uint32_t DBKey::CountValues() {
  if (!session.is_open()) return 0;
  try {
    cppdb::result row = session.prepare(sql::kGetValuesCount).bind(path.c_str()).query();
    return row.next() ? FetchNotNull<unsigned>(row, 0) : 0;
  } catch (const cppdb::cppdb_error& error) {
    LogDBFailure(4, "CountValues", error);
    return 0;
  }
}

uint32_t DBKey::CountSubKeys() {
  if (!session.is_open()) return 0;
  try {
    cppdb::result row = session.prepare(sql::kCountSubkeys).bind(path.c_str()).query();
    return row.next() ? FetchNotNull<unsigned>(row, 0) : 0;
  } catch (const cppdb::cppdb_error& error) {
    LogDBFailure(4, "CountSubKeys", error);
    return 0;
  }
}

void DBKey::ResetValues() { values_stale = true; }

void DBKey::LoadValues() {
  if (!values_stale) return;
  values_stale = false;
  values = cppdb::result();
  values_fetched = false;
  if (!session.is_open()) return;
  try {
    values = session.prepare(sql::kGetValues).bind(path.c_str()).query();
    values_fetched = true;
  } catch (const cppdb::cppdb_error& error) {
    LogDBFailure(4, "LoadValues", error);
  }
}

bool DBKey::NextValueRow(std::string& name, int& code, std::string& text) {
  LoadValues();
  if (!values_fetched || !values.next()) return false;
  unsigned short wire = 0;
  if (!values.fetch(0, name) || !values.fetch(1, wire) || !values.fetch(2, text)) return false;
  code = wire;
  return true;
}

int64_t DBKey::NextValue(ValueBuffer& out, ValueType type, std::string& name) {
  int code = 0;
  std::string text;
  if (!NextValueRow(name, code, text)) return 0;
  return ConvertToBuffer(code, text, type, out);
}

int64_t DBKey::NextValue(ValueBuffer& out, ValueType* type, std::string& name) {
  int code = 0;
  std::string text;
  if (!NextValueRow(name, code, text) || !TypeOfCode(code, *type)) return 0;
  return ConvertToBuffer(code, text, *type, out);
}

bool DBKey::NextString(std::string& value, std::string& name) {
  int code = 0;
  std::string text;
  if (!NextValueRow(name, code, text) || !IsTextCode(code)) return false;
  value = std::move(text);
  return true;
}

void DBKey::ResetSubKeys() { subkeys_stale = true; }

void DBKey::ListSubkeys() {
  if (!subkeys_stale) return;
  subkeys_stale = false;
  subkeys = cppdb::result();
  subkeys_fetched = false;
  if (!session.is_open()) return;
  try {
    subkeys = session.prepare(sql::kGetSubkeys).bind(path.c_str()).query();
    subkeys_fetched = true;
  } catch (const cppdb::cppdb_error& error) {
    LogDBFailure(4, "ListSubkeys", error);
  }
}

KeyPtr DBKey::NextSubKey(bool read_only_subkey) {
  ListSubkeys();
  std::string subkey_path;
  if (!subkeys_fetched || !subkeys.next() || !subkeys.fetch(0, subkey_path)) return KeyPtr();
  KeyPtr key(new DBKey(backend, std::move(subkey_path), read_only_subkey, false));
  if (!key->IsValid()) return KeyPtr();
  return key;
}

bool DBKey::NextSubKeyName(std::string& name) {
  ListSubkeys();
  if (!subkeys_fetched || !subkeys.next() || !subkeys.fetch(0, name)) return false;
  size_t slash = name.rfind('\\');
  if (slash != std::string::npos) name.erase(0, slash + 1);
  return true;
}

std::string_view DBKey::GetName() {
  if (!session.is_open()) return {};
  std::string_view view(path);
  size_t slash = view.rfind('\\');
  return slash == std::string_view::npos ? view : view.substr(slash + 1);
}

std::string DBKey::GetDefaultString() {
  std::string out;
  if (!GetString(out, "")) return {};
  return out;
}

void DBKey::LogReadOnly(const char* operation, std::string_view first, const char* joiner,
                        std::string_view second) {
  if (!LogEnabled(1, kLogModuleOther)) return;
  LogLine line(1, kLogModuleOther);
  std::ostream& stream = line.stream();
  stream << operation << " '" << first;
  if (joiner) stream << joiner << second;
  stream << "' on read-only key '" << path << "'";
}

}  // namespace regkey
