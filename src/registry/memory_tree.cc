#include "registry/memory_tree.h"

#include <utility>

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

std::shared_ptr<Node> Node::CloneTree() {
  auto copy = std::make_shared<Node>();
  std::lock_guard<std::mutex> lock(mutex_);
  copy->values_ = values_;
  copy->subkeys_.reserve(subkeys_.size());
  for (auto& entry : subkeys_) {
    copy->subkeys_.emplace_hint(copy->subkeys_.end(), entry.first, entry.second->CloneTree());
  }
  return copy;
}

void Node::MergeFrom(Node& source) {
  std::lock_guard<std::mutex> lock(mutex_);
  std::lock_guard<std::mutex> source_lock(source.mutex_);
  for (const auto& entry : source.values_) {
    auto it = values_.lower_bound(entry.first);
    if (IsMatch(values_, it, entry.first)) {
      it->second = entry.second;
    } else {
      values_.emplace_hint(it, entry.first, entry.second);
    }
  }
  for (const auto& entry : source.subkeys_) {
    auto it = subkeys_.lower_bound(entry.first);
    if (IsMatch(subkeys_, it, entry.first)) {
      it->second->MergeFrom(*entry.second);
    } else {
      subkeys_.emplace_hint(it, entry.first, entry.second->CloneTree());
    }
  }
}

void Node::Print(std::ostream& stream, int step, int indent) const {
  const std::string margin(static_cast<size_t>(indent), ' ');
  for (const auto& entry : values_) {
    stream << margin << entry.first << ": ";
    PrintValue(stream, entry.second);
    stream << '\n';
  }
  for (const auto& entry : subkeys_) {
    stream << margin << entry.first << "\\\n";
    entry.second->Print(stream, step, indent + step);
  }
}

}  // namespace regkey
