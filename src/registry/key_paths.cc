#include "registry/key_paths.h"

#include "support/ascii.h"

namespace regkey {

PathRelation ComparePaths(std::string_view from, std::string_view to) {
  size_t i = 0;
  while (i < from.size() && i < to.size() && FoldAscii(from[i]) == FoldAscii(to[i])) ++i;
  if (i == from.size() && i == to.size()) return PathRelation::kSame;
  if (i == to.size() && from[i] == '\\') return PathRelation::kNested;
  if (i == from.size() && to[i] == '\\') return PathRelation::kNested;
  return PathRelation::kApart;
}

bool StartsWithBackslash(std::string_view path) { return !path.empty() && path.front() == '\\'; }

bool EndsWithBackslash(std::string_view path) { return !path.empty() && path.back() == '\\'; }

bool HasEdgeBackslash(std::string_view path) {
  return StartsWithBackslash(path) || EndsWithBackslash(path);
}

}  // namespace regkey
