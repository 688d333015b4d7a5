// What only the memory backend does; the shared behaviour is in
// key_contract_test.cc.
#include "registry/memory_backend.h"

#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/log_test_util.h"

namespace regkey {
namespace {

class MemoryBackendTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(backend.Init("memory:")); }
  KeyPtr Open(std::string_view path, bool read_only = false, bool create = false,
              std::string_view root = "") {
    return backend.Create(root, 0, read_only, path, create);
  }
  std::string Dumped() {
    ::testing::internal::CaptureStderr();
    backend.Dump();
    return ::testing::internal::GetCapturedStderr();
  }
  MemoryBackend backend;
};

TEST_F(MemoryBackendTest, RootAndPathCollapseAndFirstSpellingNamesTheKey) {
  const int32_t one = 1;
  ASSERT_TRUE(Open("b\\\\\\c", false, true, "Root\\\\a")->SetValue(&one, 4, kTypeI32, "v"));
  EXPECT_EQ(Dumped(), "Root\\\n  a\\\n    b\\\n      c\\\n        v: 1i32\n");
  EXPECT_EQ(Open("", true, false, "root\\a")->GetName(), "a");
  EXPECT_EQ(Open("")->NextSubKey(true)->GetName(), "Root");
}

// Null data, the type reported to a small buffer, a failed read keeping the caller's block.
TEST_F(MemoryBackendTest, NullDataTypeReportAndFailedRead) {
  KeyPtr key = Open("k", false, true);
  int64_t wide = 5;
  EXPECT_THROW(key->SetValue(nullptr, 0, kTypeStr, "s"), std::logic_error);
  EXPECT_THROW(key->SetValue(&wide, 8, kTypeI64, nullptr), std::logic_error);
  EXPECT_TRUE(key->SetValue(nullptr, 0, kTypeBin, "nothing"));
  ASSERT_TRUE(key->SetValue("hello", 0, kTypeStr, ""));
  char small[3];
  ValueType type = kTypeI32;
  EXPECT_EQ(key->GetValue(small, sizeof small, &type, ""), -6);
  EXPECT_EQ(type, kTypeStr);
  ValueBuffer out;
  EXPECT_EQ(key->GetValue(out, kTypeStr, ""), 6);
  const char* block = out.get();
  EXPECT_EQ(key->GetValue(out, kTypeI32, "nothing"), 0);
  EXPECT_EQ(out.get(), block);
  EXPECT_EQ(key->GetDefaultString(), "");
  std::string name, text;
  EXPECT_EQ(key->NextValue(out, &type, name), 6);
  EXPECT_FALSE(key->NextString(text, name));
}

TEST_F(MemoryBackendTest, ReadOnlyRefusalsAreLoggedAtLevelOne) {
  Open("Dir\\sub", false, true);
  ASSERT_TRUE(Open("dir")->SetValue("x", 2, kTypeStr, "v"));
  KeyPtr key = Open("dir", true);
  const int32_t number = 2;
  LogCapture log(1);
  EXPECT_FALSE(key->SetValue(&number, 4, kTypeI32, nullptr));
  EXPECT_FALSE(key->RemoveValue("v"));
  EXPECT_FALSE(key->RemoveKey("sub"));
  EXPECT_FALSE(Open("", true)->RenameKey("dir", "x"));
  LogSetup(0, kLogModuleOther);
  EXPECT_FALSE(key->CopyKey("sub", "x"));
  EXPECT_EQ(log.Texts(), (std::vector<std::string>{"SetValue '(null)' on read-only key 'dir'",
                                                   "RemoveValue 'v' on read-only key 'dir'",
                                                   "RemoveKey 'sub' on read-only key 'dir'",
                                                   "RenameKey 'dir'->'x' on read-only key ''"}));
}

// Empty names and components: remove finds nothing, rename and copy refuse
// an empty or bad source quietly, and a destination may create them.
TEST_F(MemoryBackendTest, EmptyComponentsAndDetachedKeys) {
  Open("a\\b", false, true);
  KeyPtr top = Open("");
  KeyPtr held = Open("a\\b");
  EXPECT_TRUE(top->RemoveKey(""));
  EXPECT_TRUE(top->RemoveKey("a\\\\b"));
  LogCapture log;
  EXPECT_FALSE(top->RenameKey("", "x"));
  EXPECT_FALSE(top->CopyKey("a\\\\b", "x"));
  EXPECT_FALSE(top->CopyKey("\\a", "x"));
  EXPECT_TRUE(log.Texts().empty());
  EXPECT_TRUE(top->CopyKey("a", "c\\\\d"));
  EXPECT_TRUE(top->RenameKey("c\\\\d", "e\\"));
  EXPECT_EQ(Dumped(), "a\\\n  b\\\nc\\\n  \\\ne\\\n  \\\n    b\\\n");
  EXPECT_TRUE(top->RemoveKey("a"));
  EXPECT_TRUE(held->SetValue("x", 2, kTypeStr, "v"));  // a detached key lives on
  EXPECT_TRUE(held->CheckValueExists("v"));
  EXPECT_FALSE(Open("a\\b")->IsValid());
}

}  // namespace
}  // namespace regkey
