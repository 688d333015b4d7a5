// The memory tree, and what only the memory backend does (shared: key_contract_test.cc).
#include "registry/memory_tree.h"

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "registry/memory_backend.h"
#include "support/log_test_util.h"

namespace regkey {
namespace {

// Value names in enumeration order.
std::vector<std::string> Names(Node& node) {
  std::vector<std::string> names;
  std::string name;
  for (uint64_t i = 0; i < node.ValueCountUnlocked(); ++i) {
    node.FetchValueAt(i, name);
    names.push_back(name);
  }
  return names;
}

// Names sort as their lower-case spelling (so "_" before the letters) and end at their first NUL.
TEST(MemoryTreeTest, NamesSortAsLowerCaseUpToTheFirstNul) {
  Node node;
  for (const char* name : {"B", "_x", "a"}) node.StoreValue(name, StoredValue(int32_t{1}));
  node.StoreValue(std::string("a\0z", 3), StoredValue(int32_t{2}));
  EXPECT_EQ(Names(node), (std::vector<std::string>{"_x", "a", "B"}));
}

// Remove finds nothing at an empty name or component; rename and copy refuse such a source
// without a log line.
TEST(MemoryKeyTest, EmptyNamesAsSourceFindNothing) {
  MemoryBackend backend;
  ASSERT_TRUE(backend.Init("memory:"));
  backend.Create("", 0, false, "a\\b", true);
  KeyPtr top = backend.Create("", 0, false, "", true);
  EXPECT_TRUE(top->RemoveKey(""));
  EXPECT_TRUE(top->RemoveKey("a\\\\b"));
  LogCapture log;
  EXPECT_FALSE(top->RenameKey("", "x"));
  EXPECT_FALSE(top->CopyKey("a\\\\b", "x"));
  EXPECT_FALSE(top->CopyKey("\\a", "x"));
  EXPECT_TRUE(log.Texts().empty());
}

}  // namespace
}  // namespace regkey
