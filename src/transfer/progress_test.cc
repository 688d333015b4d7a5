#include "transfer/progress.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "frontend/environment.h"

namespace {

constexpr int64_t kMs = 1000000;
int64_t fake_now = 0;
int64_t FakeClock() { return fake_now; }

// Byte sizes in three bands without fractions; durations with only their
// non-zero units, largest first.
TEST(ProgressPrintTest, ByteSizesAndDurations) {
  const std::pair<uint64_t, const char*> sizes[] = {
      {0, "0B"},           {10239, "10239B"},        {10240, "10KiB"},
      {10485759, "10239KiB"}, {10485760, "10MiB"}, {uint64_t{1} << 40, "1048576MiB"}};
  for (const auto& [amount, text] : sizes) {
    std::ostringstream out;
    PrintByteSize(amount, out);
    EXPECT_EQ(out.str(), text);
  }
  const uint64_t s = 1000000000;
  const struct {
    bool negative;
    uint64_t days, nanoseconds;
    const char* text;
  } durations[] = {{false, 0, 3661 * s, "1h1m1s"}, {false, 1, 3600 * s, "1d1h"},
                   {true, 0, 0, "0ns"},           {true, 2, 60 * s, "-2d1m"},
                   {true, 0, 1001001, "-1ms1us1ns"}, {false, 0, 3600 * s + 7, "1h7ns"}};
  for (const auto& c : durations) {
    std::ostringstream out;
    PrintDuration(out, c.negative, c.days, c.nanoseconds);
    EXPECT_EQ(out.str(), c.text);
  }
}

class ProgressReportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    env.progress = true;
    env.error = &err;
    fake_now = 5000 * kMs;
  }
  std::string TakeError() {
    std::string text = err.str();
    err.str("");
    return text;
  }
  // The carriage returns and blanks that wipe a painted line of `length` bytes.
  static std::string Wipe(size_t length) { return "\r" + std::string(length, ' ') + "\r"; }
  SystemEnvironment env;
  std::ostringstream err;
};

// A paint at most every 100 ms, the old line wiped with blanks (more than
// one run of them for a long line); Finish paints once more and ends the line.
TEST_F(ProgressReportTest, PaintsAtMostEvery100Milliseconds) {
  const std::string title = "export '" + std::string(120, 'K') + "'";
  ProgressReport report(&env, title, PrintCount, 0, FakeClock);
  report.Start();
  report.Advance(5);
  const std::string first = title + ": 5 elapsed time: 0ns";
  EXPECT_EQ(TakeError(), Wipe(0) + first);
  fake_now += 99 * kMs;
  report.Advance(5);
  EXPECT_EQ(TakeError(), "");
  fake_now += 1401 * kMs;
  report.Advance(5);
  const std::string line = title + ": 15 speed: 10/s elapsed time: 2s";
  EXPECT_EQ(TakeError(), Wipe(first.size()) + line);
  report.Finish();
  EXPECT_EQ(TakeError(), Wipe(line.size()) + line + "\n");
}

// Of a known total: the share, truncated, and the ETA; a share may pass 100%;
// a paint with nothing done divides by zero.
TEST_F(ProgressReportTest, ShowsShareRateAndEtaOfAKnownTotal) {
  ProgressReport report(&env, "import 'Conf': parsing", PrintByteSize, 40 << 20, FakeClock);
  report.Start();
  fake_now += 3000 * kMs;
  report.Advance(12 << 20);
  const std::string first =
      "import 'Conf': parsing: 12MiB/40MiB (30.0%) speed: 4096KiB/s ETA: 7s elapsed time: 3s";
  EXPECT_EQ(TakeError(), Wipe(0) + first);
  fake_now += 1000 * kMs;
  report.Advance(28 << 20);
  report.Finish();
  const std::string last =
      "import 'Conf': parsing: 40MiB/40MiB (100.0%) speed: 10MiB/s elapsed time: 4s";
  EXPECT_EQ(TakeError(), Wipe(first.size()) + last + Wipe(last.size()) + last + "\n");
  ProgressReport count(&env, "t", PrintCount, 3, FakeClock);
  count.Start();
  count.Advance(2);
  EXPECT_EQ(TakeError(), Wipe(0) + "t: 2/3 (66.6%) elapsed time: 0ns");
  fake_now += 100 * kMs;
  count.Advance(2);
  EXPECT_NE(TakeError().find("4/3 (133.3%) speed: 40/s ETA: "), std::string::npos);
  ProgressReport empty(&env, "import 'K'", PrintCount, 10, FakeClock);
  empty.Start();
  EXPECT_DEATH(empty.Advance(0), "");
}

}  // namespace
