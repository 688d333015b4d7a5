#include "transfer/export_command.h"

#include <optional>
#include <system_error>
#include <vector>

#include "registry/backend.h"
#include "transfer/csv.h"

bool ExportCommand::ParseArguments(TokenCursor& cursor) {
  return ReadKeyName(cursor, key_name) && ReadFileName(cursor, file_name);
}

bool ExportCommand::Prepare() {
  if (file_name == "-") return true;
  std::error_code error_code;
  output_file = env->OpenOutputFile(file_name.c_str(), error_code);
  if (output_file == nullptr) {
    ReportOpenFailure(file_name, error_code);
    return false;
  }
  return true;
}

bool ExportCommand::Execute() {
  std::ostream& out = file_name == "-" ? *env->output : *output_file;
  out.write(kCsvHeader.data(), kCsvHeader.size());
  ProgressReport progress(env, "export '" + key_name + "'", PrintCount);
  progress.Start();
  regkey::KeyPtr key = regkey::registry_backend->Create(registry_root, 0, true, key_name, false);
  bool walked = ExportKey(*key, out, progress);
  out.flush();
  progress.Finish();
  output_file.reset();
  return walked;
}

bool ExportCommand::ExportKey(regkey::Key& top, std::ostream& out, ProgressReport& progress) {
  // Depth first and pre-order, with one entry per open level on the heap
  // instead of the call stack. A level holds its current child open until
  // the next one replaces it, so each level keeps one key (and, on a
  // database, one connection) as a recursive walk would. All levels share
  // one KNAME text, cut back to a level's length before a child is appended.
  struct Level {
    regkey::Key* key;     // owned by the level above, or `top`
    regkey::KeyPtr child;
    size_t path_length;   // of the key's own KNAME
  };
  std::string path;
  if (!WriteKeyValues(top, path, out, progress)) return false;
  top.ResetSubKeys();
  std::vector<Level> levels;
  levels.push_back({&top, regkey::StubKeyPtr(), 0});
  while (!levels.empty()) {
    Level& level = levels.back();
    regkey::KeyPtr next = level.key->NextSubKey(true);
    if (next == nullptr) {
      levels.pop_back();
      continue;
    }
    level.child = std::move(next);
    path.resize(level.path_length);
    if (!path.empty()) path += '\\';
    path.append(level.child->GetName());
    regkey::Key& child = *level.child;
    if (!WriteKeyValues(child, path, out, progress)) return false;
    child.ResetSubKeys();
    levels.push_back({&child, regkey::StubKeyPtr(), path.size()});
  }
  return true;
}

bool ExportCommand::WriteKeyValues(regkey::Key& key, const std::string& path, std::ostream& out,
                                   ProgressReport& progress) {
  std::string key_scratch;
  std::string field_scratch;
  // Quoted at the first row, once for all rows of the key: the keys on the
  // way down to a deep value have no rows and so cost nothing per level.
  std::optional<std::string_view> quoted_key;
  key.ResetValues();
  regkey::ValueBuffer buffer;
  regkey::ValueType type = regkey::kTypeI32;
  std::string value_name;
  while (true) {
    int64_t size = key.NextValue(buffer, &type, value_name);
    if (size <= 0) {
      Note("completed");
      return true;
    }
    if (!quoted_key) quoted_key = QuoteCsvField(path.data(), path.size(), key_scratch);
    switch (WriteCsvRow(out, *quoted_key, value_name, type, buffer.get(), size, field_scratch)) {
      case CsvWriteResult::kOk:
        break;
      case CsvWriteResult::kUnexpectedType:
        FailureStream(true) << "unexpected type: " << static_cast<int>(type) << "\n";
        return false;
      case CsvWriteResult::kBase64Failed:
        FailureStream(true) << "base64 encode failed\n";
        return false;
    }
    progress.Advance(1);
  }
}
