// Behaviour of regkey::Key that every backend shares. The suite runs once
// per backend specification: "memory:" always, and the specification in the
// environment variable HIVECTL_PG_SPEC when it is set (e.g.
// "postgresql:dbname=hivectl_test;host=/run/postgresql;"). Each test works
// below a top-level key of its own and removes it afterwards, so tests need
// no reset of a shared registry and may run in parallel processes.
//
// Deliberate differences between the backends stay out of here: reads of
// numbers and str as bin, GetDefaultString, the order of enumerations,
// value-name case, and paths with empty components.
#include <algorithm>
#include <atomic>
#include <cctype>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "registry/backend.h"
#include "registry/key.h"

namespace regkey {
namespace {

std::vector<std::string> ContractSpecs() {
  std::vector<std::string> specs = {"memory:"};
  const char* pg_spec = std::getenv("HIVECTL_PG_SPEC");
  if (pg_spec != nullptr && *pg_spec != '\0') specs.emplace_back(pg_spec);
  return specs;
}

std::string SpecName(const ::testing::TestParamInfo<std::string>& info) {
  std::string name = info.param.substr(0, info.param.find(':'));
  for (char& c : name) {
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  }
  return name;
}

struct Read {
  int64_t result;
  ValueType type;
  std::string bytes;
};

class KeyContractTest : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    backend_ = MakeBackend(GetParam());
    ASSERT_NE(backend_, nullptr) << "backend '" << GetParam() << "' did not initialise";
    const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
    top_ = std::string("KeyContract_") + info->name() + "_" + std::to_string(getpid());
    for (char& c : top_) {
      if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
    }
    RegistryTop()->RemoveKey(top_);
  }
  void TearDown() override {
    if (backend_ != nullptr) RegistryTop()->RemoveKey(top_);
  }

  KeyPtr RegistryTop() { return backend_->Create("", 0, false, "", true); }
  // The key at `path` below this test's own top-level key.
  KeyPtr Open(std::string_view path, bool read_only = false, bool create = false) {
    return backend_->Create(top_, 0, read_only, path, create);
  }
  KeyPtr Make(std::string_view path) { return Open(path, false, true); }
  // Makes the key exist: a database key comes into being with its first value.
  void Touch(std::string_view path) {
    int32_t one = 1;
    ASSERT_TRUE(Make(path)->SetValue(&one, sizeof one, kTypeI32, "marker")) << path;
  }
  bool Exists(std::string_view path) { return Open(path)->IsValid(); }
  // The test's top-level key, writable, for the whole-key operations.
  KeyPtr Base() { return Open("", false, true); }

  template <typename T>
  void Set(Key& key, const char* name, T number, ValueType type) {
    ASSERT_TRUE(key.SetValue(&number, sizeof number, type, name)) << name;
  }
  void SetText(Key& key, const char* name, const std::string& text) {
    ASSERT_TRUE(key.SetValue(text.c_str(), text.size() + 1, kTypeStr, name)) << name;
  }
  Read Get(Key& key, const char* name) {
    ValueBuffer out;
    Read read{0, static_cast<ValueType>(-1), std::string()};
    read.result = key.GetValue(out, &read.type, name);
    if (read.result > 0) read.bytes.assign(out.get(), static_cast<size_t>(read.result));
    return read;
  }
  int64_t GetAs(Key& key, const char* name, ValueType type, std::string* bytes = nullptr) {
    ValueBuffer out;
    const int64_t result = key.GetValue(out, type, name);
    if (bytes != nullptr && result > 0) bytes->assign(out.get(), static_cast<size_t>(result));
    return result;
  }
  int32_t GetInt32(Key& key, const char* name) {
    int32_t number = 0;
    EXPECT_EQ(key.GetValue(&number, sizeof number, kTypeI32, name), 4) << name;
    return number;
  }
  std::vector<std::string> SortedSubKeyNames(Key& key) {
    std::vector<std::string> names;
    std::string name;
    key.ResetSubKeys();
    while (key.NextSubKeyName(name)) names.push_back(name);
    std::sort(names.begin(), names.end());
    return names;
  }
  std::vector<std::string> SortedValueNames(Key& key) {
    std::vector<std::string> names;
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

template <typename T>
std::string Raw(T number) {
  return std::string(reinterpret_cast<const char*>(&number), sizeof number);
}

std::string WithNul(const std::string& text) { return text + std::string(1, '\0'); }

TEST_P(KeyContractTest, SetAndGetEveryTypeAndSize) {
  KeyPtr key = Make("values");
  ASSERT_TRUE(key->IsValid());
  Set(*key, "i32", int32_t{-1}, kTypeI32);
  Set(*key, "i32min", int32_t{INT32_MIN}, kTypeI32);
  Set(*key, "i64", int64_t{INT64_MIN}, kTypeI64);
  Set(*key, "i64max", int64_t{INT64_MAX}, kTypeI64);
  SetText(*key, "empty", "");
  SetText(*key, "text", "h\xc3\xa9llo, \"world\"\\\n");
  const std::string long_text(100000, 'x');
  SetText(*key, "long", long_text);
  std::string all_bytes;
  for (int i = 0; i < 256 * 4096; ++i) all_bytes.push_back(static_cast<char>(i * 7));
  ASSERT_TRUE(key->SetValue(all_bytes.data(), all_bytes.size(), kTypeBin, "big"));
  ASSERT_TRUE(key->SetValue("\0", 1, kTypeBin, "one"));

  KeyPtr reader = Open("values", true);
  struct Expected {
    const char* name;
    ValueType type;
    std::string bytes;
  };
  const Expected expected[] = {
      {"i32", kTypeI32, Raw<int32_t>(-1)},
      {"i32min", kTypeI32, Raw<int32_t>(INT32_MIN)},
      {"i64", kTypeI64, Raw<int64_t>(INT64_MIN)},
      {"i64max", kTypeI64, Raw<int64_t>(INT64_MAX)},
      {"empty", kTypeStr, std::string(1, '\0')},
      {"text", kTypeStr, WithNul("h\xc3\xa9llo, \"world\"\\\n")},
      {"long", kTypeStr, WithNul(long_text)},
      {"big", kTypeBin, all_bytes},
      {"one", kTypeBin, std::string(1, '\0')},
  };
  for (const Expected& e : expected) {
    Read read = Get(*reader, e.name);
    EXPECT_EQ(read.result, static_cast<int64_t>(e.bytes.size())) << e.name;
    EXPECT_EQ(read.type, e.type) << e.name;
    EXPECT_TRUE(read.bytes == e.bytes) << e.name;
  }
  EXPECT_EQ(reader->CountValues(), 9u);
}

TEST_P(KeyContractTest, SetValueRefusesShortNumbersAndUnknownTypes) {
  KeyPtr key = Make("k");
  const int64_t number = 1;
  EXPECT_FALSE(key->SetValue(&number, 3, kTypeI32, "a"));
  EXPECT_FALSE(key->SetValue(&number, 4, kTypeI64, "b"));
  EXPECT_FALSE(key->SetValue(&number, 8, static_cast<ValueType>(4), "c"));
  for (const char* name : {"a", "b", "c"}) EXPECT_FALSE(key->CheckValueExists(name)) << name;
  // str runs to its first NUL whatever the size says.
  ASSERT_TRUE(key->SetValue("ab\0cd", 5, kTypeStr, "s"));
  std::string text;
  EXPECT_TRUE(key->GetString(text, "s"));
  EXPECT_EQ(text, "ab");
}

TEST_P(KeyContractTest, OverwriteWithAnotherType) {
  KeyPtr key = Make("k");
  SetText(*key, "v", "text");
  Set(*key, "v", int64_t{42}, kTypeI64);
  Read read = Get(*key, "v");
  EXPECT_EQ(read.type, kTypeI64);
  EXPECT_EQ(read.bytes, Raw<int64_t>(42));
  ASSERT_TRUE(key->SetValue("\x01\x02", 2, kTypeBin, "v"));
  read = Get(*key, "v");
  EXPECT_EQ(read.type, kTypeBin);
  EXPECT_EQ(read.bytes, "\x01\x02");
  EXPECT_EQ(key->CountValues(), 1u);
}

TEST_P(KeyContractTest, SharedConversions) {
  KeyPtr key = Make("k");
  Set(*key, "seven", int32_t{7}, kTypeI32);
  Set(*key, "minus", int32_t{-1}, kTypeI32);
  Set(*key, "huge", int64_t{5000000000LL}, kTypeI64);
  Set(*key, "tiny", int64_t{-5000000000LL}, kTypeI64);
  SetText(*key, "yes", "  YES");
  SetText(*key, "maybe", "maybe");
  SetText(*key, "digits", "12abc");
  ASSERT_TRUE(key->SetValue("\x01\x02\x03", 3, kTypeBin, "bin"));

  std::string bytes;
  EXPECT_EQ(GetAs(*key, "seven", kTypeStr, &bytes), 2);
  EXPECT_EQ(bytes, WithNul("7"));
  EXPECT_EQ(GetAs(*key, "minus", kTypeI64, &bytes), 8);
  EXPECT_EQ(bytes, Raw<int64_t>(-1));
  EXPECT_EQ(GetAs(*key, "huge", kTypeI32, &bytes), 4);
  EXPECT_EQ(bytes, Raw<int32_t>(-1));
  EXPECT_EQ(GetAs(*key, "tiny", kTypeI32, &bytes), 4);
  EXPECT_EQ(bytes, Raw<int32_t>(INT32_MIN));
  EXPECT_EQ(GetAs(*key, "huge", kTypeStr, &bytes), 11);
  EXPECT_EQ(bytes, WithNul("5000000000"));
  EXPECT_EQ(GetAs(*key, "yes", kTypeI32, &bytes), 4);
  EXPECT_EQ(bytes, Raw<int32_t>(1));
  EXPECT_EQ(GetAs(*key, "digits", kTypeI64, &bytes), 8);
  EXPECT_EQ(bytes, Raw<int64_t>(12));
  EXPECT_EQ(GetAs(*key, "maybe", kTypeI32), 0);
  for (ValueType type : {kTypeI32, kTypeI64, kTypeStr}) {
    EXPECT_EQ(GetAs(*key, "bin", type), 0) << type;
  }
  EXPECT_EQ(GetAs(*key, "missing", kTypeStr), 0);

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

TEST_P(KeyContractTest, ZeroLengthBinReadsAsNothing) {
  KeyPtr key = Make("k");
  ASSERT_TRUE(key->SetValue("", 0, kTypeBin, "nothing"));
  EXPECT_TRUE(key->CheckValueExists("nothing"));
  EXPECT_EQ(Get(*key, "nothing").result, 0);
}

TEST_P(KeyContractTest, ExistsAndRemoveValue) {
  KeyPtr key = Make("k");
  Set(*key, "v", int32_t{1}, kTypeI32);
  EXPECT_TRUE(key->CheckValueExists("v"));
  EXPECT_FALSE(key->CheckValueExists("w"));
  EXPECT_TRUE(Open("k", true)->CheckValueExists("v"));
  EXPECT_TRUE(key->RemoveValue("v"));
  EXPECT_FALSE(key->RemoveValue("v"));
  EXPECT_FALSE(key->CheckValueExists("v"));
  EXPECT_EQ(Get(*key, "v").result, 0);
  EXPECT_EQ(key->CountValues(), 0u);
}

TEST_P(KeyContractTest, Enumerations) {
  KeyPtr key = Make("k");
  Set(*key, "n", int32_t{5}, kTypeI32);
  SetText(*key, "s", "five");
  Set(*key, "w", int64_t{6}, kTypeI64);
  Touch("k\\Sub1");
  Touch("k\\sub2\\deeper");

  KeyPtr reader = Open("k", true);
  EXPECT_EQ(reader->CountValues(), 3u);
  EXPECT_EQ(reader->CountSubKeys(), 2u);
  std::vector<std::pair<std::string, std::string>> seen;
  std::string name;
  std::string text;
  while (reader->NextString(text, name)) seen.emplace_back(name, text);
  std::sort(seen.begin(), seen.end());
  EXPECT_EQ(seen, (std::vector<std::pair<std::string, std::string>>{
                      {"n", "5"}, {"s", "five"}, {"w", "6"}}));
  ValueBuffer out;
  ValueType type;
  for (int i = 0; i < 2; ++i) EXPECT_LE(reader->NextValue(out, &type, name), 0);
  EXPECT_EQ(SortedValueNames(*reader), (std::vector<std::string>{"n", "s", "w"}));

  EXPECT_EQ(SortedSubKeyNames(*reader), (std::vector<std::string>{"Sub1", "sub2"}));
  reader->ResetSubKeys();
  std::vector<std::string> opened;
  while (KeyPtr sub = reader->NextSubKey(true)) {
    EXPECT_TRUE(sub->IsValid());
    opened.emplace_back(sub->GetName());
    if (sub->GetName() == "sub2") {
      EXPECT_EQ(SortedSubKeyNames(*sub), std::vector<std::string>{"deeper"});
    }
  }
  std::sort(opened.begin(), opened.end());
  EXPECT_EQ(opened, (std::vector<std::string>{"Sub1", "sub2"}));
  EXPECT_EQ(reader->NextSubKey(true), nullptr);

  KeyPtr clone = reader->Clone();  // fresh cursors
  EXPECT_TRUE(clone->NextSubKeyName(name));
  EXPECT_TRUE(clone->NextValue(out, &type, name) > 0);
}

TEST_P(KeyContractTest, NextSubKeyTakesItsOwnReadOnlyFlag) {
  Touch("k\\child");
  KeyPtr reader = Open("k", true);
  KeyPtr writable = reader->NextSubKey(false);
  ASSERT_NE(writable, nullptr);
  int32_t number = 3;
  EXPECT_TRUE(writable->SetValue(&number, sizeof number, kTypeI32, "v"));
  EXPECT_EQ(GetInt32(*Open("k\\child"), "v"), 3);
  reader->ResetSubKeys();
  KeyPtr read_only = reader->NextSubKey(true);
  ASSERT_NE(read_only, nullptr);
  EXPECT_FALSE(read_only->SetValue(&number, sizeof number, kTypeI32, "w"));
  EXPECT_FALSE(reader->Clone()->SetValue(&number, sizeof number, kTypeI32, "w"));
}

TEST_P(KeyContractTest, KeyNamesIgnoreCase) {
  Set(*Make("Case\\Sub"), "v", int32_t{9}, kTypeI32);
  KeyPtr other = Open("CASE\\sUB");
  ASSERT_TRUE(other->IsValid());
  EXPECT_EQ(GetInt32(*other, "v"), 9);
  EXPECT_EQ(other->GetName(), "sUB");
  Set(*Make("case\\SUB"), "w", int32_t{1}, kTypeI32);
  EXPECT_EQ(Open("case")->CountSubKeys(), 1u);
  EXPECT_EQ(SortedSubKeyNames(*Open("case")), std::vector<std::string>{"Sub"});
}

TEST_P(KeyContractTest, CreatePathRules) {
  Touch("a\\b");
  for (auto path : {"\\a", "a\\", "\\", "a\\b\\"}) {
    for (bool read_only : {false, true}) {
      KeyPtr key = Open(path, read_only, !read_only);
      EXPECT_FALSE(key->IsValid()) << path;
      EXPECT_TRUE(key->GetName().empty()) << path;
      EXPECT_FALSE(key->CheckValueExists("v")) << path;
    }
  }
  EXPECT_FALSE(backend_->Create(top_ + "\\", 0, false, "a", true)->IsValid());

  KeyPtr collapsed = Make("a\\\\b\\\\\\c");
  ASSERT_TRUE(collapsed->IsValid());
  EXPECT_EQ(collapsed->GetName(), "c");
  Set(*collapsed, "v", int32_t{2}, kTypeI32);
  EXPECT_EQ(GetInt32(*Open("a\\b\\c"), "v"), 2);
  EXPECT_EQ(Base()->CountSubKeys(), 1u);

  EXPECT_FALSE(Open("missing")->IsValid());
  EXPECT_FALSE(Open("missing", true)->IsValid());
  EXPECT_FALSE(Open("missing", true, true)->IsValid());
  EXPECT_FALSE(Exists("missing"));
  EXPECT_TRUE(Open("a\\b", true)->IsValid());
}

TEST_P(KeyContractTest, RemoveKey) {
  Set(*Make("a\\b\\c"), "v", int32_t{1}, kTypeI32);
  Touch("a\\keep");
  KeyPtr base = Base();
  EXPECT_TRUE(base->RemoveKey("missing"));
  EXPECT_TRUE(base->RemoveKey("A\\B"));
  EXPECT_FALSE(Exists("a\\b"));
  EXPECT_FALSE(Exists("a\\b\\c"));
  EXPECT_TRUE(Exists("a\\keep"));
}

TEST_P(KeyContractTest, RenameReplacesDestination) {
  Set(*Make("src"), "from_src", int32_t{1}, kTypeI32);
  Set(*Make("src\\inner"), "deep", int32_t{2}, kTypeI32);
  Set(*Make("dst"), "from_dst", int32_t{3}, kTypeI32);
  Touch("dst\\old_child");
  KeyPtr base = Base();
  EXPECT_TRUE(base->RenameKey("src", "dst"));
  EXPECT_FALSE(Exists("src"));
  KeyPtr dst = Open("dst");
  EXPECT_EQ(SortedValueNames(*dst), std::vector<std::string>{"from_src"});
  EXPECT_EQ(SortedSubKeyNames(*dst), std::vector<std::string>{"inner"});
  EXPECT_EQ(GetInt32(*Open("dst\\inner"), "deep"), 2);

  EXPECT_TRUE(base->RenameKey("dst\\inner", "one\\two\\three"));
  EXPECT_EQ(GetInt32(*Open("one\\two\\three"), "deep"), 2);
  EXPECT_FALSE(Exists("dst\\inner"));
}

TEST_P(KeyContractTest, CopyMergesIntoDestination) {
  Set(*Make("src"), "x", int32_t{1}, kTypeI32);
  Set(*Make("src\\inner"), "deep", int32_t{2}, kTypeI32);
  Set(*Make("dst"), "x", int32_t{9}, kTypeI32);
  Set(*Make("dst"), "only_dst", int32_t{3}, kTypeI32);
  Touch("dst\\own_child");
  KeyPtr base = Base();
  EXPECT_TRUE(base->CopyKey("src", "dst"));
  KeyPtr dst = Open("dst");
  EXPECT_EQ(GetInt32(*dst, "x"), 1);
  EXPECT_EQ(GetInt32(*dst, "only_dst"), 3);
  EXPECT_EQ(SortedSubKeyNames(*dst), (std::vector<std::string>{"inner", "own_child"}));
  EXPECT_EQ(GetInt32(*Open("dst\\inner"), "deep"), 2);

  Set(*Open("dst\\inner"), "deep", int32_t{5}, kTypeI32);
  EXPECT_EQ(GetInt32(*Open("src\\inner"), "deep"), 2);
  EXPECT_TRUE(base->CopyKey("src", "new\\place"));
  EXPECT_EQ(GetInt32(*Open("new\\place"), "x"), 1);
}

TEST_P(KeyContractTest, RenameAndCopyPathChecks) {
  Set(*Make("Key\\sub"), "v", int32_t{1}, kTypeI32);
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
    EXPECT_EQ(SortedSubKeyNames(*base), std::vector<std::string>{"Key"});
    EXPECT_EQ(GetInt32(*Open("key\\sub"), "v"), 1);
  }
}

TEST_P(KeyContractTest, ReadOnlyKeyRefusesChanges) {
  Set(*Make("k"), "v", int32_t{1}, kTypeI32);
  Touch("k\\sub");
  KeyPtr key = Open("k", true);
  ASSERT_TRUE(key->IsValid());
  int32_t number = 2;
  EXPECT_FALSE(key->SetValue(&number, sizeof number, kTypeI32, "v"));
  EXPECT_FALSE(key->SetValue(&number, sizeof number, kTypeI32, "new"));
  EXPECT_FALSE(key->RemoveValue("v"));
  EXPECT_FALSE(key->RemoveKey("sub"));
  EXPECT_FALSE(key->RenameKey("sub", "moved"));
  EXPECT_FALSE(key->CopyKey("sub", "copied"));
  EXPECT_FALSE(key->Clone()->RemoveValue("v"));

  KeyPtr check = Open("k");
  EXPECT_EQ(GetInt32(*check, "v"), 1);
  EXPECT_FALSE(check->CheckValueExists("new"));
  EXPECT_EQ(SortedSubKeyNames(*check), std::vector<std::string>{"sub"});
}

TEST_P(KeyContractTest, ConcurrentWritersOnOwnKeys) {
  constexpr int kThreads = 4;
  constexpr int kKeys = 25;
  std::atomic<bool> go{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      while (!go.load()) std::this_thread::yield();
      for (int i = 0; i < kKeys; ++i) {
        KeyPtr key = Make("shared\\k" + std::to_string(i));
        const std::string name = "t" + std::to_string(t);
        int32_t number = t * 1000 + i;
        EXPECT_TRUE(key->SetValue(&number, sizeof number, kTypeI32, name.c_str()));
      }
    });
  }
  go = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(Open("shared")->CountSubKeys(), static_cast<uint32_t>(kKeys));
  for (int i = 0; i < kKeys; ++i) {
    KeyPtr key = Open("shared\\k" + std::to_string(i), true);
    ASSERT_EQ(key->CountValues(), static_cast<uint32_t>(kThreads)) << i;
    for (int t = 0; t < kThreads; ++t) {
      EXPECT_EQ(GetInt32(*key, ("t" + std::to_string(t)).c_str()), t * 1000 + i);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Backends, KeyContractTest, ::testing::ValuesIn(ContractSpecs()), SpecName);

}  // namespace
}  // namespace regkey
