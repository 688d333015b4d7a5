#include "frontend/show_command.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "registry/backend.h"
#include "support/value_codec.h"

namespace {

constexpr size_t kNameColumnWidth = 40;
constexpr size_t kMaxShownText = 100;
constexpr size_t kMaxShownBytes = 40;
constexpr const char* kTruncationMark = "\t<<<truncated>>>";
constexpr const char* kHexDigits = "0123456789abcdef";

struct ShowValue {
  regkey::ValueBuffer data;
  int64_t size = 0;
  regkey::ValueType type = regkey::kTypeBin;
  std::string name;
};

bool NeedsEscape(unsigned char c) { return (c < 0x20 && c != '\t') || c == 0x7f; }

std::vector<std::string> ReadSubKeyNames(regkey::Key& key) {
  std::vector<std::string> names;
  key.ResetSubKeys();
  std::string name;
  while (key.NextSubKeyName(name)) names.push_back(name);
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<ShowValue> ReadValues(regkey::Key& key) {
  std::vector<ShowValue> values;
  key.ResetValues();
  while (true) {
    ShowValue value;
    value.size = key.NextValue(value.data, &value.type, value.name);
    if (value.size <= 0) break;
    values.push_back(std::move(value));
  }
  std::sort(values.begin(), values.end(),
            [](const ShowValue& a, const ShowValue& b) { return a.name < b.name; });
  return values;
}

void WriteHexBytes(std::ostream& out, const unsigned char* bytes, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    out << ' ' << kHexDigits[bytes[i] >> 4] << kHexDigits[bytes[i] & 0xf];
  }
}

}  // namespace

std::string_view EscapeForDisplay(const char* text, size_t size, std::string& scratch) {
  const char* end = text + size;
  const char* first =
      std::find_if(text, end, [](char c) { return NeedsEscape(static_cast<unsigned char>(c)); });
  if (first == end) return std::string_view(text, size);
  scratch.clear();
  for (const char* p = text; p != end; ++p) {
    unsigned char c = static_cast<unsigned char>(*p);
    if (!NeedsEscape(c)) {
      scratch.push_back(*p);
    } else if (c == '\n') {
      scratch.append("\\n");
    } else if (c == '\r') {
      scratch.append("\\r");
    } else {
      scratch.append("\\x");
      scratch.push_back(kHexDigits[c >> 4]);
      scratch.push_back(kHexDigits[c & 0xf]);
    }
  }
  return scratch;
}

bool ShowCommand::ParseArguments(TokenCursor& cursor) { return ReadKeyName(cursor, key_name); }

bool ShowCommand::Execute() {
  std::ostream& out = *env->output;
  regkey::KeyPtr key = regkey::registry_backend->Create(registry_root, 0, true, key_name, false);
  std::string scratch;

  std::vector<std::string> names = ReadSubKeyNames(*key);
  if (!names.empty()) out << "Keys:\n";
  for (const std::string& name : names) {
    out << "  " << EscapeForDisplay(name.data(), name.size(), scratch) << '\n';
  }

  std::vector<ShowValue> values = ReadValues(*key);
  if (!values.empty()) out << "Values:\n";
  for (const ShowValue& value : values) {
    std::string_view name = EscapeForDisplay(value.name.data(), value.name.size(), scratch);
    out << "  " << name;
    if (name.size() < kNameColumnWidth) out << std::string(kNameColumnWidth - name.size(), ' ');
    out << '\t';
    const char* bytes = value.data.get();
    switch (value.type) {
      case regkey::kTypeI32:
        out << "i32 ";
        WriteDecimal(out, DecodeFixed32(bytes));
        break;
      case regkey::kTypeI64:
        out << "i64 ";
        WriteDecimal(out, DecodeFixed64(bytes));
        break;
      case regkey::kTypeStr: {
        size_t length = static_cast<size_t>(value.size) - 1;
        out << "str " << EscapeForDisplay(bytes, std::min(length, kMaxShownText), scratch);
        if (length > kMaxShownText) out << kTruncationMark;
        break;
      }
      case regkey::kTypeBin: {
        size_t length = static_cast<size_t>(value.size);
        out << "bin";
        WriteHexBytes(out, reinterpret_cast<const unsigned char*>(bytes),
                      std::min(length, kMaxShownBytes));
        if (length > kMaxShownBytes) out << kTruncationMark;
        break;
      }
      default:
        FailureStream(true) << "unexpected type: " << static_cast<int>(value.type) << '\n';
        return false;
    }
    out << '\n';
  }
  Note("completed");
  return true;
}
