#include "transfer/import_command.h"

#include <gtest/gtest.h>

#include <ext/stdio_sync_filebuf.h>

#include <chrono>
#include <cstdlib>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>

#include "frontend/entry.h"
#include "frontend/environment.h"
#include "registry/backend.h"
#include "support/log_test_util.h"

namespace {

TEST(ImportWorkerCountTest, OneWorkerPerFullBatchWithinTheLimit) {
  const uint64_t cases[][3] = {
      {1023, 32, 1},
      {1024, 32, 2},
      {1 << 20, 512, 512},
  };
  for (const auto& c : cases) EXPECT_EQ(ImportWorkerCount(c[0], c[1]), c[2]) << c[0];
}

// "import K -" of env's input on `backend`, the registry's backend meanwhile; Execute's result.
bool ImportOn(std::shared_ptr<regkey::Backend> backend, Environment& env) {
  std::swap(regkey::registry_backend, backend);
  std::string_view tokens[] = {"K", "-"};
  TokenCursor cursor{tokens, 2};
  ImportCommand command("import", &env);
  const bool executed = command.ParseArguments(cursor) && command.Prepare() && command.Execute();
  std::swap(regkey::registry_backend, backend);
  return executed;
}

// Counts key opens and storing threads; each thread's first store waits
// (up to two seconds) for kThreads, so every started worker is seen.
class RecordingBackend final : public regkey::Backend {
 public:
  regkey::KeyPtr Create(std::string_view, int, bool, std::string_view, bool) override {
    std::lock_guard<std::mutex> lock(mutex);
    ++creates;
    return regkey::KeyPtr(new RecordingKey(*this));
  }
  void Dump() override {}
  bool Init(std::string_view) override { return true; }

  std::mutex mutex;
  std::condition_variable arrived;
  static constexpr size_t kThreads = 8;
  size_t creates = 0;
  std::set<std::thread::id> threads;

 private:
  struct RecordingKey final : public regkey::KeyStub {
    explicit RecordingKey(RecordingBackend& backend) : backend(backend) {}
    bool SetValue(const void*, size_t, regkey::ValueType, const char*) override {
      std::unique_lock<std::mutex> lock(backend.mutex);
      if (backend.threads.insert(std::this_thread::get_id()).second) {
        backend.arrived.notify_all();
        backend.arrived.wait_for(lock, std::chrono::seconds(2), [this] {
          return backend.threads.size() >= kThreads;
        });
      }
      return true;
    }
    RecordingBackend& backend;
  };
};

// Every worker ImportWorkerCount allows takes part; a key is opened per run of rows or batch.
TEST(ImportCommandTest, ConcurrentWorkersOpenOneKeyPerRun) {
  const int kKeys = 97, kValuesPerKey = 211;  // 20467 rows: 39 batches
  std::stringstream input;
  input << "KNAME,VNAME,TYPE,VALUE\n";
  for (int v = 0; v < kValuesPerKey; ++v) {
    for (int k = 0; k < kKeys; ++k) input << "k" << k << ",v" << v << ",str,x\n";
  }
  SystemEnvironment env;
  env.input = &input;
  env.max_db_connections = RecordingBackend::kThreads;
  auto recording = std::make_shared<RecordingBackend>();
  EXPECT_TRUE(ImportOn(recording, env));
  EXPECT_EQ(recording->threads.size(), RecordingBackend::kThreads);
  EXPECT_LE(recording->creates, static_cast<size_t>(kKeys + 40));
}

// A FILE, unbuffered as stderr is, that keeps its write calls apart; LogCapture closes it.
struct WriteRecorder {
  static ssize_t Write(void* self, const char* data, size_t size) {
    auto* recorder = static_cast<WriteRecorder*>(self);
    std::lock_guard<std::mutex> lock(recorder->mutex);
    recorder->writes.emplace_back(data, size);
    return static_cast<ssize_t>(size);
  }
  WriteRecorder() : file(fopencookie(this, "w", {nullptr, &Write, nullptr, nullptr})) {
    setvbuf(file, nullptr, _IONBF, 0);
  }
  std::mutex mutex;
  std::vector<std::string> writes;
  FILE* file;
};

// Keys whose every store fails with a log line, as the database's do when the server is gone.
class FailingBackend final : public regkey::Backend {
 public:
  regkey::KeyPtr Create(std::string_view, int, bool, std::string_view, bool) override {
    return regkey::KeyPtr(new FailingKey);
  }
  void Dump() override {}
  bool Init(std::string_view) override { return true; }

 private:
  struct FailingKey final : public regkey::KeyStub {
    bool SetValue(const void*, size_t, regkey::ValueType, const char* name) override {
      LogLine(4, kLogModuleOther) << "StoreValue failed: " << name;
      return false;
    }
  };
};

// The workers' error lines and the log's lines share one unbuffered FILE, as on stderr;
// each line arrives in a write call of its own, whatever the other threads write.
TEST(ImportCommandTest, ConcurrentErrorAndLogLinesAreWrittenWhole) {
  std::stringstream input;
  input << "KNAME,VNAME,TYPE,VALUE\n";
  for (int i = 0; i < 2048; ++i) input << "k" << i % 7 << ",v" << i << ",i32,1\n";
  WriteRecorder recorder;
  LogCapture log(4, recorder.file);
  __gnu_cxx::stdio_sync_filebuf<char> error_buffer(recorder.file);
  std::ostream error(&error_buffer);
  SystemEnvironment env;
  env.input = &input;
  env.error = &error;
  env.ignore_errors = true;
  env.max_db_connections = 4;
  EXPECT_TRUE(ImportOn(std::make_shared<FailingBackend>(), env));
  size_t torn = 0, error_lines = 0;
  for (const std::string& write : recorder.writes) {
    torn += write.find('\n') != write.size() - 1;
    error_lines += write.rfind("error: import 'K': 'K\\k", 0) == 0;
  }
  EXPECT_EQ(torn, 0u) << recorder.writes[0];
  EXPECT_EQ(error_lines, 2048u);
  EXPECT_EQ(recorder.writes.size(), 4096u);
}

// The limit the entry function hands the commands, recorded by a parser that makes none.
uint32_t handed_limit = 0;
std::unique_ptr<Command> RecordLimit(TokenCursor&, Environment& env) {
  handed_limit = env.max_db_connections;
  return nullptr;
}

TEST(ImportWorkerCountTest, ConnectionLimitAbove512IsClampedOnPostgres) {
  const char* spec = std::getenv("HIVECTL_PG_SPEC");
  if (spec == nullptr || *spec == '\0') GTEST_SKIP() << "no HIVECTL_PG_SPEC";
  std::string words[] = {"qv_hivectl", "--Backend", spec, "--MaxDBConnections", "513", "x"};
  char* argv[6];
  for (int i = 0; i < 6; ++i) argv[i] = words[i].data();
  ::testing::internal::CaptureStderr();
  HivectlMain(6, argv, &RecordLimit);
  ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(handed_limit, 512u);
}

}  // namespace
