// Behaviour of regkey::Key that every backend shares, run on "memory:" and on HIVECTL_PG_SPEC.
// Each test works below a top-level key of its own, so processes may run in parallel.
#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "registry/backend.h"
#include "registry/key.h"

namespace regkey {
namespace {

using Names = std::vector<std::string>;

std::vector<std::string> ContractSpecs() {
  const char* spec = std::getenv("HIVECTL_PG_SPEC");
  if (spec == nullptr || *spec == '\0') return {"memory:"};
  return {"memory:", spec};
}

class KeyContractTest : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    backend_ = MakeBackend(GetParam());
    ASSERT_NE(backend_, nullptr) << "backend '" << GetParam() << "' did not initialise";
    top_ = std::string("KeyContract_") +
           ::testing::UnitTest::GetInstance()->current_test_info()->name() + "_" +
           std::to_string(getpid());
    TearDown();
    base_ = Open("", false, true);
  }
  void TearDown() override {
    if (backend_ != nullptr) backend_->Create("", 0, false, "", true)->RemoveKey(top_);
  }

  // The key at `path` below this test's own top-level key.
  KeyPtr Open(std::string_view path, bool read_only = false, bool create = false) {
    return backend_->Create(top_, 0, read_only, path, create);
  }
  bool Exists(std::string_view path) { return Open(path)->IsValid(); }
  // Stores an i32 (a database key comes into being with its first value).
  void Set(std::string_view path, const char* name, int32_t number) {
    ASSERT_TRUE(Open(path, false, true)->SetValue(&number, 4, kTypeI32, name)) << path;
  }
  int32_t GetInt32(std::string_view path, const char* name) {
    int32_t number = -12345;
    EXPECT_EQ(Open(path, true)->GetValue(&number, 4, kTypeI32, name), 4) << path << " " << name;
    return number;
  }
  // The keys below `path` as "name{value=text,...}", sorted, read through the text
  // enumerations; subkeys follow their parent's entry with their path.
  std::string Tree(const std::string& path = "") {
    KeyPtr key = Open(path, true);
    Names values, subkeys;
    std::string name, text;
    while (key->NextString(text, name)) values.push_back(name + "=" + text);
    while (key->NextSubKeyName(name)) subkeys.push_back(path.empty() ? name : path + "\\" + name);
    std::sort(values.begin(), values.end());
    std::sort(subkeys.begin(), subkeys.end());
    std::string tree = "{";
    for (const std::string& value : values) tree += (tree.size() > 1 ? "," : "") + value;
    tree += "}";
    for (const std::string& subkey : subkeys) tree += " " + subkey + Tree(subkey);
    return tree;
  }

  std::shared_ptr<Backend> backend_;
  std::string top_;
  KeyPtr base_;
};

// Names ignore ASCII case only; inner runs of backslashes are one break, edge ones invalid.
TEST_P(KeyContractTest, PathRulesAndCase) {
  Set("a\\\\b\\\\\\c", "v", 2);
  EXPECT_EQ(Open("A\\B\\c")->GetName(), "c");
  EXPECT_EQ(GetInt32("a\\B\\C", "v"), 2);
  Set("A\\b", "w", 1);
  Set("x\\\xc3\x89", "v", 1);
  Set("x\\\xc3\xa9", "v", 2);
  EXPECT_EQ(Tree(), "{} a{} a\\b{w=1} a\\b\\c{v=2} x{} x\\\xc3\x89{v=1} x\\\xc3\xa9{v=2}");
  for (auto path : {"\\a", "a\\", "\\", "a\\b\\"}) {
    for (bool read_only : {false, true}) {
      KeyPtr key = Open(path, read_only, !read_only);
      EXPECT_FALSE(key->IsValid()) << path;
      EXPECT_TRUE(key->GetName().empty()) << path;
      EXPECT_FALSE(key->CheckValueExists("w")) << path;
    }
  }
  EXPECT_FALSE(backend_->Create(top_ + "\\", 0, false, "a", true)->IsValid());
  EXPECT_FALSE(Exists("missing"));
  EXPECT_FALSE(Open("missing", true, true)->IsValid());
}

// Remove takes the subtree; rename replaces the destination, copy merges into it.
TEST_P(KeyContractTest, RemoveRenameAndCopy) {
  Set("src", "x", 1);
  Set("src\\inner", "deep", 2);
  Set("dst", "x", 9);
  Set("dst", "only_dst", 3);
  Set("dst\\own_child", "v", 1);
  Set("ren", "y", 4);
  Set("ren\\inner", "deep", 5);
  EXPECT_TRUE(base_->RemoveKey("missing"));
  EXPECT_TRUE(base_->CopyKey("src", "dst"));
  Set("dst\\inner", "deep", 7);  // a copy, not shared
  EXPECT_EQ(Tree(), "{} dst{only_dst=3,x=1} dst\\inner{deep=7} dst\\own_child{v=1} ren{y=4} "
                    "ren\\inner{deep=5} src{x=1} src\\inner{deep=2}");
  EXPECT_TRUE(base_->RenameKey("ren", "DST"));
  EXPECT_TRUE(base_->RenameKey("dst\\inner", "one\\two"));
  EXPECT_TRUE(base_->CopyKey("src", "new\\place"));
  const std::string dst = GetParam() == "memory:" ? "dst" : "DST";  // memory keeps a spelling
  EXPECT_EQ(Tree(), "{} " + dst + "{y=4} new{} new\\place{x=1} new\\place\\inner{deep=2} one{} "
                    "one\\two{deep=5} src{x=1} src\\inner{deep=2}");
  EXPECT_TRUE(base_->RemoveKey("ONE\\two"));
  EXPECT_EQ(Tree("one"), "{}");
  const std::string before = Tree();
  for (bool rename : {true, false}) {  // into itself or an ancestor: the e2e cases
    EXPECT_TRUE(rename ? base_->RenameKey("src", "SRC") : base_->CopyKey("src", "SRC"));
    EXPECT_FALSE(rename ? base_->RenameKey("missing", "else") : base_->CopyKey("missing", "else"));
  }
  EXPECT_EQ(Tree(), before);
}

std::string BackendName(const ::testing::TestParamInfo<std::string>& spec) {
  return spec.param.substr(0, spec.param.find(':'));
}
INSTANTIATE_TEST_SUITE_P(Backends, KeyContractTest, ::testing::ValuesIn(ContractSpecs()),
                         BackendName);

}  // namespace
}  // namespace regkey
