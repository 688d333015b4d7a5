#include "registry/key.h"

#include <stdexcept>

#include "registry/key_paths.h"
#include "support/log.h"

namespace regkey {

// SharedStub itself is defined in backend.cc, after the other module state,
// so that it is constructed last and torn down first.

void KeyDeleter::operator()(Key* key) const {
  if (key != &SharedStub) delete key;
}

KeyPtr StubKeyPtr() { return KeyPtr(&SharedStub); }

KeyPtr KeyStub::Clone() { return KeyPtr(new KeyStub()); }

namespace {

// An allocating read: `out` takes the block only when something was stored.
template <typename Read>
int64_t ReadAllocating(ValueBuffer& out, ValueType* type, bool as_stored, Read read) {
  void* block = nullptr;
  const int64_t size = read(ValueRequest{type, as_stored, &block, kMaxValueSize, nullptr});
  if (size > 0) out.reset(static_cast<char*>(block));
  return size;
}

}  // namespace

int64_t BackendKey::GetValue(void* buffer, size_t size, ValueType type, const char* name) {
  return ReadValue(name, {&type, false, &buffer, size, nullptr});
}

int64_t BackendKey::GetValue(ValueBuffer& out, ValueType type, const char* name) {
  return ReadAllocating(out, &type, false,
                        [&](const ValueRequest& request) { return ReadValue(name, request); });
}

int64_t BackendKey::GetValue(void* buffer, size_t size, ValueType* type, const char* name) {
  return ReadValue(name, {type, true, &buffer, size, nullptr});
}

int64_t BackendKey::GetValue(ValueBuffer& out, ValueType* type, const char* name) {
  return ReadAllocating(out, type, true,
                        [&](const ValueRequest& request) { return ReadValue(name, request); });
}

bool BackendKey::GetString(std::string& out, const char* name) {
  return ReadValue(name, {nullptr, false, nullptr, 0, &out}) > 0;
}

int64_t BackendKey::NextValue(ValueBuffer& out, ValueType type, std::string& name) {
  return ReadAllocating(out, &type, false,
                        [&](const ValueRequest& request) { return ReadNextValue(name, request); });
}

int64_t BackendKey::NextValue(ValueBuffer& out, ValueType* type, std::string& name) {
  return ReadAllocating(out, type, true,
                        [&](const ValueRequest& request) { return ReadNextValue(name, request); });
}

bool BackendKey::NextString(std::string& value, std::string& name) {
  return ReadNextValue(name, {nullptr, false, nullptr, 0, &value}) > 0;
}

bool BackendKey::SetValue(const void* data, size_t size, ValueType type, const char* name) {
  return MayChange("SetValue", name != nullptr ? name : "(null)") &&
         WriteValue(data, size, type, name);
}

bool BackendKey::RemoveValue(std::string_view name) {
  return MayChange("RemoveValue", name) && DeleteValue(name);
}

bool BackendKey::RemoveKey(std::string_view path) {
  return MayChange("RemoveKey", path) && DeleteKey(path);
}

bool BackendKey::RenameKey(std::string_view from, std::string_view to) {
  return MoveOrCopy("RenameKey", &BackendKey::MoveKey, from, to);
}

bool BackendKey::CopyKey(std::string_view from, std::string_view to) {
  return MoveOrCopy("CopyKey", &BackendKey::MergeKey, from, to);
}

bool BackendKey::MoveOrCopy(const char* operation, MoveOperation apply, std::string_view from,
                            std::string_view to) {
  if (!MayChange(operation, from, "'->'", to)) return false;
  switch (ComparePaths(from, to)) {
    case PathRelation::kSame: return true;
    case PathRelation::kNested: return false;
    case PathRelation::kApart: break;
  }
  return (this->*apply)(from, to);
}

bool BackendKey::MayChange(const char* operation, std::string_view first, const char* joiner,
                           std::string_view second) {
  if (!IsBound()) return false;
  if (!read_only_) return true;
  if (LogEnabled(1, kLogModuleOther)) {
    LogLine line(1, kLogModuleOther);
    std::ostream& stream = line.stream();
    stream << operation << " '" << first;
    if (joiner != nullptr) stream << joiner << second;
    stream << "' on read-only key '" << RefusalName() << "'";
  }
  return false;
}

void ThrowNullText() {
  throw std::logic_error("basic_string: construction from null is not valid");
}

}  // namespace regkey
