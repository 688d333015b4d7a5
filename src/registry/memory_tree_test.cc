// The memory tree, and what only the memory backend does (shared: key_contract_test.cc).
#include "registry/memory_tree.h"

#include <memory>
#include <sstream>
#include <string>

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

class MemoryKeyTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(backend_.Init("memory:")); }
  KeyPtr Open(std::string_view path) { return backend_.Create("", 0, false, path, true); }
  MemoryBackend backend_;
};

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

}  // namespace
}  // namespace regkey
