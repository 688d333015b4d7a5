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
// behind the last backslash is the leaf. The refusal line of a read-only key
// names the key by its leaf name.
class MemoryKey final : public BackendKey {
 public:
  // REQUIRES: `node` is not null.
  MemoryKey(std::shared_ptr<Node> node, std::string name, bool read_only);

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
  // Always empty: this backend serves no default value.
  std::string GetDefaultString() override;

 private:
  int64_t ReadValue(const char* name, const ValueRequest& request) override;
  int64_t ReadNextValue(std::string& name, const ValueRequest& request) override;
  // Null `data` for str, or a null `name`, throw std::logic_error.
  bool WriteValue(const void* data, size_t size, ValueType type, const char* name) override;
  bool DeleteValue(std::string_view name) override;
  // True also when nothing was there to remove.
  bool DeleteKey(std::string_view path) override;
  // Replaces an existing destination whole.
  bool MoveKey(std::string_view from, std::string_view to) override;
  // Merges into an existing destination.
  bool MergeKey(std::string_view from, std::string_view to) override;
  bool IsBound() override { return true; }
  std::string_view RefusalName() override { return name_; }

  // Constant after construction.
  const std::shared_ptr<Node> node_;
  const std::string name_;
  // Enumeration positions; unguarded, like the key itself.
  uint64_t value_cursor_ = 0;
  uint64_t subkey_cursor_ = 0;
};

}  // namespace regkey

#endif  // HIVECTL_REGISTRY_MEMORY_BACKEND_H_
