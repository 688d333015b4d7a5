// A registry key in a PostgreSQL database: every operation is one call of a
// server function of schema "registry" over the key's own session. The
// client keeps no copy of the registry; enumerations fetch all rows of a key
// with one query, lazily, on the first call that needs them.
//
// A key whose session is closed is unusable and answers as KeyStub does. A
// read-only key tests its existence only in IsValid; other operations on a
// missing read-only key simply find nothing. Database errors are logged
// ("ReqistryKeyDB: <step> failed: ...", level 4) and answered by false or 0,
// except while stepping through rows already fetched by an enumeration,
// where cppdb's exception reaches the caller.
//
// Thread safety: one key object is used by one thread at a time.
#ifndef HIVECTL_REGISTRY_DB_KEY_H_
#define HIVECTL_REGISTRY_DB_KEY_H_

#include <memory>
#include <string>
#include <string_view>

#include <cppdb/frontend.h>

#include "registry/key.h"

namespace regkey {

class DBBackend;

// The full path of `relative` below the key at `path`: `relative` alone if
// `path` is empty, else path + "\" + relative (ending in a backslash when
// `relative` is empty). Backslashes are not collapsed.
std::string JoinPath(std::string_view path, std::string_view relative);

class DBKey final : public BackendKey {
 public:
  // The key at root + "\" + path, runs of backslashes collapsed. Unusable if
  // root or path begins or ends with a backslash, if no session can be
  // opened, or, for a writable key without `create`, if it does not exist.
  DBKey(std::shared_ptr<DBBackend> backend, std::string_view root, std::string_view path,
        bool read_only, bool create);
  // A key on `path` exactly as given, for NextSubKey and Clone; usable if a
  // session could be opened.
  DBKey(std::shared_ptr<DBBackend> backend, std::string path, bool read_only,
        bool check_pending);

  KeyPtr Clone() override;
  bool IsValid() override;
  bool CheckValueExists(std::string_view name) override;
  uint32_t CountValues() override;
  uint32_t CountSubKeys() override;
  void ResetValues() override;
  void ResetSubKeys() override;
  KeyPtr NextSubKey(bool read_only) override;
  bool NextSubKeyName(std::string& name) override;
  std::string_view GetName() override;
  std::string GetDefaultString() override;

 private:
  int64_t ReadValue(const char* name, const ValueRequest& request) override;
  int64_t ReadNextValue(std::string& name, const ValueRequest& request) override;
  bool WriteValue(const void* data, size_t size, ValueType type, const char* name) override;
  bool DeleteValue(std::string_view name) override;
  bool DeleteKey(std::string_view path) override;
  bool MoveKey(std::string_view from, std::string_view to) override;
  bool MergeKey(std::string_view from, std::string_view to) override;
  bool IsBound() override;
  std::string_view RefusalName() override;

  // Fetches value `name`; false if it is missing, NULL or on an error.
  bool LoadValue(const char* name, int& code, std::string& text);
  // StoreValue on this key; a null name throws std::logic_error.
  bool StoreNamedValue(const char* name, int code, const char* text);
  // The rows of one enumeration, queried at the first step after a reset.
  struct LazyRows {
    bool stale = true;
    // Whether `rows` holds the rows of a query: cppdb's result cannot be
    // stepped before it does.
    bool fetched = false;
    cppdb::result rows;
  };
  // Steps `cursor` to its next row, first running `statement` on this key's
  // path if the cursor is stale; failures are logged under `step`.
  bool NextRow(LazyRows& cursor, const char* step, const std::string& statement);
  // Steps `values`; false at the end or on a NULL column.
  bool NextValueRow(std::string& name, int& code, std::string& text);
  // A move or copy of a subtree by the server function `statement`.
  bool RunMoveOrCopy(const char* operation, const std::string& statement, std::string_view from,
                     std::string_view to);

  // Constant after construction, but for `session_`, which IsValid may close.
  std::shared_ptr<DBBackend> backend_;
  cppdb::session session_;
  std::string path_;
  // Cursor state.
  bool check_pending_ = false;
  LazyRows values_;
  LazyRows subkeys_;
};

}  // namespace regkey

#endif  // HIVECTL_REGISTRY_DB_KEY_H_
