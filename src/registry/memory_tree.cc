#include "registry/memory_tree.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

namespace regkey {

namespace {

// Whether the lower bound `it` of `name` is its entry. (The maps' find is
// the same lower bound followed by this test.)
template <typename Map>
bool IsMatch(Map& map, typename Map::iterator it, const std::string& name) {
  return it != map.end() && !NameLess()(name, it->first);
}

}  // namespace

void PrintValue(std::ostream& stream, const StoredValue& value) {
  switch (value.tag()) {
    case StoredValue::kEmpty:
      stream << "EMPTY";
      break;
    case StoredValue::kInt32:
      stream << value.int32() << "i32";
      break;
    case StoredValue::kInt64:
      stream << value.int64() << "i64";
      break;
    case StoredValue::kString:
      stream << '"' << value.text() << '"';
      break;
    case StoredValue::kBinary: {
      static const char kDigits[] = "0123456789abcdef";
      stream << "BIN: ";
      const StoredValue::Bytes& bytes = value.bytes();
      for (size_t i = 0; i < bytes.size(); ++i) {
        if (i > 0) stream << ' ';
        stream << kDigits[bytes[i] >> 4] << kDigits[bytes[i] & 0x0f];
      }
      break;
    }
  }
}

bool Node::HasValue(const std::string& name) {
  std::lock_guard<std::mutex> lock(mutex_);
  return values_.find(name) != values_.end();
}

StoredValue Node::FetchValue(const std::string& name) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = values_.find(name);
  return it == values_.end() ? StoredValue() : it->second;
}

StoredValue Node::FetchValueAt(uint64_t index, std::string& name_out) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (index >= values_.size()) return StoredValue();
  auto it = values_.nth(static_cast<size_t>(index));
  name_out = it->first;
  return it->second;
}

void Node::StoreValue(std::string name, StoredValue value) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = values_.lower_bound(name);
  if (IsMatch(values_, it, name)) {
    it->second = std::move(value);
  } else {
    values_.emplace_hint(it, std::move(name), std::move(value));
  }
}

bool Node::EraseValue(const std::string& name) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = values_.find(name);
  if (it == values_.end()) return false;
  values_.erase(it);
  return true;
}

std::shared_ptr<Node> Node::FindSubKey(const std::string& name, bool create) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = subkeys_.lower_bound(name);
  if (IsMatch(subkeys_, it, name)) return it->second;
  if (!create) return nullptr;
  auto child = std::make_shared<Node>();
  subkeys_.emplace_hint(it, name, child);
  return child;
}

std::shared_ptr<Node> Node::SubKeyAt(uint64_t index, std::string& name_out) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (index >= subkeys_.size()) return nullptr;
  auto it = subkeys_.nth(static_cast<size_t>(index));
  name_out = it->first;
  return it->second;
}

std::shared_ptr<Node> Node::TakeSubKey(const std::string& name) {
  std::shared_ptr<Node> child;
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = subkeys_.find(name);
  if (it == subkeys_.end()) return child;
  child = std::move(it->second);
  subkeys_.erase(it);
  return child;
}

void Node::PutSubKey(std::string name, std::shared_ptr<Node> node) {
  // The replaced subtree is released after the lock, in `old`.
  std::shared_ptr<Node> old;
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = subkeys_.lower_bound(name);
  if (IsMatch(subkeys_, it, name)) {
    old = std::exchange(it->second, std::move(node));
  } else {
    subkeys_.emplace_hint(it, std::move(name), std::move(node));
  }
}

struct Node::CloneLevel {
  std::unique_lock<std::mutex> lock;  // of `source`
  Node* source;
  Node* copy;
  size_t next_subkey;
};

struct Node::MergeLevel {
  std::unique_lock<std::mutex> target_lock;
  std::unique_lock<std::mutex> source_lock;
  // Pairs of children (target, source) that both sides have, in order.
  std::vector<std::pair<Node*, Node*>> both;
  size_t next_pair;
};

Node::~Node() {
  // Children that only this node owns are unhooked onto a list before they
  // go, so that each is destroyed with no children left and no destructor
  // runs inside another: a chain of any depth is freed in constant stack.
  if (subkeys_.empty()) return;
  std::vector<std::shared_ptr<Node>> pending;
  for (auto& entry : subkeys_) pending.push_back(std::move(entry.second));
  while (!pending.empty()) {
    std::shared_ptr<Node> node = std::move(pending.back());
    pending.pop_back();
    // The sole owner: nobody else can reach the node, so no lock is needed.
    // A node held elsewhere as well just loses this reference.
    if (node.use_count() == 1) {
      for (auto& entry : node->subkeys_) pending.push_back(std::move(entry.second));
    }
  }
}

Node::CloneLevel Node::OpenClone(Node& source, Node& copy) {
  std::unique_lock<std::mutex> lock(source.mutex_);
  copy.values_ = source.values_;
  copy.subkeys_.reserve(source.subkeys_.size());
  return CloneLevel{std::move(lock), &source, &copy, 0};
}

std::shared_ptr<Node> Node::CloneTree() {
  // Depth first with the levels on the heap; each source node stays locked
  // until its subtree is copied, as a recursive copy would hold it.
  auto top = std::make_shared<Node>();
  std::vector<CloneLevel> levels;
  levels.push_back(OpenClone(*this, *top));
  while (!levels.empty()) {
    CloneLevel& level = levels.back();
    if (level.next_subkey >= level.source->subkeys_.size()) {
      levels.pop_back();
      continue;
    }
    const auto& entry = *level.source->subkeys_.nth(level.next_subkey++);
    auto child = std::make_shared<Node>();
    // The source is in order, so every entry is an append.
    level.copy->subkeys_.emplace_hint(level.copy->subkeys_.end(), entry.first, child);
    levels.push_back(OpenClone(*entry.second, *child));
  }
  return top;
}

namespace {

// Merges the entries of `source` into `target`, both in NameLess order: for a
// name that `target` holds, `on_match(target_mapped, source_mapped)`; for
// any other, a new entry with the source's spelling and `make(source_mapped)`.
// The look-ups move forward only and the new entries join the array in one
// ordered pass, so a bulk merge costs about as much as copying both arrays.
// Everything that may throw happens before `target` is taken apart.
template <typename Map, typename OnMatch, typename Make>
void MergeOrdered(Map& target, const Map& source, OnMatch on_match, Make make) {
  using Entry = typename Map::value_type;
  auto entry_less = [](const Entry& a, const Entry& b) { return NameLess()(a.first, b.first); };
  std::vector<Entry> added;
  auto it = target.begin();
  for (const Entry& entry : source) {
    it = std::lower_bound(it, target.end(), entry, entry_less);
    if (IsMatch(target, it, entry.first)) {
      on_match(it->second, entry.second);
    } else {
      added.emplace_back(entry.first, make(entry.second));
    }
  }
  if (added.empty()) return;
  typename Map::sequence_type merged;
  merged.reserve(target.size() + added.size());
  typename Map::sequence_type old = target.extract_sequence();
  std::merge(std::make_move_iterator(old.begin()), std::make_move_iterator(old.end()),
             std::make_move_iterator(added.begin()), std::make_move_iterator(added.end()),
             std::back_inserter(merged), entry_less);
  target.adopt_sequence(boost::container::ordered_unique_range, std::move(merged));
}

}  // namespace

Node::MergeLevel Node::OpenMerge(Node& source) {
  MergeLevel level{std::unique_lock<std::mutex>(mutex_),
                   std::unique_lock<std::mutex>(source.mutex_), {}, 0};
  MergeOrdered(
      values_, source.values_, [](StoredValue& mine, const StoredValue& theirs) { mine = theirs; },
      [](const StoredValue& theirs) { return theirs; });
  MergeOrdered(
      subkeys_, source.subkeys_,
      [&level](std::shared_ptr<Node>& mine, const std::shared_ptr<Node>& theirs) {
        level.both.emplace_back(mine.get(), theirs.get());
      },
      [](const std::shared_ptr<Node>& theirs) { return theirs->CloneTree(); });
  return level;
}

void Node::MergeFrom(Node& source) {
  // Depth first with the levels on the heap; both nodes of a level stay
  // locked until the levels below are merged. The children named in a
  // level are kept alive by their locked parents.
  std::vector<MergeLevel> levels;
  levels.push_back(OpenMerge(source));
  while (!levels.empty()) {
    MergeLevel& level = levels.back();
    if (level.next_pair >= level.both.size()) {
      levels.pop_back();
      continue;
    }
    const std::pair<Node*, Node*> pair = level.both[level.next_pair++];
    levels.push_back(pair.first->OpenMerge(*pair.second));
  }
}

void Node::Print(std::ostream& stream, int step, int indent) const {
  struct Level {
    const Node* node;
    size_t next_subkey;
    int indent;
  };
  auto print_values = [&stream](const Node& node, int margin) {
    for (const auto& entry : node.values_) {
      stream << std::string(static_cast<size_t>(margin), ' ') << entry.first << ": ";
      PrintValue(stream, entry.second);
      stream << '\n';
    }
  };
  print_values(*this, indent);
  std::vector<Level> levels{{this, 0, indent}};
  while (!levels.empty()) {
    Level& level = levels.back();
    if (level.next_subkey >= level.node->subkeys_.size()) {
      levels.pop_back();
      continue;
    }
    const auto& entry = *level.node->subkeys_.nth(level.next_subkey++);
    stream << std::string(static_cast<size_t>(level.indent), ' ') << entry.first << "\\\n";
    const int child_indent = level.indent + step;
    print_values(*entry.second, child_indent);
    levels.push_back({entry.second.get(), 0, child_indent});
  }
}

}  // namespace regkey
