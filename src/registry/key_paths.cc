#include "registry/key_paths.h"

namespace regkey {
namespace {

char FoldAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

PathRelation ComparePaths(std::string_view from, std::string_view to) {
  size_t i = 0;
  while (i < from.size() && i < to.size() && FoldAscii(from[i]) == FoldAscii(to[i])) ++i;
  if (i == from.size() && i == to.size()) return PathRelation::kSame;
  if (i == to.size() && from[i] == '\\') return PathRelation::kNested;
  if (i == from.size() && to[i] == '\\') return PathRelation::kNested;
  return PathRelation::kApart;
}

}  // namespace regkey
