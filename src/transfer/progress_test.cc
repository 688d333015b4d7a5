#include "transfer/progress.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "frontend/environment.h"

namespace {

constexpr int64_t kMs = 1000000;
int64_t fake_now = 5000 * kMs;
int64_t FakeClock() { return fake_now; }

TEST(ProgressPrintTest, ByteSizesInThreeBandsWithoutFractions) {
  std::ostringstream out;
  for (const uint64_t amount : {10239ul, 10240ul, 10485759ul, 1ul << 40}) {
    PrintByteSize(amount, out << ' ');
  }
  EXPECT_EQ(out.str(), " 10239B 10KiB 10239KiB 1048576MiB");
}

// Largest unit first, units of zero left out.
TEST(ProgressPrintTest, DurationsByTheirNonZeroUnits) {
  const uint64_t s = 1000000000;
  std::ostringstream out;
  PrintDuration(out << ' ', false, 0, 3661 * s);
  PrintDuration(out << ' ', false, 1, 3600 * s);
  EXPECT_EQ(out.str(), " 1h1m1s 1d1h");
}

// A paint of `line`: carriage returns and blanks wipe the `previous` one first.
std::string Paint(const std::string& previous, const std::string& line) {
  return "\r" + std::string(previous.size(), ' ') + "\r" + line;
}

class ProgressReportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    env_.progress = true;
    env_.error = &err_;
  }
  SystemEnvironment env_;
  std::ostringstream err_;
};

// A paint at most every 100 ms, over a long old line too; Finish paints once more and ends it.
TEST_F(ProgressReportTest, PaintsAtMostEvery100Ms) {
  const std::string title = "export '" + std::string(120, 'K') + "'";
  ProgressReport report(&env_, title, PrintCount, 0, FakeClock);
  report.Start();
  report.Advance(5);
  fake_now += 99 * kMs;
  report.Advance(5);
  fake_now += 1401 * kMs;
  report.Advance(5);
  report.Finish();
  const std::string first = title + ": 5 elapsed time: 0ns";
  const std::string line = title + ": 15 speed: 10/s elapsed time: 2s";
  EXPECT_EQ(err_.str(), Paint("", first) + Paint(first, line) + Paint(line, line) + "\n");
}

TEST_F(ProgressReportTest, KnownTotalShowsShareAndEta) {
  ProgressReport report(&env_, "import 'Conf': parsing", PrintByteSize, 40 << 20, FakeClock);
  report.Start();
  fake_now += 3000 * kMs;
  report.Advance(12 << 20);
  fake_now += 1000 * kMs;
  report.Advance(28 << 20);
  report.Finish();
  const std::string share =
      "import 'Conf': parsing: 12MiB/40MiB (30.0%) speed: 4096KiB/s ETA: 7s elapsed time: 3s";
  const std::string done =
      "import 'Conf': parsing: 40MiB/40MiB (100.0%) speed: 10MiB/s elapsed time: 4s";
  EXPECT_EQ(err_.str(), Paint("", share) + Paint(share, done) + Paint(done, done) + "\n");
}

// The share is truncated and may pass 100%.
TEST_F(ProgressReportTest, ShareIsTruncatedAndMayPassTheTotal) {
  ProgressReport report(&env_, "t", PrintCount, 3, FakeClock);
  report.Start();
  report.Advance(2);
  fake_now += 100 * kMs;
  report.Advance(2);
  const std::string first = "t: 2/3 (66.6%) elapsed time: 0ns";
  EXPECT_EQ(err_.str().substr(0, first.size() + 2), Paint("", first));
  EXPECT_NE(err_.str().find("4/3 (133.3%) speed: 40/s ETA: "), std::string::npos);
}

TEST_F(ProgressReportTest, NothingDoneDividesByZero) {
  ProgressReport report(&env_, "import 'K'", PrintCount, 10, FakeClock);
  report.Start();
  EXPECT_DEATH(report.Advance(0), "");
}

}  // namespace
