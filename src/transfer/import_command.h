// import KEY FILE: adds every value of a registry CSV file (or of the
// standard input for "-") below KEY.
//
// Prepare reads and checks the whole input and keeps all rows in memory,
// sorted by key (byte order) and within a key by value name as the memory
// registry orders names; nothing reaches the registry there, so a bad file
// stops the run before any command of the line executes. Execute stores
// the rows with 1 to env->max_db_connections worker threads that claim
// batches of kImportBatchSize rows through one atomic index. There is no
// rollback: what a worker stored before a failure stays stored.
//
// Rows naming the same value are all stored, and which of them wins is not
// defined: within a batch the file's later row is stored later, but rows
// on two sides of a batch boundary are stored by two workers in either
// order, and keys that differ only in letter case (one key on a registry
// that ignores case) are sorted by their bytes, not by their place in the
// file. A defined result needs each value in one row only.
#ifndef HIVECTL_TRANSFER_IMPORT_COMMAND_H_
#define HIVECTL_TRANSFER_IMPORT_COMMAND_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <istream>
#include <mutex>
#include <string>
#include <vector>

#include "frontend/command.h"
#include "transfer/csv.h"

constexpr uint64_t kImportBatchSize = 512;
constexpr int64_t kImportPollInterval = 50000000;  // ns

// One worker per full batch, at least one, at most max_db_connections.
uint32_t ImportWorkerCount(size_t row_count, uint32_t max_db_connections);

class ImportCommand final : public CommandBase {
 public:
  using CommandBase::CommandBase;

  bool ParseArguments(TokenCursor& cursor) override;
  bool Prepare() override;
  bool Execute() override;

 private:
  // What the workers of one Execute share.
  struct WorkerState {
    std::atomic<uint64_t> next_row{0};         // next unclaimed row
    std::atomic<uint64_t> rows_done{0};        // since the main thread last looked
    std::atomic<uint64_t> running_workers{0};  // decremented as a worker's last act
    std::atomic<bool> import_failed{false};    // read after all joins
    std::mutex report_mutex;  // keeps error lines and repaints apart
  };

  bool Parse(std::istream& in, uint64_t total);
  void RunWorker(WorkerState& state);
  // Stores one row through `key`; false stops the worker.
  bool StoreRow(const ImportRow& row, regkey::Key& key, WorkerState& state);

  std::string file_name;
  std::vector<ImportRow> rows;  // filled and sorted in Prepare, read-only afterwards
};

#endif  // HIVECTL_TRANSFER_IMPORT_COMMAND_H_
