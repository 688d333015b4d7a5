#include "transfer/import_command.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "registry/backend.h"
#include "frontend/test_environment.h"

namespace {

TEST(ImportWorkerCountTest, OneWorkerPerFullBatchWithinTheLimit) {
  const uint64_t cases[][3] = {{0, 32, 1},       {1023, 32, 1},      {1024, 32, 2},
                               {16383, 32, 31},  {16384, 32, 32},    {100000, 1, 1},
                               {100000, 512, 195}, {1 << 20, 512, 512}};
  for (const auto& c : cases) EXPECT_EQ(ImportWorkerCount(c[0], c[1]), c[2]) << c[0];
}

// What the recording backend saw. Values named "fail" are refused. With
// `expected_threads` set, the first store of each thread waits (up to two
// seconds) until that many threads have arrived, so that every started
// worker is seen, however fast the others are.
struct Recording {
  std::mutex mutex;
  std::condition_variable arrived;
  size_t expected_threads = 0;
  std::multiset<std::tuple<std::string, std::string, int, std::string>> stored;
  std::set<std::thread::id> threads;
  int creates = 0;
};

// Inert like the stub, except that it records its stores.
class RecordingKey final : public regkey::KeyStub {
 public:
  RecordingKey(Recording& recording, std::string path)
      : recording_(recording), path_(std::move(path)) {}
  bool SetValue(const void* data, size_t size, regkey::ValueType type,
                const char* name) override {
    std::string bytes = type == regkey::kTypeStr
                            ? std::string(static_cast<const char*>(data))
                            : std::string(static_cast<const char*>(data), size);
    std::unique_lock<std::mutex> lock(recording_.mutex);
    if (recording_.threads.insert(std::this_thread::get_id()).second) {
      recording_.arrived.notify_all();
      recording_.arrived.wait_for(lock, std::chrono::seconds(2), [this] {
        return recording_.threads.size() >= recording_.expected_threads;
      });
    }
    if (std::string(name) == "fail") return false;
    recording_.stored.emplace(path_, name, type, bytes);
    return true;
  }
  bool IsValid() override { return true; }
  std::string_view GetName() override { return path_; }

 private:
  Recording& recording_;
  const std::string path_;
};

class RecordingBackend final : public regkey::Backend {
 public:
  explicit RecordingBackend(Recording& recording) : recording_(recording) {}
  regkey::KeyPtr Create(std::string_view root, int, bool, std::string_view path, bool) override {
    {
      std::lock_guard<std::mutex> lock(recording_.mutex);
      ++recording_.creates;
    }
    return regkey::KeyPtr(new RecordingKey(recording_, std::string(root) + "|" + std::string(path)));
  }
  void Dump() override {}
  bool Init(std::string_view) override { return true; }

 private:
  Recording& recording_;
};

class ImportCommandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    saved_backend_ = regkey::registry_backend;
    saved_root_ = registry_root;
    regkey::registry_backend = std::make_shared<RecordingBackend>(recording);
    registry_root = "Root";
  }
  void TearDown() override {
    regkey::registry_backend = saved_backend_;
    registry_root = saved_root_;
  }
  std::unique_ptr<ImportCommand> Parse(const char* key, const char* file) {
    std::string_view tokens[] = {key, file};
    TokenCursor cursor{tokens, 2};
    auto command = std::make_unique<ImportCommand>("import", &env);
    EXPECT_TRUE(command->ParseArguments(cursor));
    return command;
  }

  TestEnvironment env;
  Recording recording;

 private:
  std::shared_ptr<regkey::Backend> saved_backend_;
  std::string saved_root_;
};

TEST_F(ImportCommandTest, ConcurrentImportStoresEveryRowOnceWithOneKeyPerRun) {
  const int kKeys = 97, kValuesPerKey = 211;  // 20467 rows: 39 batches
  std::ostringstream csv;
  csv << "KNAME,VNAME,TYPE,VALUE\n";
  std::multiset<std::tuple<std::string, std::string, int, std::string>> expected;
  for (int v = 0; v < kValuesPerKey; ++v) {
    for (int k = 0; k < kKeys; ++k) {
      std::string name = "v" + std::to_string(v);
      csv << "k" << k << "\\sub," << name << ",str,text " << k * v << "\n";
      expected.emplace("Root|K\\k" + std::to_string(k) + "\\sub", name, regkey::kTypeStr,
                       "text " + std::to_string(k * v));
    }
  }
  env.files["in.csv"] = csv.str();
  env.max_db_connections = 8;
  env.verbose = true;
  recording.expected_threads = 8;
  auto command = Parse("K", "in.csv");
  ASSERT_TRUE(command->Prepare());
  ASSERT_TRUE(command->Execute());
  EXPECT_EQ(env.err.str(),
            "note: import 'K': file/stdin parsing completed\nnote: import 'K': completed\n");
  EXPECT_EQ(recording.stored, expected);
  EXPECT_EQ(recording.threads.size(), 8u);
  // Sorted rows: a worker opens a key only where the key changes or a
  // batch starts.
  EXPECT_LE(recording.creates, kKeys + 40);
}

TEST_F(ImportCommandTest, ConcurrentFailingStoreUnderIgnoreErrorsGoesOn) {
  std::ostringstream csv;
  csv << "KNAME,VNAME,TYPE,VALUE\n,fail,str,x\n";
  for (int i = 0; i < 1500; ++i) csv << ",v" << i << ",str,x\n";
  env.files["in.csv"] = csv.str();
  env.max_db_connections = 4;
  env.ignore_errors = true;
  recording.expected_threads = 2;
  auto command = Parse("", "in.csv");
  ASSERT_TRUE(command->Prepare());
  EXPECT_TRUE(command->Execute());
  EXPECT_EQ(env.err.str(), "error: import: 'fail': backend operation failed\n");
  EXPECT_EQ(recording.stored.size(), 1500u);
  EXPECT_EQ(recording.threads.size(), 2u);
}

}  // namespace
