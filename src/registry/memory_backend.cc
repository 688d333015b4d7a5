#include "registry/memory_backend.h"

#include <cstdio>
#include <cstring>
#include <iostream>
#include <utility>

#include "registry/conversions.h"
#include "registry/key_paths.h"
#include "support/value_codec.h"

namespace regkey {

namespace {

// Walks the non-empty components of `path` from `node`; null on a miss.
// `last` receives the last component walked, if any.
std::shared_ptr<Node> WalkCollapsed(std::shared_ptr<Node> node, std::string_view path, bool create,
                                    std::string& last) {
  std::string component;
  size_t start = 0;
  while (node != nullptr && start <= path.size()) {
    size_t end = path.find('\\', start);
    if (end == std::string_view::npos) end = path.size();
    if (end > start) {
      component.assign(path.data() + start, end - start);
      node = node->FindSubKey(component, create);
      last = component;
    }
    start = end + 1;
  }
  return node;
}

// Walks every component of `path` but the leaf, empty ones included, and
// puts the leaf into `leaf`; null on a miss.
std::shared_ptr<Node> WalkToParent(std::shared_ptr<Node> node, std::string_view path, bool create,
                                   std::string& leaf) {
  size_t start = 0;
  size_t end;
  std::string component;
  while (node != nullptr && (end = path.find('\\', start)) != std::string_view::npos) {
    component.assign(path.data() + start, end - start);
    node = node->FindSubKey(component, create);
    start = end + 1;
  }
  leaf.assign(path.data() + start, path.size() - start);
  return node;
}

// Every component of `path`, the leaf included; null on a miss.
std::shared_ptr<Node> WalkAll(std::shared_ptr<Node> node, std::string_view path, bool create) {
  std::string leaf;
  node = WalkToParent(std::move(node), path, create, leaf);
  return node == nullptr ? nullptr : node->FindSubKey(leaf, create);
}

// The text form of a value: false for bin and empty, leaving `out` alone.
bool ValueText(const StoredValue& value, std::string& out) {
  switch (value.tag()) {
    case StoredValue::kInt32:
      out = DecimalText(value.int32());
      return true;
    case StoredValue::kInt64:
      out = DecimalText(value.int64());
      return true;
    case StoredValue::kString:
      out = value.text();
      return true;
    case StoredValue::kEmpty:
    case StoredValue::kBinary:
      break;
  }
  return false;
}

int64_t Deliver(const StoredValue& value, const ValueRequest& request) {
  if (request.text != nullptr) return ValueText(value, *request.text);
  if (request.as_stored) {
    if (value.empty()) return 0;
    *request.type = value.type();
  }
  return ConvertMemoryValue(value, *request.type, request.out, request.limit);
}

}  // namespace

KeyPtr MemoryBackend::Create(std::string_view root, int /*reserved*/, bool read_only,
                             std::string_view path, bool create) {
  if (root_ == nullptr || HasEdgeBackslash(root) || HasEdgeBackslash(path)) {
    return KeyPtr(new KeyStub());
  }
  const bool may_create = create && !read_only;
  std::string name;
  std::shared_ptr<Node> node = WalkCollapsed(root_, root, may_create, name);
  node = WalkCollapsed(std::move(node), path, may_create, name);
  if (node == nullptr) return KeyPtr(new KeyStub());
  return KeyPtr(new MemoryKey(std::move(node), std::move(name), read_only));
}

void MemoryBackend::Dump() {
  if (root_ != nullptr) root_->Print(std::cerr, 2, 0);
}

bool MemoryBackend::Init(std::string_view /*spec*/) {
  root_ = std::make_shared<Node>();
  return true;
}

MemoryKey::MemoryKey(std::shared_ptr<Node> node, std::string name, bool read_only)
    : BackendKey(read_only), node_(std::move(node)), name_(std::move(name)) {}

KeyPtr MemoryKey::Clone() { return KeyPtr(new MemoryKey(node_, name_, read_only())); }

bool MemoryKey::IsValid() { return node_ != nullptr; }

int64_t MemoryKey::ReadValue(const char* name, const ValueRequest& request) {
  return Deliver(node_->FetchValue(name), request);
}

bool MemoryKey::WriteValue(const void* data, size_t size, ValueType type, const char* name) {
  StoredValue value;
  switch (type) {
    case kTypeI32:
      if (size < sizeof(int32_t)) return false;
      value = StoredValue(static_cast<int32_t>(DecodeFixed32(data)));
      break;
    case kTypeI64:
      if (size < sizeof(int64_t)) return false;
      value = StoredValue(static_cast<int64_t>(DecodeFixed64(data)));
      break;
    case kTypeStr:
      if (data == nullptr) ThrowNullText();
      value = StoredValue(std::string(static_cast<const char*>(data)));
      break;
    case kTypeBin: {
      const auto* bytes = static_cast<const unsigned char*>(data);
      value = StoredValue(size == 0 ? StoredValue::Bytes() : StoredValue::Bytes(bytes, bytes + size));
      break;
    }
    default:
      return false;
  }
  if (name == nullptr) ThrowNullText();
  node_->StoreValue(name, std::move(value));
  return true;
}

bool MemoryKey::CheckValueExists(std::string_view name) {
  return node_->HasValue(std::string(name));
}

bool MemoryKey::DeleteValue(std::string_view name) {
  return node_->EraseValue(std::string(name));
}

bool MemoryKey::DeleteKey(std::string_view path) {
  std::string leaf;
  std::shared_ptr<Node> parent = WalkToParent(node_, path, false, leaf);
  // The subtree taken out is dropped here, outside the parent's lock.
  if (parent != nullptr) parent->TakeSubKey(leaf);
  return true;
}

bool MemoryKey::MoveKey(std::string_view from, std::string_view to) {
  std::string leaf;
  std::shared_ptr<Node> source_parent = WalkToParent(node_, from, false, leaf);
  if (source_parent == nullptr) return false;
  std::shared_ptr<Node> moved = source_parent->TakeSubKey(leaf);
  if (moved == nullptr) return false;
  std::shared_ptr<Node> target_parent = WalkToParent(node_, to, true, leaf);
  target_parent->PutSubKey(std::move(leaf), std::move(moved));
  return true;
}

bool MemoryKey::MergeKey(std::string_view from, std::string_view to) {
  std::shared_ptr<Node> source = WalkAll(node_, from, false);
  if (source == nullptr) return false;
  std::shared_ptr<Node> target = WalkAll(node_, to, true);
  // Two spellings the text test missed (names that differ only behind a NUL
  // byte) can name one node; merging it with itself would deadlock.
  if (target == source) return true;
  target->MergeFrom(*source);
  return true;
}

uint32_t MemoryKey::CountValues() { return static_cast<uint32_t>(node_->ValueCountUnlocked()); }

uint32_t MemoryKey::CountSubKeys() { return static_cast<uint32_t>(node_->SubKeyCountUnlocked()); }

void MemoryKey::ResetValues() { value_cursor_ = 0; }

int64_t MemoryKey::ReadNextValue(std::string& name, const ValueRequest& request) {
  return Deliver(node_->FetchValueAt(value_cursor_++, name), request);
}

void MemoryKey::ResetSubKeys() { subkey_cursor_ = 0; }

KeyPtr MemoryKey::NextSubKey(bool read_only) {
  std::string name;
  std::shared_ptr<Node> child = node_->SubKeyAt(subkey_cursor_++, name);
  if (child == nullptr) return KeyPtr();
  return KeyPtr(new MemoryKey(std::move(child), std::move(name), read_only));
}

bool MemoryKey::NextSubKeyName(std::string& name) {
  return node_->SubKeyAt(subkey_cursor_++, name) != nullptr;
}

std::string_view MemoryKey::GetName() { return name_; }

std::string MemoryKey::GetDefaultString() { return std::string(); }

}  // namespace regkey
