#include "transfer/export_command.h"

#include <system_error>

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
  bool walked = ExportKey(*key, std::string(), out, progress);
  out.flush();
  progress.Finish();
  output_file.reset();
  return walked;
}

bool ExportCommand::ExportKey(regkey::Key& key, const std::string& path, std::ostream& out,
                              ProgressReport& progress) {
  if (!WriteKeyValues(key, path, out, progress)) return false;
  std::string child_path = path;
  if (!child_path.empty()) child_path += '\\';
  const size_t parent_length = child_path.size();
  regkey::KeyPtr child = regkey::StubKeyPtr();
  key.ResetSubKeys();
  while (true) {
    regkey::KeyPtr next = key.NextSubKey(true);
    if (next == nullptr) return true;
    child = std::move(next);
    child_path.resize(parent_length);
    child_path.append(child->GetName());
    if (!ExportKey(*child, child_path, out, progress)) return false;
  }
}

bool ExportCommand::WriteKeyValues(regkey::Key& key, const std::string& path, std::ostream& out,
                                   ProgressReport& progress) {
  std::string key_scratch;
  std::string field_scratch;
  const std::string_view quoted_key = QuoteCsvField(path.data(), path.size(), key_scratch);
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
    switch (WriteCsvRow(out, quoted_key, value_name, type, buffer.get(), size, field_scratch)) {
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
