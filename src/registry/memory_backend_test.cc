#include "registry/memory_backend.h"

#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/log.h"

namespace regkey {
namespace {

// Sends the diagnostic log to a temporary file for the test's duration.
class LogCapture {
 public:
  explicit LogCapture(uint32_t level)
      : file_(std::tmpfile()), old_file_(LogGetFile()), old_level_(LogGetLevel()),
        old_modules_(LogGetModules()) {
    LogSetFile(file_);
    LogSetup(level, kLogModuleOther);
  }
  ~LogCapture() {
    LogSetFile(old_file_);
    LogSetup(old_level_, old_modules_);
    std::fclose(file_);
  }
  // The texts of the lines written so far, without their 45-byte headers.
  std::vector<std::string> Texts() {
    std::fflush(file_);
    std::rewind(file_);
    std::vector<std::string> texts;
    char line[4096];
    while (std::fgets(line, sizeof line, file_) != nullptr) {
      std::string text(line);
      texts.push_back(text.substr(45, text.size() - 46));
    }
    return texts;
  }

 private:
  FILE* file_;
  FILE* old_file_;
  uint32_t old_level_;
  uint32_t old_modules_;
};

class MemoryBackendTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(backend.Init("memory:")); }

  KeyPtr Open(std::string_view path, bool read_only = false, bool create = false,
              std::string_view root = "") {
    return backend.Create(root, 0, read_only, path, create);
  }
  KeyPtr Make(std::string_view path) { return Open(path, false, true); }
  KeyPtr Top() { return Open(""); }

  void SetInt(Key& key, const char* name, int32_t number) {
    ASSERT_TRUE(key.SetValue(&number, sizeof number, kTypeI32, name));
  }
  int32_t GetInt(Key& key, const char* name) {
    int32_t number = -12345;
    EXPECT_EQ(key.GetValue(&number, sizeof number, kTypeI32, name), 4) << name;
    return number;
  }
  std::vector<std::string> SubKeyNames(Key& key) {
    std::vector<std::string> names;
    std::string name;
    key.ResetSubKeys();
    while (key.NextSubKeyName(name)) names.push_back(name);
    return names;
  }
  std::string Dumped() {
    ::testing::internal::CaptureStderr();
    backend.Dump();
    return ::testing::internal::GetCapturedStderr();
  }

  MemoryBackend backend;
};

TEST(MemoryBackendSelectionTest, SpecificationPrefix) {
  EXPECT_NE(MakeBackend("memory:"), nullptr);
  std::shared_ptr<Backend> other = MakeBackend("memory:whatever;x=1");
  ASSERT_NE(other, nullptr);
  EXPECT_FALSE(other->Create("", 0, false, "a", false)->IsValid());  // empty registry
  for (const char* spec : {"", "memory", "Memory:", "MEMORY:", " memory:", "postgresql", "postgres:"}) {
    EXPECT_EQ(MakeBackend(spec), nullptr) << spec;
  }
}

TEST(MemoryBackendSelectionTest, InitBackendKeepsStateOnFailure) {
  const std::string old_spec = backend_specification;
  const std::shared_ptr<Backend> old_backend = registry_backend;

  ASSERT_TRUE(InitBackend("memory:first"));
  EXPECT_EQ(backend_specification, "memory:first");
  const std::shared_ptr<Backend> first = registry_backend;
  ASSERT_NE(first, nullptr);
  first->Create("", 0, false, "kept", true);
  EXPECT_FALSE(InitBackend("nothing:"));
  EXPECT_EQ(backend_specification, "memory:first");
  EXPECT_EQ(registry_backend, first);

  ::testing::internal::CaptureStderr();
  DumpBackend();
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "kept\\\n");

  backend_specification = old_spec;
  registry_backend = old_backend;
}

TEST(SharedStubTest, NeverDeletedAndInert) {
  {
    KeyPtr stub = StubKeyPtr();
    EXPECT_EQ(stub.get(), &SharedStub);
    EXPECT_FALSE(stub->IsValid());
    EXPECT_TRUE(stub->GetName().empty());
    EXPECT_EQ(stub->NextSubKey(false), nullptr);
    KeyPtr copy = stub->Clone();
    EXPECT_NE(copy.get(), &SharedStub);
    EXPECT_FALSE(copy->IsValid());
    stub = std::move(copy);  // drops the shared one without deleting it
  }
  KeyPtr again = StubKeyPtr();
  int32_t number = 1;
  EXPECT_FALSE(again->SetValue(&number, sizeof number, kTypeI32, "v"));
}

TEST_F(MemoryBackendTest, CreateWalksRootThenPath) {
  KeyPtr key = Open("b\\\\\\c", false, true, "Root\\\\a");
  ASSERT_TRUE(key->IsValid());
  EXPECT_EQ(key->GetName(), "c");
  SetInt(*key, "v", 1);
  EXPECT_EQ(Dumped(), "Root\\\n  a\\\n    b\\\n      c\\\n        v: 1i32\n");

  EXPECT_EQ(GetInt(*Open("ROOT\\A\\B\\C"), "v"), 1);
  EXPECT_EQ(Open("", true, false, "root\\a")->GetName(), "a");
  KeyPtr top = Top();
  EXPECT_TRUE(top->IsValid());
  EXPECT_EQ(top->GetName(), "");
  EXPECT_EQ(top->CountSubKeys(), 1u);
  KeyPtr child = top->NextSubKey(true);  // named as first created, not as opened
  ASSERT_NE(child, nullptr);
  EXPECT_EQ(child->GetName(), "Root");
}

TEST_F(MemoryBackendTest, SetValueNullPointers) {
  KeyPtr key = Make("k");
  int64_t wide = 5;

  EXPECT_THROW(key->SetValue(nullptr, 0, kTypeStr, "s"), std::logic_error);
  EXPECT_THROW(key->SetValue(&wide, 8, kTypeI64, nullptr), std::logic_error);
  EXPECT_FALSE(key->SetValue(&wide, 2, kTypeI32, nullptr));
  EXPECT_EQ(key->CountValues(), 0u);
  EXPECT_TRUE(key->SetValue(nullptr, 0, kTypeBin, "nothing"));
  EXPECT_TRUE(key->CheckValueExists("NOTHING"));
  ValueBuffer out;
  ValueType type = kTypeI32;
  EXPECT_EQ(key->GetValue(out, &type, "nothing"), 0);
  EXPECT_EQ(type, kTypeBin);
}

TEST_F(MemoryBackendTest, ReadForms) {
  KeyPtr key = Make("k");
  SetInt(*key, "n", 7);
  ASSERT_TRUE(key->SetValue("hello", 0, kTypeStr, "s"));

  char small[3] = {'x', 'x', 'x'};
  ValueType type = kTypeBin;
  EXPECT_EQ(key->GetValue(small, sizeof small, &type, "n"), -4);
  EXPECT_EQ(type, kTypeI32);  // written even when the buffer is too small
  EXPECT_EQ(std::string(small, 3), "xxx");
  type = kTypeBin;
  EXPECT_EQ(key->GetValue(small, sizeof small, &type, "missing"), 0);
  EXPECT_EQ(type, kTypeBin);

  ValueBuffer out;
  EXPECT_EQ(key->GetValue(out, kTypeStr, "s"), 6);
  const char* block = out.get();
  EXPECT_STREQ(block, "hello");
  EXPECT_EQ(key->GetValue(out, kTypeI32, "s"), 0);  // no conversion
  EXPECT_EQ(out.get(), block);                       // keeps the old block
  EXPECT_EQ(key->GetValue(out, kTypeBin, "n"), 4);   // native bytes
  int32_t number;
  std::memcpy(&number, out.get(), sizeof number);
  EXPECT_EQ(number, 7);
}

TEST_F(MemoryBackendTest, EmptyValueNameAndDefaultString) {
  KeyPtr key = Make("k");
  ASSERT_TRUE(key->SetValue("default", 0, kTypeStr, ""));
  std::string text;
  EXPECT_TRUE(key->GetString(text, ""));
  EXPECT_EQ(text, "default");
  EXPECT_EQ(key->GetDefaultString(), "");
  EXPECT_TRUE(key->RemoveValue(""));
  EXPECT_FALSE(key->CheckValueExists(""));
}

TEST_F(MemoryBackendTest, EnumerationCursors) {
  KeyPtr key = Make("k");
  SetInt(*key, "b", 2);
  SetInt(*key, "A", 1);
  Make("k\\Sub1");
  Make("k\\sub0");

  ValueBuffer out;
  ValueType type;
  std::string name;
  EXPECT_EQ(key->NextValue(out, &type, name), 4);
  EXPECT_EQ(name, "A");
  std::string text;
  EXPECT_TRUE(key->NextString(text, name));  // the forms share one cursor
  EXPECT_EQ(name, "b");
  EXPECT_EQ(text, "2");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(key->NextValue(out, kTypeI32, name), 0);
  EXPECT_EQ(name, "b");
  key->ResetValues();
  EXPECT_EQ(key->NextValue(out, kTypeStr, name), 2);
  EXPECT_EQ(name, "A");

  EXPECT_TRUE(key->NextSubKeyName(name));  // subkeys in case-blind order too
  EXPECT_EQ(name, "sub0");
  KeyPtr sub = key->NextSubKey(true);
  ASSERT_NE(sub, nullptr);
  EXPECT_EQ(sub->GetName(), "Sub1");
}

TEST_F(MemoryBackendTest, ReadOnlyRefusalsAreLogged) {
  Make("Dir\\sub");
  SetInt(*Make("Dir"), "v", 1);
  LogCapture log(1);
  KeyPtr key = Open("dir", true);
  int32_t number = 2;
  EXPECT_FALSE(key->SetValue(&number, sizeof number, kTypeI32, "v"));
  EXPECT_FALSE(key->SetValue(&number, sizeof number, kTypeI32, nullptr));
  EXPECT_FALSE(key->RemoveValue("v"));
  EXPECT_FALSE(key->RemoveKey("sub"));
  EXPECT_FALSE(key->RenameKey("sub", "x"));
  EXPECT_FALSE(key->CopyKey("sub", "x"));
  EXPECT_FALSE(Open("", true)->RemoveKey("dir"));
  EXPECT_EQ(log.Texts(), (std::vector<std::string>{
                             "SetValue 'v' on read-only key 'dir'",
                             "SetValue '(null)' on read-only key 'dir'",
                             "RemoveValue 'v' on read-only key 'dir'",
                             "RemoveKey 'sub' on read-only key 'dir'",
                             "RenameKey 'sub'->'x' on read-only key 'dir'",
                             "CopyKey 'sub'->'x' on read-only key 'dir'",
                             "RemoveKey 'dir' on read-only key ''",
                         }));
  EXPECT_EQ(Dumped(), "Dir\\\n  v: 1i32\n  sub\\\n");

  LogCapture filtered(0);
  EXPECT_FALSE(key->RemoveValue("v"));
  EXPECT_TRUE(filtered.Texts().empty());
}

TEST_F(MemoryBackendTest, RemoveKeyIsForgiving) {
  Make("a\\b\\c");
  KeyPtr top = Top();
  EXPECT_TRUE(top->RemoveKey("missing\\x"));
  EXPECT_TRUE(top->RemoveKey(""));
  EXPECT_TRUE(top->RemoveKey("a\\\\b"));  // the empty component doesn't exist
  EXPECT_TRUE(Open("a\\b\\c")->IsValid());
  Make("x\\y");
  Make("x\\z");
  RemoveSubKeys(Open("x"));
  EXPECT_EQ(Open("x")->CountSubKeys(), 0u);
}

TEST_F(MemoryBackendTest, DetachedKeyStaysUsable) {
  Make("a\\b");
  KeyPtr held = Open("a\\b");
  KeyPtr parent = Open("a");
  EXPECT_TRUE(Top()->RemoveKey("a"));
  EXPECT_TRUE(held->IsValid());
  SetInt(*held, "v", 4);
  EXPECT_EQ(GetInt(*held, "v"), 4);
  EXPECT_EQ(parent->CountSubKeys(), 1u);
  EXPECT_FALSE(Open("a")->IsValid());
  EXPECT_FALSE(Open("a\\b")->IsValid());

  ASSERT_TRUE(backend.Init("memory:"));  // a new tree; old keys live on
  EXPECT_EQ(GetInt(*held, "v"), 4);
  EXPECT_EQ(Top()->CountSubKeys(), 0u);
}

// Nesting and case checks of the shared suite, plus the quirks only this
// backend has: empty names and empty components are refused without a log line.
TEST_F(MemoryBackendTest, PathComparisonOfRenameAndCopy) {
  SetInt(*Make("Key\\sub"), "v", 1);
  SetInt(*Make("ab"), "v", 2);
  LogCapture log(4);
  KeyPtr top = Top();
  const std::string before = Dumped();
  for (bool rename : {true, false}) {
    auto move = [&](std::string_view from, std::string_view to) {
      return rename ? top->RenameKey(from, to) : top->CopyKey(from, to);
    };
    EXPECT_FALSE(move("\\x", ""));
    EXPECT_FALSE(move("", "elsewhere"));  // the empty name, not this key
    EXPECT_FALSE(move("key\\\\sub", "z"));
    EXPECT_EQ(Dumped(), before) << rename;
  }
  EXPECT_TRUE(log.Texts().empty());

  // "a" and "ab" are not nested: the next byte isn't a backslash.
  EXPECT_TRUE(top->CopyKey("ab", "a"));
  EXPECT_EQ(GetInt(*Open("a"), "v"), 2);
  EXPECT_TRUE(top->RenameKey("a", "ab"));
  EXPECT_EQ(SubKeyNames(*top), (std::vector<std::string>{"ab", "Key"}));
}

TEST_F(MemoryBackendTest, EmptyComponentsInRelativePaths) {
  Make("a");
  KeyPtr top = Top();
  EXPECT_TRUE(top->CopyKey("a", "b\\\\c"));
  EXPECT_EQ(Dumped(), "a\\\nb\\\n  \\\n    c\\\n");
  EXPECT_TRUE(top->RenameKey("b\\\\c", "d\\"));
  EXPECT_EQ(Dumped(), "a\\\nb\\\n  \\\nd\\\n  \\\n");
  EXPECT_TRUE(top->RemoveKey("d\\"));
  EXPECT_EQ(Dumped(), "a\\\nb\\\n  \\\nd\\\n");
}

}  // namespace
}  // namespace regkey
