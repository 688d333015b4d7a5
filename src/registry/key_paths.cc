#include "registry/key_paths.h"

#include "support/ascii.h"
#include "support/log.h"

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

void LogReadOnlyRefusal(const char* operation, std::string_view first, const char* joiner,
                        std::string_view second, std::string_view key) {
  if (!LogEnabled(1, kLogModuleOther)) return;
  LogLine line(1, kLogModuleOther);
  std::ostream& stream = line.stream();
  stream << operation << " '" << first;
  if (joiner != nullptr) stream << joiner << second;
  stream << "' on read-only key '" << key << "'";
}

}  // namespace regkey
