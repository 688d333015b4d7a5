#include "transfer/import_command.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <condition_variable>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include "frontend/entry.h"
#include "frontend/environment.h"
#include "registry/backend.h"

namespace {

TEST(ImportWorkerCountTest, OneWorkerPerFullBatchWithinTheLimit) {
  const uint64_t cases[][3] = {
      {0, 32, 1},
      {1023, 32, 1},
      {1024, 32, 2},
      {16383, 32, 31},
      {16384, 32, 32},
      {100000, 1, 1},
      {100000, 512, 195},
      {1 << 20, 512, 512},
  };
  for (const auto& c : cases) EXPECT_EQ(ImportWorkerCount(c[0], c[1]), c[2]) << c[0];
}

// Counts stores, key opens and storing threads; each thread's first store waits
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
  size_t stores = 0, creates = 0;
  std::set<std::thread::id> threads;

 private:
  struct RecordingKey final : public regkey::KeyStub {
    explicit RecordingKey(RecordingBackend& backend) : backend(backend) {}
    bool SetValue(const void*, size_t, regkey::ValueType, const char*) override {
      std::unique_lock<std::mutex> lock(backend.mutex);
      ++backend.stores;
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
  const std::shared_ptr<regkey::Backend> saved = regkey::registry_backend;
  regkey::registry_backend = recording;
  std::string_view tokens[] = {"K", "-"};
  TokenCursor cursor{tokens, 2};
  ImportCommand command("import", &env);
  ASSERT_TRUE(command.ParseArguments(cursor) && command.Prepare());
  EXPECT_TRUE(command.Execute());
  regkey::registry_backend = saved;
  EXPECT_EQ(recording->stores, static_cast<size_t>(kKeys * kValuesPerKey));
  EXPECT_EQ(recording->threads.size(), RecordingBackend::kThreads);
  EXPECT_LE(recording->creates, static_cast<size_t>(kKeys + 40));
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
