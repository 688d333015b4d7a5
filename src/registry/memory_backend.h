// The memory backend: a registry held in this process's memory, on the tree
// of memory_tree.h. Nothing survives the process.
//
// A MemoryKey holds a shared_ptr to its node, not a path: it keeps
// addressing the same node after a parent is renamed or removed (then what it
// reads and writes is detached from the registry), and it keeps the node
// alive past a new Init of the backend.
//
// Thread safety: as for every Key, distinct keys may be used from different
// threads at once, also on the same node (the tree locks per node); one key
// object must not be shared. Create may run in several threads at once.
// None of Create, RemoveKey, RenameKey, CopyKey is atomic as a whole.
#ifndef HIVECTL_REGISTRY_MEMORY_BACKEND_H_
#define HIVECTL_REGISTRY_MEMORY_BACKEND_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "registry/backend.h"
#include "registry/key.h"
#include "registry/memory_tree.h"

namespace regkey {

class MemoryBackend : public Backend {
 public:
  // Walks `root` then `path` from the top, skipping empty components (a run
  // of backslashes counts as one); creates missing nodes only when `create`
  // and not `read_only`. A leading or trailing backslash, a missing node, or
  // no Init yet give a new KeyStub.
  KeyPtr Create(std::string_view root, int reserved, bool read_only, std::string_view path,
                bool create) override;
  // Prints the whole tree to stderr.
  void Dump() override;
  // Starts a new empty tree; ignores `spec`; always true.
  bool Init(std::string_view spec) override;

 private:
  // Written only by Init, before any other thread uses the backend.
  std::shared_ptr<Node> root_;
};

// Relative paths of RemoveKey, RenameKey and CopyKey are split at every
// backslash, empty components included (they name the empty name); the part
// behind the last backslash is the leaf. A read-only key refuses every change
// with false and a level 1 log line naming the key by its leaf name.
class MemoryKey final : public Key {
 public:
  // REQUIRES: `node` is not null.
  MemoryKey(std::shared_ptr<Node> node, std::string name, bool read_only);

  KeyPtr Clone() override;
  bool IsValid() override;
  int64_t GetValue(void* buffer, size_t size, ValueType type, const char* name) override;
  int64_t GetValue(ValueBuffer& out, ValueType type, const char* name) override;
  int64_t GetValue(void* buffer, size_t size, ValueType* type, const char* name) override;
  int64_t GetValue(ValueBuffer& out, ValueType* type, const char* name) override;
  bool GetString(std::string& out, const char* name) override;
  // Null `data` for str, or a null `name`, throw std::logic_error.
  bool SetValue(const void* data, size_t size, ValueType type, const char* name) override;
  bool CheckValueExists(std::string_view name) override;
  bool RemoveValue(std::string_view name) override;
  // True also when nothing was there to remove.
  bool RemoveKey(std::string_view path) override;
  // Replaces an existing destination whole.
  bool RenameKey(std::string_view from, std::string_view to) override;
  // Merges into an existing destination.
  bool CopyKey(std::string_view from, std::string_view to) override;
  uint32_t CountValues() override;
  uint32_t CountSubKeys() override;
  void ResetValues() override;
  int64_t NextValue(ValueBuffer& out, ValueType type, std::string& name) override;
  int64_t NextValue(ValueBuffer& out, ValueType* type, std::string& name) override;
  bool NextString(std::string& value, std::string& name) override;
  void ResetSubKeys() override;
  KeyPtr NextSubKey(bool read_only) override;
  bool NextSubKeyName(std::string& name) override;
  std::string_view GetName() override;
  // Always empty: this backend serves no default value.
  std::string GetDefaultString() override;

 private:
  // The read-only refusal and the textual path test of RenameKey and
  // CopyKey; true, with `answer` set, when they decide the operation.
  bool DecidedBeforeMove(const char* operation, std::string_view from, std::string_view to,
                         bool& answer);

  // Constant after construction.
  const std::shared_ptr<Node> node_;
  const std::string name_;
  const bool read_only_;
  // Enumeration positions; unguarded, like the key itself.
  uint64_t value_cursor_ = 0;
  uint64_t subkey_cursor_ = 0;
};

}  // namespace regkey

#endif  // HIVECTL_REGISTRY_MEMORY_BACKEND_H_
