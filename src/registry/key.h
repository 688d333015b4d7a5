// The abstract registry key: one open place in the tree, with its values,
// its subkeys and two enumeration cursors.
//
// Result convention of every read (GetValue, NextValue): a positive result is
// the number of bytes delivered (text counts its terminating NUL), 0 means
// nothing (missing value, no conversion, end of an enumeration or a failure),
// and a negative result is minus the size needed when the caller's limit was
// too small; then nothing was stored.
//
// A key never reports a backend failure by exception: operations answer
// false, 0 or null, and the registry layer writes diagnostic-log lines only.
//
// Thread safety: distinct key objects may be used from different threads at
// once; one key object must not be shared between threads (its cursors have
// no lock).
#ifndef HIVECTL_REGISTRY_KEY_H_
#define HIVECTL_REGISTRY_KEY_H_

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

namespace regkey {

// The only value types of the whole program; Key operations carry them as
// plain integers.
enum ValueType : int {
  kTypeI32 = 0,
  kTypeI64 = 1,
  kTypeStr = 2,
  kTypeBin = 3,
};

// Largest block an allocating read hands out.
constexpr size_t kMaxValueSize = 2147483647;

struct FreeDeleter {
  void operator()(void* block) const { std::free(block); }
};
// Owning handle of a malloc'ed value block. Allocating reads replace its
// block only when they stored something.
using ValueBuffer = std::unique_ptr<char, FreeDeleter>;

class Key;
class KeyStub;
extern KeyStub SharedStub;

// Deletes a key unless it is the process-wide SharedStub, which lives for
// the whole process.
struct KeyDeleter {
  void operator()(Key* key) const;
};
using KeyPtr = std::unique_ptr<Key, KeyDeleter>;

// A KeyPtr holding SharedStub: the initial state of long-lived holders.
KeyPtr StubKeyPtr();

class Key {
 public:
  virtual ~Key() = default;

  // An independent key on the same path, same read-only state, fresh cursors.
  virtual KeyPtr Clone() = 0;
  // The key is usable; a database key may test its existence here.
  virtual bool IsValid() = 0;

  // Reads value `name` converted to `type` into at most `size` bytes.
  virtual int64_t GetValue(void* buffer, size_t size, ValueType type, const char* name) = 0;
  // The same into a fresh block of `out`.
  virtual int64_t GetValue(ValueBuffer& out, ValueType type, const char* name) = 0;
  // Reads the value as stored; `*type` is written once the value is found.
  virtual int64_t GetValue(void* buffer, size_t size, ValueType* type, const char* name) = 0;
  virtual int64_t GetValue(ValueBuffer& out, ValueType* type, const char* name) = 0;
  // Text form of the value; false for bin values.
  virtual bool GetString(std::string& out, const char* name) = 0;

  // Creates or replaces value `name`. i32 needs size >= 4, i64 size >= 8;
  // str takes `data` as a NUL-terminated string and ignores `size`.
  virtual bool SetValue(const void* data, size_t size, ValueType type, const char* name) = 0;
  virtual bool CheckValueExists(std::string_view name) = 0;
  // True only if a value was removed.
  virtual bool RemoveValue(std::string_view name) = 0;

  // Whole-key operations on paths relative to this key.
  virtual bool RemoveKey(std::string_view path) = 0;
  virtual bool RenameKey(std::string_view from, std::string_view to) = 0;
  virtual bool CopyKey(std::string_view from, std::string_view to) = 0;

  virtual uint32_t CountValues() = 0;
  virtual uint32_t CountSubKeys() = 0;

  // Value enumeration; a result of 0 or less ends it.
  virtual void ResetValues() = 0;
  virtual int64_t NextValue(ValueBuffer& out, ValueType type, std::string& name) = 0;
  virtual int64_t NextValue(ValueBuffer& out, ValueType* type, std::string& name) = 0;
  virtual bool NextString(std::string& value, std::string& name) = 0;

  // Subkey enumeration; null or false at the end.
  virtual void ResetSubKeys() = 0;
  virtual KeyPtr NextSubKey(bool read_only) = 0;
  virtual bool NextSubKeyName(std::string& name) = 0;

  // Leaf name; empty for an unusable key. Valid as long as the key.
  virtual std::string_view GetName() = 0;
  virtual std::string GetDefaultString() = 0;
};

// The inert key: it exists, but no operation does anything. Stateless, so
// usable from any thread. Test fakes derive from it and override only what
// they record.
class KeyStub : public Key {
 public:
  KeyPtr Clone() override;
  bool IsValid() override { return false; }
  int64_t GetValue(void*, size_t, ValueType, const char*) override { return 0; }
  int64_t GetValue(ValueBuffer&, ValueType, const char*) override { return 0; }
  int64_t GetValue(void*, size_t, ValueType*, const char*) override { return 0; }
  int64_t GetValue(ValueBuffer&, ValueType*, const char*) override { return 0; }
  bool GetString(std::string&, const char*) override { return false; }
  bool SetValue(const void*, size_t, ValueType, const char*) override { return false; }
  bool CheckValueExists(std::string_view) override { return false; }
  bool RemoveValue(std::string_view) override { return false; }
  bool RemoveKey(std::string_view) override { return false; }
  bool RenameKey(std::string_view, std::string_view) override { return false; }
  bool CopyKey(std::string_view, std::string_view) override { return false; }
  uint32_t CountValues() override { return 0; }
  uint32_t CountSubKeys() override { return 0; }
  void ResetValues() override {}
  int64_t NextValue(ValueBuffer&, ValueType, std::string&) override { return 0; }
  int64_t NextValue(ValueBuffer&, ValueType*, std::string&) override { return 0; }
  bool NextString(std::string&, std::string&) override { return false; }
  void ResetSubKeys() override {}
  KeyPtr NextSubKey(bool) override { return KeyPtr(); }
  bool NextSubKeyName(std::string&) override { return false; }
  std::string_view GetName() override { return {}; }
  std::string GetDefaultString() override { return {}; }
};

// One read of a value as BackendKey hands it to a backend. The value is
// converted to *type and delivered into *out within `limit`, by the protocol
// of the converters (conversions.h); with `as_stored`, *type is first set to
// the value's own type, and a value of none of the four gives 0. With `text`
// set, the text form goes there instead: 1 for a str, i32 or i64 value, 0
// for the others, `text` being left alone then.
struct ValueRequest {
  ValueType* type;
  bool as_stored;
  void** out;
  size_t limit;
  std::string* text;
};

// The shape the keys of both backends share. The eight reads find a value,
// by name or at the value cursor, and deliver it as a ValueRequest says; an
// allocating read takes the block only when something was stored. The five
// changes answer false on an unbound key, and on a read-only key also leave
// a level 1 log line "<operation> '<name or path>' on read-only key
// '<RefusalName>'". RenameKey and CopyKey then decide an equal and a nested
// pair of paths (ComparePaths) before the backend sees them.
class BackendKey : public Key {
 public:
  int64_t GetValue(void* buffer, size_t size, ValueType type, const char* name) final;
  int64_t GetValue(ValueBuffer& out, ValueType type, const char* name) final;
  int64_t GetValue(void* buffer, size_t size, ValueType* type, const char* name) final;
  int64_t GetValue(ValueBuffer& out, ValueType* type, const char* name) final;
  bool GetString(std::string& out, const char* name) final;
  bool SetValue(const void* data, size_t size, ValueType type, const char* name) final;
  bool RemoveValue(std::string_view name) final;
  bool RemoveKey(std::string_view path) final;
  bool RenameKey(std::string_view from, std::string_view to) final;
  bool CopyKey(std::string_view from, std::string_view to) final;
  int64_t NextValue(ValueBuffer& out, ValueType type, std::string& name) final;
  int64_t NextValue(ValueBuffer& out, ValueType* type, std::string& name) final;
  bool NextString(std::string& value, std::string& name) final;

 protected:
  explicit BackendKey(bool read_only) : read_only_(read_only) {}
  bool read_only() const { return read_only_; }

  // Value `name`, delivered as `request` says; 0 if there is none.
  virtual int64_t ReadValue(const char* name, const ValueRequest& request) = 0;
  // The same for the value at the value cursor, which advances; its name
  // goes to `name`.
  virtual int64_t ReadNextValue(std::string& name, const ValueRequest& request) = 0;

  // The changes of a bound, writable key, with the contracts of SetValue,
  // RemoveValue, RemoveKey, RenameKey and CopyKey; MoveKey and MergeKey see
  // only paths that ComparePaths finds apart.
  virtual bool WriteValue(const void* data, size_t size, ValueType type, const char* name) = 0;
  virtual bool DeleteValue(std::string_view name) = 0;
  virtual bool DeleteKey(std::string_view path) = 0;
  virtual bool MoveKey(std::string_view from, std::string_view to) = 0;
  virtual bool MergeKey(std::string_view from, std::string_view to) = 0;

  // Whether the key is bound to its backend; an unbound key changes nothing.
  virtual bool IsBound() = 0;
  // The key as the refusal line names it.
  virtual std::string_view RefusalName() = 0;

 private:
  // False, after the refusal line on a read-only key, if the key may not
  // change; `joiner` and `second` follow `first` when `joiner` is set.
  bool MayChange(const char* operation, std::string_view first, const char* joiner = nullptr,
                 std::string_view second = {});
  using MoveOperation = bool (BackendKey::*)(std::string_view from, std::string_view to);
  // RenameKey and CopyKey, `apply` being MoveKey or MergeKey.
  bool MoveOrCopy(const char* operation, MoveOperation apply, std::string_view from,
                  std::string_view to);

  const bool read_only_;
};

// What a backend throws when SetValue is handed a null text or value name:
// the error the standard library raises for a string made from null, so that
// both backends end such a call alike.
[[noreturn]] void ThrowNullText();

}  // namespace regkey

#endif  // HIVECTL_REGISTRY_KEY_H_
