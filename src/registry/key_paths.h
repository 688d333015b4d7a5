// Path rules shared by both backends.
#ifndef HIVECTL_REGISTRY_KEY_PATHS_H_
#define HIVECTL_REGISTRY_KEY_PATHS_H_

#include <string_view>

namespace regkey {

enum class PathRelation { kSame, kNested, kApart };

// Compares two relative paths byte by byte with A-Z folded: the same path,
// one a proper ancestor of the other (it matches all through and the other
// goes on with a backslash), or neither. An empty path is a prefix like any
// other. RenameKey and CopyKey succeed at once on kSame and fail on kNested.
PathRelation ComparePaths(std::string_view from, std::string_view to);

// A path has no backslash at either end: these find one at the start, at
// the end, or at either end. The callers word their own refusals.
bool StartsWithBackslash(std::string_view path);
bool EndsWithBackslash(std::string_view path);
bool HasEdgeBackslash(std::string_view path);

}  // namespace regkey

#endif  // HIVECTL_REGISTRY_KEY_PATHS_H_
