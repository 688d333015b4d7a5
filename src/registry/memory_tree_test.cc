// The memory tree, and what only the memory backend does (shared: key_contract_test.cc).
#include "registry/memory_tree.h"

#include <atomic>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "registry/memory_backend.h"
#include "support/log_test_util.h"

namespace regkey {
namespace {

std::string Printed(const Node& node, int step = 2, int indent = 0) {
  std::ostringstream out;
  node.Print(out, step, indent);
  return out.str();
}

// Names sort without regard to ASCII case, other bytes between the letters; the first spelling
// stays; a name ends at its first NUL.
TEST(MemoryTreeTest, NamesSortAndCompareWithoutCase) {
  Node node;
  for (const char* name : {"B", "a", "_x", "C", "{", "[", "\xc3\xa9", "b"}) {
    node.StoreValue(name, StoredValue(int32_t{1}));
  }
  node.StoreValue(std::string("a\0z", 3), StoredValue(int32_t{2}));
  EXPECT_EQ(Printed(node),
            "[: 1i32\n"
            "_x: 1i32\n"
            "a: 2i32\n"
            "B: 1i32\n"
            "C: 1i32\n"
            "{: 1i32\n"
            "\xc3\xa9: 1i32\n");
  EXPECT_EQ(node.FetchValue("A").int32(), 2);
  std::shared_ptr<Node> child = node.FindSubKey("Bar", true);
  EXPECT_EQ(node.FindSubKey("BAR", true), child);
  EXPECT_EQ(node.TakeSubKey("bar"), child);
  EXPECT_EQ(node.FindSubKey("bar", false), nullptr);
}

// In a merge source values overwrite and subtrees merge; a subtree the target lacks is
// copied, not shared.
TEST(MemoryTreeTest, MergeOverwritesValuesAndCopiesSubtrees) {
  Node target;
  target.StoreValue("X", StoredValue(std::string("old")));
  std::shared_ptr<Node> shared = target.FindSubKey("Shared", true);
  shared->StoreValue("mine", StoredValue(int32_t{1}));
  Node source;
  source.StoreValue("x", StoredValue(int64_t{-5}));
  source.FindSubKey("SHARED", true)->StoreValue("h", StoredValue(StoredValue::Bytes{0, 0xff}));
  std::shared_ptr<Node> fresh = source.FindSubKey("Fresh", true);
  fresh->StoreValue("s", StoredValue(std::string("say \"hi\"")));
  target.MergeFrom(source);
  EXPECT_EQ(Printed(target, 3, 1),
            " X: -5i64\n"
            " Fresh\\\n"
            "    s: \"say \"hi\"\"\n"
            " Shared\\\n"
            "    h: BIN: 00 ff\n"
            "    mine: 1i32\n");
  EXPECT_EQ(target.FindSubKey("shared", false), shared);
  EXPECT_NE(target.FindSubKey("fresh", false), fresh);
}

// Threads creating the same subkeys at once, spelled differently, get one entry and node each.
TEST(MemoryTreeTest, ConcurrentCreatorsAgree) {
  constexpr int kThreads = 8, kNames = 200;
  Node root;
  std::vector<std::vector<std::shared_ptr<Node>>> seen(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kNames; ++i) {
        seen[t].push_back(root.FindSubKey((t % 2 ? "KEY" : "Key") + std::to_string(i), true));
        seen[t].back()->StoreValue(t % 2 ? "VALUE" : "value", StoredValue(int32_t{t}));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(root.SubKeyCountUnlocked(), static_cast<size_t>(kNames));
  for (int t = 1; t < kThreads; ++t) EXPECT_EQ(seen[t], seen[0]) << t;
  for (const auto& node : seen[0]) EXPECT_EQ(node->ValueCountUnlocked(), 1u);
}

// Clones and merges run while a writer changes the source.
TEST(MemoryTreeTest, ConcurrentCloneMergeAndWrites) {
  auto source = std::make_shared<Node>();
  std::atomic<bool> done{false};
  std::thread writer([&] {
    for (int round = 0; round < 200; ++round) {
      for (int i = 0; i < 50; i += 7) {
        std::shared_ptr<Node> child = source->FindSubKey("k" + std::to_string(i), true);
        child->StoreValue("v", StoredValue(int32_t{round}));
        child->FindSubKey("r" + std::to_string(round % 5), true);
      }
    }
    done = true;
  });
  Node target;
  while (!done.load()) target.MergeFrom(*source->CloneTree());
  writer.join();
  target.MergeFrom(*source);
  EXPECT_EQ(Printed(target), Printed(*source));
}

class MemoryKeyTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(backend_.Init("memory:")); }
  KeyPtr Open(std::string_view path) { return backend_.Create("", 0, false, path, true); }
  MemoryBackend backend_;
};

TEST_F(MemoryKeyTest, NullValueNameThrows) {
  int64_t wide = 5;
  EXPECT_THROW(Open("k")->SetValue(&wide, 8, kTypeI64, nullptr), std::logic_error);
}

// A str value is read up to its NUL whatever the size; bin data may be null when empty.
TEST_F(MemoryKeyTest, StrTakesItsTextAndBinMayBeNull) {
  KeyPtr key = Open("k");
  EXPECT_TRUE(key->SetValue(nullptr, 0, kTypeBin, "nothing"));
  ASSERT_TRUE(key->SetValue("hello", 0, kTypeStr, ""));
  ValueBuffer out;
  EXPECT_EQ(key->GetValue(out, kTypeStr, ""), 6);
}

TEST_F(MemoryKeyTest, FailedReadKeepsTheCallersBlock) {
  KeyPtr key = Open("k");
  ASSERT_TRUE(key->SetValue("x", 2, kTypeStr, "s"));
  ASSERT_TRUE(key->SetValue(nullptr, 0, kTypeBin, "nothing"));
  ValueBuffer out;
  ASSERT_EQ(key->GetValue(out, kTypeStr, "s"), 2);
  const char* block = out.get();
  EXPECT_EQ(key->GetValue(out, kTypeI32, "nothing"), 0);
  EXPECT_EQ(out.get(), block);
}

// Remove finds nothing at an empty name or component; rename and copy refuse such a source
// without a log line.
TEST_F(MemoryKeyTest, EmptyNamesAsSourceFindNothing) {
  Open("a\\b");
  KeyPtr top = Open("");
  EXPECT_TRUE(top->RemoveKey(""));
  EXPECT_TRUE(top->RemoveKey("a\\\\b"));
  LogCapture log;
  EXPECT_FALSE(top->RenameKey("", "x"));
  EXPECT_FALSE(top->CopyKey("a\\\\b", "x"));
  EXPECT_FALSE(top->CopyKey("\\a", "x"));
  EXPECT_TRUE(log.Texts().empty());
}

// A destination with an empty name or component creates it.
TEST_F(MemoryKeyTest, EmptyNamesAsDestinationAreCreated) {
  Open("a\\b");
  KeyPtr top = Open("");
  EXPECT_TRUE(top->CopyKey("a", "c\\\\d"));
  EXPECT_TRUE(top->RenameKey("c\\\\d", "e\\"));
  ::testing::internal::CaptureStderr();
  backend_.Dump();
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "a\\\n"
            "  b\\\n"
            "c\\\n"
            "  \\\n"
            "e\\\n"
            "  \\\n"
            "    b\\\n");
}

TEST_F(MemoryKeyTest, RemovedKeyStaysUsable) {
  KeyPtr held = Open("a\\b");
  EXPECT_TRUE(Open("")->RemoveKey("a"));
  EXPECT_TRUE(held->SetValue("x", 2, kTypeStr, "v"));
  EXPECT_TRUE(held->CheckValueExists("v"));
  EXPECT_FALSE(backend_.Create("", 0, false, "a\\b", false)->IsValid());
}

}  // namespace
}  // namespace regkey
