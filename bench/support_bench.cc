// Figures of the support library: the cost of a filtered and of a written
// log line, heap allocations per written line in the steady state, and
// base64 throughput. Prints one figure per line; takes no arguments.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "support/encoders.h"
#include "support/log.h"

namespace {

std::atomic<long> allocations{0};

using Clock = std::chrono::steady_clock;

double NanosPer(Clock::time_point start, long count) {
  const auto elapsed = std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - start);
  return static_cast<double>(elapsed.count()) / static_cast<double>(count);
}

void WriteLines(long count) {
  for (long i = 0; i < count; ++i) {
    if (LogEnabled(4, kLogModuleOther)) {
      LogLine line(4, kLogModuleOther);
      line << "ReqistryKeyDB: GetValue failed: ";
      line.stream() << i;
    }
  }
}

}  // namespace

void* operator new(size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* block = std::malloc(size == 0 ? 1 : size)) return block;
  throw std::bad_alloc();
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, size_t) noexcept { std::free(block); }

int main() {
  FILE* sink = std::fopen("/dev/null", "w");
  if (sink == nullptr) return 1;
  LogSetup(4, kLogModuleOther);
  LogSetFile(sink);

  constexpr long kFiltered = 50000000;
  long passed = 0;
  auto start = Clock::now();
  for (long i = 0; i < kFiltered; ++i) {
    if (LogEnabled(5, kLogModuleOther)) ++passed;
  }
  std::printf("filtered line: %.2f ns\n", NanosPer(start, kFiltered));

  WriteLines(10);  // the thread's first line allocates its object
  constexpr long kWritten = 2000000;
  const long before = allocations.load();
  start = Clock::now();
  WriteLines(kWritten);
  std::printf("written line, one thread: %.1f ns\n", NanosPer(start, kWritten));
  std::printf("heap allocations per written line: %.4f\n",
              static_cast<double>(allocations.load() - before) / kWritten);

  const unsigned thread_count = 4;
  start = Clock::now();
  std::vector<std::thread> threads;
  for (unsigned t = 0; t < thread_count; ++t) threads.emplace_back(WriteLines, kWritten / 4);
  for (auto& thread : threads) thread.join();
  std::printf("written line, %u threads at once: %.1f ns per line overall\n", thread_count,
              NanosPer(start, kWritten));

  std::string bytes(1 << 20, '\0');
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 131 + 7);
  size_t text_size = 0;
  Base64Encode(bytes.data(), bytes.size(), nullptr, text_size);
  std::string text(text_size, '\0');
  constexpr int kRounds = 200;
  start = Clock::now();
  for (int round = 0; round < kRounds; ++round) {
    size_t size = text.size();
    if (!Base64Encode(bytes.data(), bytes.size(), text.data(), size)) return 1;
  }
  std::printf("base64 encode: %.0f MB/s of input\n",
              1e3 * kRounds * static_cast<double>(bytes.size()) /
                  NanosPer(start, 1));
  start = Clock::now();
  for (int round = 0; round < kRounds; ++round) {
    size_t size = bytes.size();
    if (!Base64Decode(text.data(), text.size(), bytes.data(), size)) return 1;
  }
  std::printf("base64 decode: %.0f MB/s of output\n",
              1e3 * kRounds * static_cast<double>(bytes.size()) / NanosPer(start, 1));
  size_t position = 0;
  start = Clock::now();
  for (int round = 0; round < kRounds; ++round) {
    if (!Base64Validate(text.data(), text.size(), position)) return 1;
  }
  std::printf("base64 validate: %.0f MB/s of text\n",
              1e3 * kRounds * static_cast<double>(text.size()) / NanosPer(start, 1));
  std::printf("(lines passed the filter: %ld)\n", passed);
  std::fclose(sink);
  return 0;
}
