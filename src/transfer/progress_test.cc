#include "transfer/progress.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <tuple>

#include "frontend/environment.h"

namespace {

constexpr int64_t kMs = 1000000;
int64_t fake_now = 5000 * kMs;
int64_t FakeClock() { return fake_now; }

// Sizes in three bands without fractions; durations by their non-zero units, largest first.
TEST(ProgressPrintTest, ByteSizesAndDurations) {
  std::ostringstream out;
  for (const uint64_t amount : {0ul, 10239ul, 10240ul, 10485759ul, 10485760ul, 1ul << 40}) {
    PrintByteSize(amount, out << ' ');
  }
  const uint64_t s = 1000000000;
  const std::tuple<bool, uint64_t, uint64_t> durations[] = {
      {false, 0, 3661 * s}, {false, 1, 3600 * s}, {true, 0, 0},
      {true, 2, 60 * s},    {true, 0, 1001001},   {false, 0, 3600 * s + 7}};
  for (const auto& [negative, days, ns] : durations) PrintDuration(out << ' ', negative, days, ns);
  EXPECT_EQ(out.str(), " 0B 10239B 10KiB 10239KiB 10MiB 1048576MiB"
                       " 1h1m1s 1d1h 0ns -2d1m -1ms1us1ns 1h7ns");
}

// A paint of `line`: carriage returns and blanks wipe the `previous` one first.
std::string Paint(const std::string& previous, const std::string& line) {
  return "\r" + std::string(previous.size(), ' ') + "\r" + line;
}

// A paint at most every 100 ms, over a long old line too; Finish paints once more and ends it.
// Of a known total: share (truncated, may pass 100%) and ETA; nothing done divides by zero.
TEST(ProgressReportTest, PaintsShareRateAndEta) {
  SystemEnvironment env;
  std::ostringstream err;
  env.progress = true;
  env.error = &err;
  const std::string title = "export '" + std::string(120, 'K') + "'";
  ProgressReport report(&env, title, PrintCount, 0, FakeClock);
  report.Start();
  report.Advance(5);
  fake_now += 99 * kMs;
  report.Advance(5);
  fake_now += 1401 * kMs;
  report.Advance(5);
  report.Finish();
  ProgressReport total(&env, "import 'Conf': parsing", PrintByteSize, 40 << 20, FakeClock);
  total.Start();
  fake_now += 3000 * kMs;
  total.Advance(12 << 20);
  fake_now += 1000 * kMs;
  total.Advance(28 << 20);
  total.Finish();
  ProgressReport count(&env, "t", PrintCount, 3, FakeClock);
  count.Start();
  count.Advance(2);
  fake_now += 100 * kMs;
  count.Advance(2);
  const std::string first = title + ": 5 elapsed time: 0ns";
  const std::string line = title + ": 15 speed: 10/s elapsed time: 2s";
  const std::string share =
      "import 'Conf': parsing: 12MiB/40MiB (30.0%) speed: 4096KiB/s ETA: 7s elapsed time: 3s";
  const std::string done =
      "import 'Conf': parsing: 40MiB/40MiB (100.0%) speed: 10MiB/s elapsed time: 4s";
  const std::string text = Paint("", first) + Paint(first, line) + Paint(line, line) + "\n" +
                           Paint("", share) + Paint(share, done) + Paint(done, done) + "\n" +
                           Paint("", "t: 2/3 (66.6%) elapsed time: 0ns");
  EXPECT_EQ(err.str().substr(0, text.size()), text);
  EXPECT_NE(err.str().find("4/3 (133.3%) speed: 40/s ETA: ", text.size()), std::string::npos);
  ProgressReport empty(&env, "import 'K'", PrintCount, 10, FakeClock);
  empty.Start();
  EXPECT_DEATH(empty.Advance(0), "");
}

}  // namespace
