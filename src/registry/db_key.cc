#include "registry/db_key.h"

#include <utility>

#include <cppdb/errors.h>

#include "registry/conversions.h"
#include "registry/db_backend.h"
#include "registry/key_paths.h"
#include "support/value_codec.h"

namespace regkey {

namespace {

std::string CollapseBackslashes(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (c != '\\' || out.empty() || out.back() != '\\') out.push_back(c);
  }
  return out;
}

// Runs one statement sequence and answers what it answers; a cppdb error is
// logged ("ReqistryKeyDB: <step> failed: ...", level 4) and answered by
// `failure`.
template <typename Result, typename Body>
Result Guarded(const char* step, Result failure, Body body) {
  try {
    return body();
  } catch (const cppdb::cppdb_error& error) {
    LogDBFailure(4, step, error);
    return failure;
  }
}

// Reads column `col` of the current row; NULL is an error.
template <typename T>
T FetchNotNull(cppdb::result& row, int col) {
  T value{};
  if (!row.fetch(col, value)) throw cppdb::null_value_fetch();
  return value;
}

bool CheckKeyExists(cppdb::session& session, const std::string& path) {
  return Guarded("CheckKeyExists", false, [&] {
    cppdb::result row = session.prepare(sql::kHasKey).bind(path.c_str()).query();
    return row.next() && FetchNotNull<std::string>(row, 0) == "t";
  });
}

bool StoreValue(cppdb::session& session, const std::string& path, const char* name, int code,
                const char* text) {
  return Guarded("StoreValue", false, [&] {
    session.prepare(sql::kAddValue).bind(path.c_str()).bind(name).bind(code).bind(text).query();
    return true;
  });
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

// A value of wire code `code` as `request` asks for it.
int64_t Deliver(int code, std::string& text, const ValueRequest& request) {
  if (request.text != nullptr) {
    if (!IsTextCode(code)) return 0;
    *request.text = std::move(text);
    return 1;
  }
  if (request.as_stored && !TypeOfCode(code, *request.type)) return 0;
  return ConvertStoredText(code, text, *request.type, request.out, request.limit);
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
    : BackendKey(read_only_in), backend_(std::move(backend_in)) {
  if (HasEdgeBackslash(root) || HasEdgeBackslash(relative)) return;
  cppdb::session local = backend_->OpenSession();
  if (!local.is_open()) return;
  path_ = CollapseBackslashes(root);
  if (!root.empty() && !relative.empty()) path_.push_back('\\');
  path_ += CollapseBackslashes(relative);
  if (read_only_in) {
    check_pending_ = true;  // Opening for reading costs no round trip.
  } else if (!create && !CheckKeyExists(local, path_)) {
    return;
  }
  session_ = local;
}

DBKey::DBKey(std::shared_ptr<DBBackend> backend_in, std::string path_in, bool read_only_in,
             bool check_pending_in)
    : BackendKey(read_only_in),
      backend_(std::move(backend_in)),
      path_(std::move(path_in)),
      check_pending_(check_pending_in) {
  cppdb::session local = backend_->OpenSession();
  if (local.is_open()) session_ = local;
}

KeyPtr DBKey::Clone() {
  return KeyPtr(new DBKey(backend_, path_, read_only(), check_pending_));
}

bool DBKey::IsValid() {
  if (!session_.is_open()) return false;
  if (check_pending_) {
    check_pending_ = false;
    if (!CheckKeyExists(session_, path_)) {
      session_.close();
      return false;
    }
  }
  return true;
}

bool DBKey::LoadValue(const char* name, int& code, std::string& text) {
  return Guarded("LoadValue", false, [&] {
    cppdb::result row = session_.prepare(sql::kGetValue).bind(path_.c_str()).bind(name).query();
    unsigned short wire = 0;
    if (!row.next() || !row.fetch(0, wire) || !row.fetch(1, text)) return false;
    code = wire;
    return true;
  });
}

int64_t DBKey::ReadValue(const char* name, const ValueRequest& request) {
  int code = 0;
  std::string text;
  if (!session_.is_open() || !LoadValue(name, code, text)) return 0;
  return Deliver(code, text, request);
}

bool DBKey::WriteValue(const void* data, size_t size, ValueType type, const char* name) {
  switch (type) {
    case kTypeStr:
      if (data == nullptr) ThrowNullText();
      return StoreNamedValue(name, kWireStr, static_cast<const char*>(data));
    case kTypeI32:
      if (size < 4) return false;
      return StoreNamedValue(name, kWireI32,
                             DecimalText(static_cast<int32_t>(DecodeFixed32(data))).c_str());
    case kTypeI64:
      if (size < 8) return false;
      return StoreNamedValue(name, kWireI64,
                             DecimalText(static_cast<int64_t>(DecodeFixed64(data))).c_str());
    case kTypeBin: {
      std::string text;
      if (!Base64EncodeTo(data, size, text)) return false;
      return StoreNamedValue(name, kWireBin, text.c_str());
    }
  }
  return false;
}

bool DBKey::StoreNamedValue(const char* name, int code, const char* text) {
  if (name == nullptr) ThrowNullText();
  return StoreValue(session_, path_, name, code, text);
}

bool DBKey::CheckValueExists(std::string_view name) {
  if (!session_.is_open()) return false;
  return Guarded("CheckValueExists", false, [&] {
    cppdb::result row =
        session_.prepare(sql::kHasValue).bind(path_.c_str()).bind(std::string(name).c_str()).query();
    return row.next() && FetchNotNull<std::string>(row, 0) == "t";
  });
}

bool DBKey::DeleteValue(std::string_view name) {
  return Guarded("RemoveValue", false, [&] {
    cppdb::result row = session_.prepare(sql::kDeleteValue)
                            .bind(path_.c_str())
                            .bind(std::string(name).c_str())
                            .query();
    return row.next() && FetchNotNull<int>(row, 0) == 0;
  });
}

bool DBKey::DeleteKey(std::string_view relative) {
  return Guarded("RemoveKey", false, [&] {
    session_.prepare(sql::kDeleteKey).bind(JoinPath(path_, relative).c_str()).query();
    return true;
  });
}

bool DBKey::MoveKey(std::string_view from, std::string_view to) {
  return RunMoveOrCopy("RenameKey", sql::kRenameKey, from, to);
}

bool DBKey::MergeKey(std::string_view from, std::string_view to) {
  return RunMoveOrCopy("CopyKey", sql::kCopyValues, from, to);
}

bool DBKey::RunMoveOrCopy(const char* operation, const std::string& statement,
                          std::string_view from, std::string_view to) {
  return Guarded(operation, false, [&] {
    cppdb::result row = session_.prepare(statement)
                            .bind(JoinPath(path_, from).c_str())
                            .bind(JoinPath(path_, to).c_str())
                            .query();
    return row.next() && FetchNotNull<int>(row, 0) == 0;
  });
}

uint32_t DBKey::CountValues() {
  if (!session_.is_open()) return 0;
  return Guarded("CountValues", uint32_t{0}, [&] {
    cppdb::result row = session_.prepare(sql::kGetValuesCount).bind(path_.c_str()).query();
    return row.next() ? FetchNotNull<unsigned>(row, 0) : 0;
  });
}

uint32_t DBKey::CountSubKeys() {
  if (!session_.is_open()) return 0;
  return Guarded("CountSubKeys", uint32_t{0}, [&] {
    cppdb::result row = session_.prepare(sql::kCountSubkeys).bind(path_.c_str()).query();
    return row.next() ? FetchNotNull<unsigned>(row, 0) : 0;
  });
}

void DBKey::ResetValues() { values_.stale = true; }

bool DBKey::NextRow(LazyRows& cursor, const char* step, const std::string& statement) {
  if (cursor.stale) {
    cursor.stale = false;
    cursor.rows = cppdb::result();
    cursor.fetched = session_.is_open() && Guarded(step, false, [&] {
      cursor.rows = session_.prepare(statement).bind(path_.c_str()).query();
      return true;
    });
  }
  return cursor.fetched && cursor.rows.next();
}

bool DBKey::NextValueRow(std::string& name, int& code, std::string& text) {
  if (!NextRow(values_, "LoadValues", sql::kGetValues)) return false;
  cppdb::result& row = values_.rows;
  unsigned short wire = 0;
  if (!row.fetch(0, name) || !row.fetch(1, wire) || !row.fetch(2, text)) return false;
  code = wire;
  return true;
}

int64_t DBKey::ReadNextValue(std::string& name, const ValueRequest& request) {
  int code = 0;
  std::string text;
  if (!NextValueRow(name, code, text)) return 0;
  return Deliver(code, text, request);
}

void DBKey::ResetSubKeys() { subkeys_.stale = true; }

KeyPtr DBKey::NextSubKey(bool read_only_subkey) {
  std::string subkey_path;
  if (!NextRow(subkeys_, "ListSubkeys", sql::kGetSubkeys) || !subkeys_.rows.fetch(0, subkey_path)) {
    return KeyPtr();
  }
  KeyPtr key(new DBKey(backend_, std::move(subkey_path), read_only_subkey, false));
  if (!key->IsValid()) return KeyPtr();
  return key;
}

bool DBKey::NextSubKeyName(std::string& name) {
  if (!NextRow(subkeys_, "ListSubkeys", sql::kGetSubkeys) || !subkeys_.rows.fetch(0, name)) {
    return false;
  }
  size_t slash = name.rfind('\\');
  if (slash != std::string::npos) name.erase(0, slash + 1);
  return true;
}

std::string_view DBKey::GetName() {
  if (!session_.is_open()) return {};
  std::string_view view(path_);
  size_t slash = view.rfind('\\');
  return slash == std::string_view::npos ? view : view.substr(slash + 1);
}

std::string DBKey::GetDefaultString() {
  std::string out;
  if (!GetString(out, "")) return {};
  return out;
}

bool DBKey::IsBound() { return session_.is_open(); }

std::string_view DBKey::RefusalName() { return path_; }

}  // namespace regkey
