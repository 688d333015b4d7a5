#include "registry/memory_tree.h"

#include <atomic>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace regkey {
namespace {

std::vector<std::string> ValueNames(Node& node) {
  std::vector<std::string> names;
  std::string name;
  for (uint64_t i = 0; !node.FetchValueAt(i, name).empty(); ++i) names.push_back(name);
  return names;
}

std::vector<std::string> SubKeyNames(Node& node) {
  std::vector<std::string> names;
  std::string name;
  for (uint64_t i = 0; node.SubKeyAt(i, name) != nullptr; ++i) names.push_back(name);
  return names;
}

std::string Printed(const Node& node, int step = 2, int indent = 0) {
  std::ostringstream out;
  node.Print(out, step, indent);
  return out.str();
}

TEST(MemoryTreeTest, OrderIsCaseInsensitiveWithBytesBetween) {
  Node node;
  for (const char* name : {"B", "a", "_x", "C", "{", "[", "\xc3\xa9"}) {
    node.StoreValue(name, StoredValue(int32_t{1}));
    node.FindSubKey(name, true);
  }
  const std::vector<std::string> expected = {"[", "_x", "a", "B", "C", "{", "\xc3\xa9"};
  EXPECT_EQ(ValueNames(node), expected);
  EXPECT_EQ(SubKeyNames(node), expected);
}

TEST(MemoryTreeTest, FirstSpellingWins) {
  Node node;
  node.StoreValue("Foo", StoredValue(std::string("text")));
  node.StoreValue("FOO", StoredValue(int64_t{9}));
  EXPECT_TRUE(node.HasValue("foo"));
  EXPECT_EQ(ValueNames(node), std::vector<std::string>{"Foo"});
  StoredValue value = node.FetchValue("fOO");
  ASSERT_EQ(value.tag(), StoredValue::kInt64);
  EXPECT_EQ(value.int64(), 9);

  std::shared_ptr<Node> child = node.FindSubKey("Bar", true);
  EXPECT_EQ(node.FindSubKey("BAR", true), child);
  EXPECT_EQ(node.FindSubKey("bar", false), child);
  node.PutSubKey("BAR", std::make_shared<Node>());
  EXPECT_EQ(SubKeyNames(node), std::vector<std::string>{"Bar"});
}

TEST(MemoryTreeTest, NamesEndAtNulAndEmptyNameIsOrdinary) {
  Node node;
  node.StoreValue(std::string("a\0b", 3), StoredValue(int32_t{1}));
  node.StoreValue("a", StoredValue(int32_t{2}));
  EXPECT_EQ(node.FetchValue(std::string("a\0zz", 4)).int32(), 2);
  EXPECT_EQ(ValueNames(node).size(), 1u);

  node.StoreValue("", StoredValue(int32_t{3}));
  EXPECT_EQ(node.FetchValue("").int32(), 3);
  EXPECT_EQ(ValueNames(node), (std::vector<std::string>{"", std::string("a\0b", 3)}));
  EXPECT_TRUE(node.EraseValue(""));
  std::shared_ptr<Node> unnamed = node.FindSubKey("", true);
  EXPECT_EQ(node.TakeSubKey(""), unnamed);
}

TEST(MemoryTreeTest, AbsenceAndRemoval) {
  Node node;
  std::string name = "untouched";
  EXPECT_TRUE(node.FetchValue("x").empty());
  EXPECT_TRUE(node.FetchValueAt(0, name).empty());
  EXPECT_EQ(node.SubKeyAt(0, name), nullptr);
  EXPECT_EQ(name, "untouched");
  EXPECT_EQ(node.FindSubKey("x", false), nullptr);
  EXPECT_EQ(node.SubKeyCountUnlocked(), 0u);

  node.StoreValue("x", StoredValue(int32_t{1}));
  EXPECT_TRUE(node.EraseValue("X"));
  EXPECT_FALSE(node.EraseValue("x"));
  EXPECT_EQ(node.ValueCountUnlocked(), 0u);

  std::shared_ptr<Node> child = node.FindSubKey("k", true);
  child->StoreValue("v", StoredValue(int32_t{1}));
  std::shared_ptr<Node> taken = node.TakeSubKey("K");
  EXPECT_EQ(taken, child);
  EXPECT_EQ(node.TakeSubKey("k"), nullptr);
  EXPECT_TRUE(taken->HasValue("v"));  // a detached subtree lives on
}

TEST(MemoryTreeTest, PutSubKeyReplacesWholeSubtree) {
  Node node;
  std::shared_ptr<Node> old = node.FindSubKey("k", true);
  old->StoreValue("old", StoredValue(int32_t{1}));
  auto replacement = std::make_shared<Node>();
  replacement->StoreValue("new", StoredValue(int32_t{2}));
  node.PutSubKey("K", replacement);
  std::shared_ptr<Node> now = node.FindSubKey("k", false);
  EXPECT_EQ(now, replacement);
  EXPECT_FALSE(now->HasValue("old"));
  node.PutSubKey("other", std::make_shared<Node>());
  EXPECT_EQ(SubKeyNames(node), (std::vector<std::string>{"k", "other"}));
}

TEST(MemoryTreeTest, CloneTreeIsDeepAndKeepsSpellings) {
  Node node;
  node.StoreValue("B", StoredValue(int32_t{1}));
  node.StoreValue("a", StoredValue(std::string("x")));
  std::shared_ptr<Node> child = node.FindSubKey("Child", true);
  child->FindSubKey("Grand", true)->StoreValue("g", StoredValue(int64_t{5}));

  std::shared_ptr<Node> copy = node.CloneTree();
  EXPECT_EQ(Printed(*copy), Printed(node));
  EXPECT_EQ(ValueNames(*copy), (std::vector<std::string>{"a", "B"}));
  std::shared_ptr<Node> copied_child = copy->FindSubKey("child", false);
  ASSERT_NE(copied_child, nullptr);
  EXPECT_NE(copied_child, child);

  copied_child->FindSubKey("grand", false)->StoreValue("g", StoredValue(int64_t{6}));
  EXPECT_EQ(child->FindSubKey("grand", false)->FetchValue("g").int64(), 5);
}

TEST(MemoryTreeTest, MergeFromOverwritesValuesAndMergesSubkeys) {
  Node target;
  target.StoreValue("X", StoredValue(std::string("old")));
  target.StoreValue("keep", StoredValue(int32_t{1}));
  std::shared_ptr<Node> shared = target.FindSubKey("Shared", true);
  shared->StoreValue("mine", StoredValue(int32_t{1}));
  shared->StoreValue("both", StoredValue(int32_t{1}));

  Node source;
  source.StoreValue("x", StoredValue(int32_t{7}));
  source.StoreValue("New", StoredValue(int32_t{8}));
  std::shared_ptr<Node> source_shared = source.FindSubKey("SHARED", true);
  source_shared->StoreValue("BOTH", StoredValue(int32_t{2}));
  source_shared->StoreValue("theirs", StoredValue(int32_t{2}));
  std::shared_ptr<Node> fresh = source.FindSubKey("Fresh", true);
  fresh->StoreValue("f", StoredValue(int32_t{3}));

  target.MergeFrom(source);
  EXPECT_EQ(Printed(target),
            "keep: 1i32\n"
            "New: 8i32\n"
            "X: 7i32\n"
            "Fresh\\\n"
            "  f: 3i32\n"
            "Shared\\\n"
            "  both: 2i32\n"
            "  mine: 1i32\n"
            "  theirs: 2i32\n");
  EXPECT_EQ(target.FindSubKey("shared", false), shared);
  // A subtree absent from the target is copied, not shared.
  EXPECT_NE(target.FindSubKey("fresh", false), fresh);
}

TEST(MemoryTreeTest, PrintFormat) {
  Node all;
  all.StoreValue("e", StoredValue(StoredValue::Bytes{}));
  all.StoreValue("h", StoredValue(StoredValue::Bytes{0x00, 0x0a, 0xff}));
  all.StoreValue("n", StoredValue(int64_t{-5}));
  all.StoreValue("s", StoredValue(std::string("say \"hi\"\\\n")));
  std::shared_ptr<Node> level1 = all.FindSubKey("L1", true);
  level1->FindSubKey("L2", true)->StoreValue("deep", StoredValue(int32_t{-1}));
  level1->FindSubKey("empty", true);
  EXPECT_EQ(Printed(all, 3, 1),
            " e: BIN: \n"
            " h: BIN: 00 0a ff\n"
            " n: -5i64\n"
            " s: \"say \"hi\"\\\n\"\n"
            " L1\\\n"
            "    empty\\\n"
            "    L2\\\n"
            "       deep: -1i32\n");
  EXPECT_EQ(Printed(Node()), "");

  std::ostringstream empty_value;
  PrintValue(empty_value, StoredValue());
  EXPECT_EQ(empty_value.str(), "EMPTY");
}

// Many threads create the same new subkeys and store the same values at
// once: each name must end up as one entry and one node.
TEST(MemoryTreeTest, ConcurrentCreatorsAgree) {
  constexpr int kThreads = 8;
  constexpr int kNames = 200;
  Node root;
  std::atomic<bool> go{false};
  std::vector<std::vector<std::shared_ptr<Node>>> seen(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      while (!go.load()) std::this_thread::yield();
      for (int i = 0; i < kNames; ++i) {
        // Every thread spells the names differently; case must not matter.
        std::string name = "Key" + std::to_string(i);
        if (t % 2 == 1) name = "KEY" + std::to_string(i);
        std::shared_ptr<Node> child = root.FindSubKey(name, true);
        child->StoreValue(t % 2 ? "VALUE" : "value", StoredValue(int32_t{t}));
        child->FindSubKey("below", true)->StoreValue("n", StoredValue(int64_t{i}));
        root.StoreValue(name, StoredValue(int32_t{i}));
        seen[t].push_back(std::move(child));
      }
    });
  }
  go = true;
  for (std::thread& thread : threads) thread.join();

  EXPECT_EQ(root.SubKeyCountUnlocked(), static_cast<size_t>(kNames));
  EXPECT_EQ(root.ValueCountUnlocked(), static_cast<size_t>(kNames));
  for (int i = 0; i < kNames; ++i) {
    std::shared_ptr<Node> child = root.FindSubKey("key" + std::to_string(i), false);
    ASSERT_NE(child, nullptr);
    for (int t = 0; t < kThreads; ++t) EXPECT_EQ(seen[t][i], child) << t << " " << i;
    EXPECT_EQ(child->ValueCountUnlocked(), 1u);
    EXPECT_EQ(child->SubKeyCountUnlocked(), 1u);
    EXPECT_EQ(root.FetchValue("key" + std::to_string(i)).int32(), i);
  }
}

// Clones and merges run while writers change the source.
TEST(MemoryTreeTest, ConcurrentCloneMergeAndWrites) {
  auto source = std::make_shared<Node>();
  for (int i = 0; i < 50; ++i) source->FindSubKey("k" + std::to_string(i), true);
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
  while (!done.load()) {
    std::shared_ptr<Node> copy = source->CloneTree();
    target.MergeFrom(*copy);
    target.MergeFrom(*source);
  }
  writer.join();
  target.MergeFrom(*source);
  EXPECT_EQ(Printed(target), Printed(*source));
}

}  // namespace
}  // namespace regkey
