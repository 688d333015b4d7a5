// Behaviour of regkey::Key that every backend shares. The suite runs once
// per backend specification: "memory:" always, and the specification in
// HIVECTL_PG_SPEC when it is set. Each test works below a top-level key of
// its own and removes it afterwards, so tests may run in parallel processes.
// Deliberate differences between the backends stay out of here: reads of
// numbers and str as bin, GetDefaultString, the order of enumerations,
// value-name case, paths with empty components, and the log lines.
#include <algorithm>
#include <climits>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "registry/backend.h"
#include "registry/key.h"

namespace regkey {
namespace {

using Names = std::vector<std::string>;

std::vector<std::string> ContractSpecs() {
  std::vector<std::string> specs = {"memory:"};
  const char* pg_spec = std::getenv("HIVECTL_PG_SPEC");
  if (pg_spec != nullptr && *pg_spec != '\0') specs.emplace_back(pg_spec);
  return specs;
}

std::string SpecName(const ::testing::TestParamInfo<std::string>& info) {
  return info.param.substr(0, info.param.find(':'));
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
  }
  void TearDown() override {
    if (backend_ != nullptr) backend_->Create("", 0, false, "", true)->RemoveKey(top_);
  }

  // The key at `path` below this test's own top-level key.
  KeyPtr Open(std::string_view path, bool read_only = false, bool create = false) {
    return backend_->Create(top_, 0, read_only, path, create);
  }
  KeyPtr Make(std::string_view path) { return Open(path, false, true); }
  KeyPtr Base() { return Make(""); }
  bool Exists(std::string_view path) { return Open(path)->IsValid(); }
  // Stores an i32 (a database key comes into being with its first value).
  void Set(std::string_view path, const char* name, int32_t number) {
    ASSERT_TRUE(Make(path)->SetValue(&number, 4, kTypeI32, name)) << path << " " << name;
  }
  int32_t GetInt32(std::string_view path, const char* name) {
    int32_t number = -12345;
    EXPECT_EQ(Open(path, true)->GetValue(&number, 4, kTypeI32, name), 4) << path << " " << name;
    return number;
  }
  // Result of an allocating read as `type`, and its bytes.
  int64_t GetAs(Key& key, const char* name, ValueType type, std::string* bytes = nullptr) {
    ValueBuffer out;
    const int64_t result = key.GetValue(out, type, name);
    if (bytes != nullptr) bytes->assign(out.get(), result > 0 ? static_cast<size_t>(result) : 0);
    return result;
  }
  Names SubKeyNames(Key& key) {
    Names names;
    std::string name;
    key.ResetSubKeys();
    while (key.NextSubKeyName(name)) names.push_back(name);
    std::sort(names.begin(), names.end());
    return names;
  }
  Names ValueNames(Key& key) {
    Names names;
    std::string name;
    ValueBuffer out;
    ValueType type;
    key.ResetValues();
    while (key.NextValue(out, &type, name) > 0) names.push_back(name);
    std::sort(names.begin(), names.end());
    return names;
  }

  std::shared_ptr<Backend> backend_;
  std::string top_;
};

TEST_P(KeyContractTest, SetAndGetEveryTypeAndSize) {
  std::string all_bytes;
  for (int i = 0; i < 256 * 4096; ++i) all_bytes.push_back(static_cast<char>(i * 7));
  const std::string text = "h\xc3\xa9llo, \"world\"\\\n";
  const std::string long_text(100000, 'x');
  struct Case {
    const char* name;
    ValueType type;
    std::string stored;  // str: with its NUL
  } const cases[] = {
      {"i32", kTypeI32, Raw<int32_t>(-1)},        {"i32min", kTypeI32, Raw<int32_t>(INT32_MIN)},
      {"i64", kTypeI64, Raw<int64_t>(INT64_MIN)}, {"i64max", kTypeI64, Raw<int64_t>(INT64_MAX)},
      {"empty", kTypeStr, WithNul("")},           {"text", kTypeStr, WithNul(text)},
      {"long", kTypeStr, WithNul(long_text)},     {"big", kTypeBin, all_bytes},
      {"one", kTypeBin, std::string(1, '\0')},
  };
  KeyPtr key = Make("values");
  for (const Case& c : cases) {
    ASSERT_TRUE(key->SetValue(c.stored.data(), c.stored.size(), c.type, c.name)) << c.name;
  }
  KeyPtr reader = Open("values", true);
  for (const Case& c : cases) {
    ValueBuffer out;
    ValueType type = static_cast<ValueType>(-1);
    const int64_t result = reader->GetValue(out, &type, c.name);
    ASSERT_EQ(result, static_cast<int64_t>(c.stored.size())) << c.name;
    EXPECT_EQ(type, c.type) << c.name;
    EXPECT_TRUE(std::string(out.get(), result) == c.stored) << c.name;
  }
  EXPECT_EQ(reader->CountValues(), 9u);
}

// Short numbers and unknown types are refused; str runs to its first NUL; a
// new type overwrites; a zero-length bin exists but reads as nothing.
TEST_P(KeyContractTest, SetValueEdges) {
  KeyPtr key = Make("k");
  const int64_t number = 42;
  EXPECT_FALSE(key->SetValue(&number, 3, kTypeI32, "a"));
  EXPECT_FALSE(key->SetValue(&number, 4, kTypeI64, "a"));
  EXPECT_FALSE(key->SetValue(&number, 8, static_cast<ValueType>(4), "a"));
  EXPECT_FALSE(key->CheckValueExists("a"));
  ASSERT_TRUE(key->SetValue("ab\0cd", 5, kTypeStr, "s"));
  std::string text;
  EXPECT_TRUE(key->GetString(text, "s"));
  EXPECT_EQ(text, "ab");
  ASSERT_TRUE(key->SetValue(&number, 8, kTypeI64, "s"));
  ValueType type;
  ValueBuffer out;
  EXPECT_EQ(key->GetValue(out, &type, "s"), 8);
  EXPECT_EQ(type, kTypeI64);
  ASSERT_TRUE(key->SetValue("", 0, kTypeBin, "nothing"));
  EXPECT_TRUE(key->CheckValueExists("nothing"));
  EXPECT_EQ(key->GetValue(out, &type, "nothing"), 0);
  EXPECT_EQ(key->CountValues(), 2u);
}

TEST_P(KeyContractTest, SharedConversions) {
  KeyPtr key = Make("k");
  const int32_t seven = 7, minus = -1;
  const int64_t huge = 5000000000LL, tiny = -5000000000LL;
  ASSERT_TRUE(key->SetValue(&seven, 4, kTypeI32, "seven"));
  ASSERT_TRUE(key->SetValue(&minus, 4, kTypeI32, "minus"));
  ASSERT_TRUE(key->SetValue(&huge, 8, kTypeI64, "huge"));
  ASSERT_TRUE(key->SetValue(&tiny, 8, kTypeI64, "tiny"));
  for (const char* text : {"  YES", "maybe", "12abc"}) {
    ASSERT_TRUE(key->SetValue(text, 6, kTypeStr, text));
  }
  ASSERT_TRUE(key->SetValue("\x01\x02\x03", 3, kTypeBin, "bin"));

  struct Case {
    const char* name;
    ValueType wanted;
    int64_t result;
    std::string bytes;
  } const cases[] = {
      {"seven", kTypeStr, 2, WithNul("7")},
      {"minus", kTypeI64, 8, Raw<int64_t>(-1)},
      {"huge", kTypeI32, 4, Raw<int32_t>(-1)},
      {"tiny", kTypeI32, 4, Raw<int32_t>(INT32_MIN)},
      {"huge", kTypeStr, 11, WithNul("5000000000")},
      {"  YES", kTypeI32, 4, Raw<int32_t>(1)},
      {"12abc", kTypeI64, 8, Raw<int64_t>(12)},
      {"maybe", kTypeI32, 0, ""},
      {"bin", kTypeI32, 0, ""},
      {"bin", kTypeI64, 0, ""},
      {"bin", kTypeStr, 0, ""},
      {"missing", kTypeStr, 0, ""},
  };
  for (const Case& c : cases) {
    std::string bytes;
    EXPECT_EQ(GetAs(*key, c.name, c.wanted, &bytes), c.result) << c.name << " " << c.wanted;
    EXPECT_EQ(bytes, c.bytes) << c.name << " " << c.wanted;
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

TEST_P(KeyContractTest, Enumerations) {
  Set("k", "n", 5);
  ASSERT_TRUE(Make("k")->SetValue("five", 5, kTypeStr, "s"));
  const int64_t six = 6;
  ASSERT_TRUE(Make("k")->SetValue(&six, 8, kTypeI64, "w"));
  Set("k\\Sub1", "marker", 1);
  Set("k\\sub2\\deeper", "marker", 1);

  KeyPtr reader = Open("k", true);
  EXPECT_EQ(reader->CountValues(), 3u);
  EXPECT_EQ(reader->CountSubKeys(), 2u);
  std::vector<std::pair<std::string, std::string>> seen;
  std::string name, text;
  while (reader->NextString(text, name)) seen.emplace_back(name, text);
  std::sort(seen.begin(), seen.end());
  EXPECT_EQ(seen, (std::vector<std::pair<std::string, std::string>>{{"n", "5"}, {"s", "five"}, {"w", "6"}}));
  ValueBuffer out;
  ValueType type;
  for (int i = 0; i < 2; ++i) EXPECT_LE(reader->NextValue(out, &type, name), 0);
  EXPECT_EQ(ValueNames(*reader), (Names{"n", "s", "w"}));
  EXPECT_EQ(SubKeyNames(*reader), (Names{"Sub1", "sub2"}));

  reader->ResetSubKeys();
  Names opened;
  while (KeyPtr sub = reader->NextSubKey(true)) {
    opened.emplace_back(sub->GetName());
    if (sub->GetName() == "sub2") {
      EXPECT_EQ(SubKeyNames(*sub), Names{"deeper"});
    }
  }
  std::sort(opened.begin(), opened.end());
  EXPECT_EQ(opened, (Names{"Sub1", "sub2"}));
  EXPECT_EQ(reader->NextSubKey(true), nullptr);
  KeyPtr clone = reader->Clone();  // fresh cursors
  EXPECT_TRUE(clone->NextSubKeyName(name));
  EXPECT_GT(clone->NextValue(out, &type, name), 0);
}

TEST_P(KeyContractTest, NextSubKeyTakesItsOwnReadOnlyFlag) {
  Set("k\\child", "marker", 1);
  KeyPtr reader = Open("k", true);
  const int32_t number = 3;
  EXPECT_TRUE(reader->NextSubKey(false)->SetValue(&number, 4, kTypeI32, "v"));
  EXPECT_EQ(GetInt32("k\\child", "v"), 3);
  reader->ResetSubKeys();
  EXPECT_FALSE(reader->NextSubKey(true)->SetValue(&number, 4, kTypeI32, "w"));
  EXPECT_FALSE(reader->Clone()->SetValue(&number, 4, kTypeI32, "w"));
}

TEST_P(KeyContractTest, KeyNamesIgnoreCase) {
  Set("Case\\Sub", "v", 9);
  KeyPtr other = Open("CASE\\sUB");
  EXPECT_EQ(other->GetName(), "sUB");
  EXPECT_EQ(GetInt32("CASE\\sUB", "v"), 9);
  Set("case\\SUB", "w", 1);
  EXPECT_EQ(SubKeyNames(*Open("case")), Names{"Sub"});
  // Only A-Z fold: E with acute in either case names two keys.
  Set("x\\\xc3\x89", "v", 1);
  Set("x\\\xc3\xa9", "v", 2);
  EXPECT_EQ(SubKeyNames(*Open("x")).size(), 2u);
}

TEST_P(KeyContractTest, CreatePathRules) {
  Set("a\\b", "marker", 1);
  for (auto path : {"\\a", "a\\", "\\", "a\\b\\"}) {
    for (bool read_only : {false, true}) {
      KeyPtr key = Open(path, read_only, !read_only);
      EXPECT_FALSE(key->IsValid()) << path;
      EXPECT_TRUE(key->GetName().empty()) << path;
      EXPECT_FALSE(key->CheckValueExists("marker")) << path;
    }
  }
  EXPECT_FALSE(backend_->Create(top_ + "\\", 0, false, "a", true)->IsValid());
  KeyPtr collapsed = Make("a\\\\b\\\\\\c");
  EXPECT_EQ(collapsed->GetName(), "c");
  Set("a\\\\b\\\\\\c", "v", 2);
  EXPECT_EQ(GetInt32("a\\b\\c", "v"), 2);
  EXPECT_EQ(Base()->CountSubKeys(), 1u);
  EXPECT_FALSE(Open("missing")->IsValid());
  EXPECT_FALSE(Open("missing", true, true)->IsValid());
  EXPECT_TRUE(Open("a\\b", true)->IsValid());
}

TEST_P(KeyContractTest, RemoveKey) {
  Set("a\\b\\c", "v", 1);
  Set("a\\keep", "v", 1);
  EXPECT_TRUE(Base()->RemoveKey("missing"));
  EXPECT_TRUE(Base()->RemoveKey("A\\B"));
  EXPECT_FALSE(Exists("a\\b"));
  EXPECT_FALSE(Exists("a\\b\\c"));
  EXPECT_TRUE(Exists("a\\keep"));
}

TEST_P(KeyContractTest, RenameReplacesDestination) {
  Set("src", "from_src", 1);
  Set("src\\inner", "deep", 2);
  Set("dst", "from_dst", 3);
  Set("dst\\old_child", "v", 1);
  EXPECT_TRUE(Base()->RenameKey("src", "dst"));
  EXPECT_FALSE(Exists("src"));
  EXPECT_EQ(ValueNames(*Open("dst")), Names{"from_src"});
  EXPECT_EQ(SubKeyNames(*Open("dst")), Names{"inner"});
  EXPECT_TRUE(Base()->RenameKey("dst\\inner", "one\\two\\three"));
  EXPECT_EQ(GetInt32("one\\two\\three", "deep"), 2);
  EXPECT_FALSE(Exists("dst\\inner"));
}

TEST_P(KeyContractTest, CopyMergesIntoDestination) {
  Set("src", "x", 1);
  Set("src\\inner", "deep", 2);
  Set("dst", "x", 9);
  Set("dst", "only_dst", 3);
  Set("dst\\own_child", "v", 1);
  EXPECT_TRUE(Base()->CopyKey("src", "dst"));
  EXPECT_EQ(GetInt32("dst", "x"), 1);
  EXPECT_EQ(GetInt32("dst", "only_dst"), 3);
  EXPECT_EQ(SubKeyNames(*Open("dst")), (Names{"inner", "own_child"}));
  Set("dst\\inner", "deep", 5);  // a copy, not shared
  EXPECT_EQ(GetInt32("src\\inner", "deep"), 2);
  EXPECT_TRUE(Base()->CopyKey("src", "new\\place"));
  EXPECT_EQ(GetInt32("new\\place\\inner", "deep"), 2);
}

TEST_P(KeyContractTest, RenameAndCopyPathChecks) {
  Set("Key\\sub", "v", 1);
  KeyPtr base = Base();
  for (bool rename : {true, false}) {
    auto move = [&](std::string_view from, std::string_view to) {
      return rename ? base->RenameKey(from, to) : base->CopyKey(from, to);
    };
    EXPECT_TRUE(move("key", "KEY")) << rename;
    EXPECT_FALSE(move("key", "Key\\sub\\x")) << rename;
    EXPECT_FALSE(move("KEY\\SUB", "key")) << rename;
    EXPECT_FALSE(move("missing", "elsewhere")) << rename;
    EXPECT_FALSE(Exists("elsewhere")) << rename;
    EXPECT_EQ(SubKeyNames(*base), Names{"Key"});
    EXPECT_EQ(GetInt32("key\\sub", "v"), 1);
  }
}

TEST_P(KeyContractTest, ReadOnlyKeyRefusesChanges) {
  Set("k", "v", 1);
  Set("k\\sub", "v", 1);
  KeyPtr key = Open("k", true);
  ASSERT_TRUE(key->IsValid());
  const int32_t number = 2;
  EXPECT_FALSE(key->SetValue(&number, 4, kTypeI32, "v"));
  EXPECT_FALSE(key->SetValue(&number, 4, kTypeI32, "new"));
  EXPECT_FALSE(key->RemoveValue("v"));
  EXPECT_FALSE(key->RemoveKey("sub"));
  EXPECT_FALSE(key->RenameKey("sub", "moved"));
  EXPECT_FALSE(key->CopyKey("sub", "copied"));
  EXPECT_FALSE(key->Clone()->RemoveValue("v"));
  EXPECT_EQ(GetInt32("k", "v"), 1);
  EXPECT_EQ(ValueNames(*Open("k")), Names{"v"});
  EXPECT_EQ(SubKeyNames(*Open("k")), Names{"sub"});
}

TEST_P(KeyContractTest, ConcurrentWritersOnOwnKeys) {
  constexpr int kThreads = 4, kKeys = 25;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kKeys; ++i) {
        const int32_t number = t * 1000 + i;
        const std::string name = "t" + std::to_string(t);
        EXPECT_TRUE(Make("shared\\k" + std::to_string(i))
                        ->SetValue(&number, 4, kTypeI32, name.c_str()));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(Open("shared")->CountSubKeys(), static_cast<uint32_t>(kKeys));
  for (int i = 0; i < kKeys; ++i) {
    for (int t = 0; t < kThreads; ++t) {
      EXPECT_EQ(GetInt32("shared\\k" + std::to_string(i), ("t" + std::to_string(t)).c_str()),
                t * 1000 + i);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Backends, KeyContractTest, ::testing::ValuesIn(ContractSpecs()), SpecName);

}  // namespace
}  // namespace regkey
