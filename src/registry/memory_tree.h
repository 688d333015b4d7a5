// The in-process registry tree of the memory backend: nodes holding named
// values and named child nodes, one name at a time (no paths here).
//
// Names compare with strcasecmp (POSIX locale: only A-Z fold), so value and
// subkey names are case-insensitive and an entry keeps the spelling of its
// first writer. Enumeration order is that of NameLess.
//
// Ownership is strictly downward through shared_ptr: a parent owns its
// children; keys and walks in progress hold further references, so a
// removed subtree lives on, detached, while someone still holds it.
//
// Thread safety: each node has its own mutex and every single-node operation
// holds it for exactly its own duration. There is no tree-wide lock; a walk
// locks one node at a time. CloneTree locks parent before child; MergeFrom
// locks destination before source at each level and keeps those locks until
// the levels below are done, so merging a node with itself, or two merges in
// opposite directions at once, deadlock. Print and the *Unlocked counts take
// no lock.
//
// Depth: no operation recurses over the levels of the tree (destruction
// included); the whole-subtree walks keep their levels on the heap, so a
// chain of any depth fits the call stack.
#ifndef HIVECTL_REGISTRY_MEMORY_TREE_H_
#define HIVECTL_REGISTRY_MEMORY_TREE_H_

#include <strings.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <variant>
#include <vector>

#include <boost/container/flat_map.hpp>

#include "registry/key.h"

namespace regkey {

// A value as the tree keeps it. Tag = ValueType + 1; kEmpty is what a failed
// look-up returns and never stays in a node.
class StoredValue {
 public:
  enum Tag : int { kEmpty = 0, kInt32 = 1, kInt64 = 2, kString = 3, kBinary = 4 };
  using Bytes = std::vector<unsigned char>;

  StoredValue() = default;
  explicit StoredValue(int32_t number) : data_(number) {}
  explicit StoredValue(int64_t number) : data_(number) {}
  explicit StoredValue(std::string text) : data_(std::move(text)) {}
  explicit StoredValue(Bytes bytes) : data_(std::move(bytes)) {}

  Tag tag() const { return static_cast<Tag>(data_.index()); }
  bool empty() const { return tag() == kEmpty; }
  // The ValueType of a non-empty value.
  ValueType type() const { return static_cast<ValueType>(tag() - 1); }

  // REQUIRES: the matching tag.
  int32_t int32() const { return std::get<int32_t>(data_); }
  int64_t int64() const { return std::get<int64_t>(data_); }
  const std::string& text() const { return std::get<std::string>(data_); }
  const Bytes& bytes() const { return std::get<Bytes>(data_); }

 private:
  std::variant<std::monostate, int32_t, int64_t, std::string, Bytes> data_;
};

static_assert(StoredValue::kInt32 == kTypeI32 + 1 && StoredValue::kInt64 == kTypeI64 + 1 &&
                  StoredValue::kString == kTypeStr + 1 && StoredValue::kBinary == kTypeBin + 1,
              "tags follow ValueType");

struct NameLess {
  bool operator()(const std::string& a, const std::string& b) const {
    return strcasecmp(a.c_str(), b.c_str()) < 0;
  }
};

// Writes a value as Print shows it: 7i32, 7i64, "text", BIN: 0a ff, EMPTY.
void PrintValue(std::ostream& stream, const StoredValue& value);

class Node {
 public:
  using ValueMap = boost::container::flat_map<std::string, StoredValue, NameLess>;
  using SubKeyMap = boost::container::flat_map<std::string, std::shared_ptr<Node>, NameLess>;

  Node() = default;
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;
  // Releases the subtree level by level instead of recursively.
  ~Node();

  bool HasValue(const std::string& name);
  // A copy of the value; kEmpty when absent.
  StoredValue FetchValue(const std::string& name);
  // The value at `index` and its stored name; kEmpty, `name_out` untouched,
  // past the end.
  StoredValue FetchValueAt(uint64_t index, std::string& name_out);
  // Inserts or overwrites; an existing entry keeps its spelling.
  void StoreValue(std::string name, StoredValue value);
  // True when an entry was removed.
  bool EraseValue(const std::string& name);

  // The child `name`; when missing, a new empty child if `create`, else null.
  std::shared_ptr<Node> FindSubKey(const std::string& name, bool create);
  // The child at `index` and its stored name; null past the end.
  std::shared_ptr<Node> SubKeyAt(uint64_t index, std::string& name_out);
  // Unlinks the child and hands it over; null when there was none.
  std::shared_ptr<Node> TakeSubKey(const std::string& name);
  // Makes `node` the child `name`, dropping an existing child's subtree but
  // keeping the entry's spelling.
  void PutSubKey(std::string name, std::shared_ptr<Node> node);

  // A deep copy with the same spellings and order; private to the caller.
  std::shared_ptr<Node> CloneTree();
  // Copies `source` into this node: values overwrite, subkeys merge, and
  // whatever the source does not mention stays.
  // REQUIRES: `source` is neither this node nor related to it by descent.
  void MergeFrom(Node& source);
  // Debugging dump: values, then subkeys each followed by its own dump
  // indented by `step` more. Takes no lock.
  void Print(std::ostream& stream, int step, int indent) const;

  // Sizes read without the lock: a count, possibly in mid-change.
  size_t ValueCountUnlocked() const { return values_.size(); }
  size_t SubKeyCountUnlocked() const { return subkeys_.size(); }

 private:
  struct CloneLevel;
  struct MergeLevel;
  // Locks `source`, copies its values into `copy` and starts a level.
  static CloneLevel OpenClone(Node& source, Node& copy);
  // Locks this node and `source`, merges the values and the subkeys this
  // node lacks, and starts a level for the subkeys both have.
  MergeLevel OpenMerge(Node& source);

  std::mutex mutex_;
  // Guarded by mutex_ (except for the unlocked reads above and Print).
  ValueMap values_;
  SubKeyMap subkeys_;
};

}  // namespace regkey

#endif  // HIVECTL_REGISTRY_MEMORY_TREE_H_
