#include "transfer/import_command.h"

#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <memory>
#include <system_error>
#include <thread>

#include "frontend/value_parse.h"
#include "registry/backend.h"
#include "support/thread.h"
#include "transfer/progress.h"

namespace {

// Decrements the running-worker count however the worker body is left.
class RunningWorkerGuard {
 public:
  explicit RunningWorkerGuard(std::atomic<uint64_t>& count) : count_(count) {}
  ~RunningWorkerGuard() { count_.fetch_sub(1); }

 private:
  std::atomic<uint64_t>& count_;
};

// Value names as the memory registry orders them: strcasecmp up to the
// first NUL.
bool ValueNameLess(const ImportRow& a, const ImportRow& b) {
  return strcasecmp(a.value_name.c_str(), b.value_name.c_str()) < 0;
}

// Orders the rows by key, byte order, and within a key by ValueNameLess,
// so that storing a crowded key appends to its map instead of inserting
// into its middle each time. Stable: rows that compare equal keep their
// file order. Files list the rows of a key together, so runs of one key
// are ordered as wholes, and rows are compared by name only within a key.
void SortRows(std::vector<ImportRow>& rows) {
  struct Run {
    size_t first, end;
  };
  std::vector<Run> runs;
  for (size_t first = 0, end = 0; first < rows.size(); first = end) {
    for (end = first + 1; end < rows.size() && rows[end].key == rows[first].key;) ++end;
    runs.push_back({first, end});
  }
  std::stable_sort(runs.begin(), runs.end(), [&rows](const Run& a, const Run& b) {
    return rows[a.first].key < rows[b.first].key;
  });
  std::vector<ImportRow> sorted;
  sorted.reserve(rows.size());
  for (size_t run = 0; run < runs.size();) {
    const size_t key_first = sorted.size();
    do {
      std::move(rows.begin() + runs[run].first, rows.begin() + runs[run].end,
                std::back_inserter(sorted));
      ++run;
    } while (run < runs.size() && rows[runs[run].first].key == sorted[key_first].key);
    const auto key_rows = sorted.begin() + key_first;
    if (!std::is_sorted(key_rows, sorted.end(), ValueNameLess)) {
      std::stable_sort(key_rows, sorted.end(), ValueNameLess);
    }
  }
  rows = std::move(sorted);
}

}  // namespace

uint32_t ImportWorkerCount(size_t row_count, uint32_t max_db_connections) {
  uint64_t workers = row_count < kImportBatchSize ? 1 : row_count / kImportBatchSize;
  workers = std::min<uint64_t>(workers, max_db_connections);
  return static_cast<uint32_t>(std::max<uint64_t>(workers, 1));
}

bool ImportCommand::ParseArguments(TokenCursor& cursor) {
  return ReadKeyName(cursor, key_name) && ReadFileName(cursor, file_name);
}

bool ImportCommand::Prepare() {
  std::unique_ptr<std::istream> file;
  std::istream* in = env->input;
  uint64_t total = 0;
  if (file_name != "-") {
    std::error_code error_code;
    file = env->OpenInputFile(file_name.c_str(), error_code);
    if (file == nullptr) {
      ReportOpenFailure(file_name, error_code);
      return false;
    }
    if (env->progress) {
      file->seekg(0, std::ios::end);
      const std::streamoff end = file->tellg();
      if (end > 0) {
        total = static_cast<uint64_t>(end);
        file->seekg(0, std::ios::beg);
      }
      file->clear();  // a pipe cannot seek and has no size
    }
    in = file.get();
  }
  if (!Parse(*in, total)) {
    rows.clear();
    rows.shrink_to_fit();
    return false;
  }
  Note("file/stdin parsing completed");
  // Keeps the rows of a key together for the workers; which of several rows
  // naming one value wins stays undefined (see import_command.h).
  SortRows(rows);
  return true;
}

bool ImportCommand::Parse(std::istream& in, uint64_t total) {
  ProgressReport progress(env, "import '" + key_name + "': parsing", PrintByteSize, total);
  CsvRowReader reader(
      key_name, env->ignore_errors,
      [this](bool always_fatal) -> std::ostream& { return FailureStream(always_fatal); }, rows);
  CsvTokenizer tokenizer(reader);
  std::unique_ptr<char[]> buffer(new char[kCsvChunkSize]);
  progress.Start();
  while (!in.eof()) {
    errno = 0;
    in.read(buffer.get(), kCsvChunkSize);
    const int read_error = errno;
    const size_t n = static_cast<size_t>(in.gcount());
    const bool parsed = tokenizer.Feed(buffer.get(), n);
    progress.Advance(n);
    if (!parsed) return false;
    if (!in.eof() && in.fail()) {
      // A read error (e.g. FILE is a directory), which must neither pass
      // for the end of the input nor keep this loop going.
      ReportReadFailure(file_name, read_error);
      return false;
    }
  }
  progress.Finish();
  return true;
}

bool ImportCommand::Execute() {
  ProgressReport progress(env, "import '" + key_name + "'", PrintCount, rows.size());
  const uint32_t worker_count = ImportWorkerCount(rows.size(), env->max_db_connections);
  WorkerState state;
  state.running_workers = worker_count;
  progress.Start();
  std::vector<std::thread> workers;
  workers.reserve(worker_count);
  for (uint32_t i = 0; i < worker_count; ++i) {
    workers.emplace_back([this, &state] { RunWorker(state); });
  }
  while (state.running_workers.load() != 0) {
    SleepFor(kImportPollInterval);
    std::lock_guard<std::mutex> lock(state.report_mutex);
    progress.Advance(state.rows_done.exchange(0));
  }
  for (std::thread& worker : workers) worker.join();
  progress.Advance(state.rows_done.exchange(0));
  progress.Finish();
  if (state.import_failed.load()) return false;
  Note("completed");
  return true;
}

void ImportCommand::RunWorker(WorkerState& state) {
  RunningWorkerGuard guard(state.running_workers);
  const uint64_t row_count = rows.size();
  regkey::KeyPtr key = regkey::StubKeyPtr();
  std::string_view current_key = "\\";  // no row has this key
  while (true) {
    const uint64_t first = state.next_row.fetch_add(kImportBatchSize);
    if (first >= row_count) break;
    const uint64_t last = std::min(row_count, first + kImportBatchSize);
    for (uint64_t i = first; i < last; ++i) {
      const ImportRow& row = rows[i];
      if (row.key != current_key) {
        // Release the key, and with it a database connection, before the
        // next one is taken from the pool.
        key = regkey::StubKeyPtr();
        key = regkey::registry_backend->Create(registry_root, 0, false, row.key, true);
        current_key = row.key;
      }
      if (!StoreRow(row, *key, state)) {
        state.import_failed.store(true);
        state.next_row.store(row_count);
        return;
      }
    }
  }
}

bool ImportCommand::StoreRow(const ImportRow& row, regkey::Key& key, WorkerState& state) {
  regkey::ValueType type = regkey::kTypeI32;
  if (!CsvTypeToValueType(row.type, type)) return false;
  if (!key.SetValue(row.data.get(), row.size, type, row.value_name.c_str())) {
    {
      std::lock_guard<std::mutex> lock(state.report_mutex);
      FailureStream(false) << "'" << row.key << (row.key.empty() ? "" : "\\") << row.value_name
                           << "': backend operation failed\n";
    }
    if (!env->ignore_errors) return false;
  }
  state.rows_done.fetch_add(1);
  return true;
}
