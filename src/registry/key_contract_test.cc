// Behaviour of regkey::Key that every backend shares, run on "memory:" and on HIVECTL_PG_SPEC.
// Each test works below a top-level key of its own, so processes may run in parallel.
#include <algorithm>
#include <climits>
#include <cstdlib>
#include <string>
#include <tuple>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "registry/backend.h"
#include "registry/key.h"
#include "support/log_test_util.h"

namespace regkey {
namespace {

using Names = std::vector<std::string>;

std::vector<std::string> ContractSpecs() {
  const char* spec = std::getenv("HIVECTL_PG_SPEC");
  if (spec == nullptr || *spec == '\0') return {"memory:"};
  return {"memory:", spec};
}

template <typename T>
std::string Raw(T number) {
  return std::string(reinterpret_cast<const char*>(&number), sizeof number);
}
std::string WithNul(const std::string& text) { return text + std::string(1, '\0'); }

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

// Every type and size reads back as stored; short numbers and unknown types are refused.
TEST_P(KeyContractTest, SetAndGetEveryTypeAndSize) {
  std::string all_bytes;
  for (int i = 0; i < 256 * 4096; ++i) all_bytes.push_back(static_cast<char>(i * 7));
  const std::tuple<const char*, ValueType, std::string> cases[] = {
      {"i32", kTypeI32, Raw<int32_t>(INT32_MIN)},     {"i64", kTypeI64, Raw<int64_t>(INT64_MIN)},
      {"i64max", kTypeI64, Raw<int64_t>(INT64_MAX)},  {"empty", kTypeStr, WithNul("")},
      {"text", kTypeStr, WithNul("h\xc3\xa9llo, \"w\"\\\n")},
      {"long", kTypeStr, WithNul(std::string(100000, 'x'))},
      {"nul", kTypeStr, std::string("ab\0cd", 5)},    {"big", kTypeBin, all_bytes},
      {"one", kTypeBin, std::string(1, '\0')},        {"nothing", kTypeBin, ""},
  };
  KeyPtr key = Open("values", false, true);
  for (const auto& [name, type, stored] : cases) {
    ASSERT_TRUE(key->SetValue(stored.data(), stored.size(), type, name)) << name;
  }
  const int64_t number = 42;
  EXPECT_FALSE(key->SetValue(&number, 3, kTypeI32, "refused"));
  EXPECT_FALSE(key->SetValue(&number, 4, kTypeI64, "refused"));
  EXPECT_FALSE(key->SetValue(&number, 8, static_cast<ValueType>(4), "refused"));
  KeyPtr reader = Open("values", true);
  for (const auto& [name, stored_type, stored] : cases) {
    const std::string expected = stored_type == kTypeStr ? WithNul(stored.c_str()) : stored;
    ValueBuffer out;
    ValueType type = static_cast<ValueType>(-1);
    const int64_t result = reader->GetValue(out, &type, name);
    ASSERT_EQ(result, static_cast<int64_t>(expected.size())) << name;
    EXPECT_TRUE(std::string(out.get(), result) == expected) << name;
    EXPECT_EQ(type, result > 0 ? stored_type : type) << name;
  }
  EXPECT_TRUE(reader->CheckValueExists("nothing"));
  EXPECT_FALSE(reader->CheckValueExists("refused"));
  EXPECT_EQ(reader->CountValues(), 10u);
  ASSERT_TRUE(key->SetValue(&number, 8, kTypeI64, "text"));
  ValueType type;
  ValueBuffer out;
  EXPECT_EQ(reader->GetValue(out, &type, "text"), 8);
  EXPECT_EQ(type, kTypeI64);
}

// Reads as another type; a buffer too small gets the size needed, negated.
TEST_P(KeyContractTest, SharedConversions) {
  Set("k", "seven", 7);
  Set("k", "minus", -1);
  KeyPtr key = Open("k");
  for (const int64_t number : {5000000000LL, -5000000000LL}) {
    ASSERT_TRUE(key->SetValue(&number, 8, kTypeI64, number > 0 ? "huge" : "tiny"));
  }
  for (const char* text : {"  YES", "maybe", "12abc"}) {
    ASSERT_TRUE(key->SetValue(text, 6, kTypeStr, text));
  }
  ASSERT_TRUE(key->SetValue("\x01\x02\x03", 3, kTypeBin, "bin"));
  const std::tuple<const char*, ValueType, int64_t, std::string> cases[] = {
      {"seven", kTypeStr, 2, WithNul("7")},      {"minus", kTypeI64, 8, Raw<int64_t>(-1)},
      {"huge", kTypeI32, 4, Raw<int32_t>(-1)},   {"tiny", kTypeI32, 4, Raw<int32_t>(INT32_MIN)},
      {"huge", kTypeStr, 11, WithNul("5000000000")},
      {"  YES", kTypeI32, 4, Raw<int32_t>(1)},   {"12abc", kTypeI64, 8, Raw<int64_t>(12)},
      {"maybe", kTypeI32, 0, ""},                {"bin", kTypeI32, 0, ""},
      {"bin", kTypeI64, 0, ""},                  {"bin", kTypeStr, 0, ""},
      {"missing", kTypeStr, 0, ""},
  };
  for (const auto& [name, wanted, expected, bytes] : cases) {
    ValueBuffer out;
    const int64_t result = key->GetValue(out, wanted, name);
    EXPECT_EQ(result, expected) << name << " " << wanted;
    EXPECT_EQ(std::string(out.get(), result > 0 ? result : 0), bytes) << name;
  }
  std::string text = "unchanged";
  EXPECT_FALSE(key->GetString(text, "bin"));
  EXPECT_EQ(text, "unchanged");
  EXPECT_TRUE(key->GetString(text, "minus"));
  EXPECT_EQ(text, "-1");
  char small[3];
  EXPECT_EQ(key->GetValue(small, sizeof small, kTypeI32, "seven"), -4);
  EXPECT_EQ(key->GetValue(small, sizeof small, kTypeI64, "seven"), -8);
  EXPECT_EQ(key->GetValue(small, sizeof small, kTypeStr, "maybe"), -6);
  EXPECT_EQ(key->GetValue(small, sizeof small, kTypeBin, "bin"), 3);
  ValueType type = kTypeI32;
  EXPECT_EQ(key->GetValue(small, 2, &type, "bin"), -3);
  EXPECT_EQ(type, kTypeBin);
}

// Counts, both enumerations with their resets, subkeys' read-only flag, clones.
TEST_P(KeyContractTest, Enumerations) {
  Set("k", "n", 5);
  ASSERT_TRUE(Open("k")->SetValue("five", 5, kTypeStr, "s"));
  Set("k\\Sub1", "marker", 1);
  Set("k\\sub2\\deeper", "marker", 1);
  EXPECT_EQ(Tree("k"), "{n=5,s=five} k\\Sub1{marker=1} k\\sub2{} k\\sub2\\deeper{marker=1}");
  KeyPtr reader = Open("k", true);
  EXPECT_EQ(reader->CountValues(), 2u);
  EXPECT_EQ(reader->CountSubKeys(), 2u);
  std::string name, text;
  int strings = 0;
  while (reader->NextString(text, name)) ++strings;
  EXPECT_EQ(strings, 2);
  ValueBuffer out;
  ValueType type;
  for (int i = 0; i < 2; ++i) EXPECT_LE(reader->NextValue(out, &type, name), 0);  // one cursor
  reader->ResetValues();
  EXPECT_GT(reader->NextValue(out, &type, name), 0);
  Names opened;
  const int32_t number = 3;
  while (KeyPtr sub = reader->NextSubKey(true)) {
    opened.emplace_back(sub->GetName());
    EXPECT_FALSE(sub->SetValue(&number, 4, kTypeI32, "w"));
  }
  std::sort(opened.begin(), opened.end());
  EXPECT_EQ(opened, (Names{"Sub1", "sub2"}));
  EXPECT_EQ(reader->NextSubKey(true), nullptr);
  KeyPtr clone = reader->Clone();
  EXPECT_TRUE(clone->NextSubKeyName(name));
  EXPECT_FALSE(clone->SetValue(&number, 4, kTypeI32, "w"));
  reader->ResetSubKeys();
  KeyPtr writable = reader->NextSubKey(false);
  EXPECT_TRUE(writable->SetValue(&number, 4, kTypeI32, "v"));
  EXPECT_EQ(GetInt32("k\\" + std::string(writable->GetName()), "v"), 3);
}

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

// Writes through a read-only key fail and are logged at level 1, naming the key as
// opened: its whole path on a database, its last name in memory.
TEST_P(KeyContractTest, ReadOnlyRefusalsAreLoggedAtLevelOne) {
  Set("Dir\\sub", "v", 1);
  KeyPtr key = Open("dir", true);
  const std::string dir = "' on read-only key '" + (GetParam() == "memory:" ? "" : top_ + "\\");
  LogCapture log(1);
  EXPECT_FALSE(key->SetValue("y", 2, kTypeStr, nullptr));
  EXPECT_FALSE(key->RemoveValue("v"));
  EXPECT_FALSE(key->RemoveKey("sub"));
  EXPECT_FALSE(key->RenameKey("sub", "x"));
  EXPECT_FALSE(Open("", true)->CopyKey("dir", "x"));
  LogSetup(0, kLogModuleOther);
  EXPECT_FALSE(key->RemoveValue("v"));
  EXPECT_EQ(log.Texts(), (Names{"SetValue '(null)" + dir + "dir'",
                                "RemoveValue 'v" + dir + "dir'",
                                "RemoveKey 'sub" + dir + "dir'",
                                "RenameKey 'sub'->'x" + dir + "dir'",
                                "CopyKey 'dir'->'x' on read-only key '" + top_ + "'"}));
  EXPECT_EQ(log.Text()[25], '1');
  EXPECT_EQ(Tree("dir"), "{} dir\\sub{v=1}");
}

INSTANTIATE_TEST_SUITE_P(Backends, KeyContractTest, ::testing::ValuesIn(ContractSpecs()),
                         [](const auto& spec) {
                           return spec.param.substr(0, spec.param.find(':'));
                         });

}  // namespace
}  // namespace regkey
