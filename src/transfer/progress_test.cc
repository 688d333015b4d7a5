#include "transfer/progress.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "frontend/test_environment.h"

namespace {

constexpr int64_t kMs = 1000000;
int64_t fake_now = 0;
int64_t FakeClock() { return fake_now; }

std::string ByteSize(uint64_t amount) {
  std::ostringstream out;
  PrintByteSize(amount, out);
  return out.str();
}

std::string Duration(bool negative, uint64_t days, uint64_t nanoseconds) {
  std::ostringstream out;
  PrintDuration(out, negative, days, nanoseconds);
  return out.str();
}

TEST(PrintByteSizeTest, ThreeBandsWithoutFractions) {
  const std::pair<uint64_t, const char*> cases[] = {
      {0, "0B"},           {10239, "10239B"},        {10240, "10KiB"},
      {10485759, "10239KiB"}, {10485760, "10MiB"}, {uint64_t{1} << 40, "1048576MiB"}};
  for (const auto& [amount, text] : cases) EXPECT_EQ(ByteSize(amount), text);
}

TEST(PrintDurationTest, OnlyNonZeroUnitsLargestFirst) {
  const uint64_t s = 1000000000;
  EXPECT_EQ(Duration(false, 0, 3661 * s), "1h1m1s");
  EXPECT_EQ(Duration(false, 1, 3600 * s), "1d1h");
  EXPECT_EQ(Duration(true, 0, 0), "0ns");
  EXPECT_EQ(Duration(true, 2, 60 * s), "-2d1m");
  EXPECT_EQ(Duration(false, 0, 1001001), "1ms1us1ns");
  EXPECT_EQ(Duration(false, 0, 3600 * s + 7), "1h7ns");
}

class ProgressReportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    env.progress = true;
    fake_now = 5000 * kMs;
  }
  std::string TakeError() {
    std::string text = env.err.str();
    env.err.str("");
    return text;
  }
  TestEnvironment env;
};

TEST_F(ProgressReportTest, PaintsAtMostEvery100Milliseconds) {
  ProgressReport report(&env, "export 'K'", PrintCount, 0, FakeClock);
  report.Start();
  report.Advance(5);
  EXPECT_EQ(TakeError(), "\r\rexport 'K': 5 elapsed time: 0ns");
  fake_now += 99 * kMs;
  report.Advance(5);
  EXPECT_EQ(TakeError(), "");
  fake_now += 1401 * kMs;
  report.Advance(5);
  const std::string old_blanks(31, ' ');
  EXPECT_EQ(TakeError(), "\r" + old_blanks + "\rexport 'K': 15 speed: 10/s elapsed time: 2s");
  report.Finish();
  EXPECT_EQ(TakeError(), "\r" + std::string(43, ' ') +
                             "\rexport 'K': 15 speed: 10/s elapsed time: 2s\n");
}

TEST_F(ProgressReportTest, ShowsShareRateAndEtaOfAKnownTotal) {
  ProgressReport report(&env, "import 'Conf': parsing", PrintByteSize, 40 << 20, FakeClock);
  report.Start();
  fake_now += 3000 * kMs;
  report.Advance(12 << 20);
  EXPECT_EQ(TakeError(),
            "\r\rimport 'Conf': parsing: 12MiB/40MiB (30.0%) speed: 4096KiB/s ETA: 7s "
            "elapsed time: 3s");
  fake_now += 1000 * kMs;
  report.Advance(28 << 20);
  report.Finish();
  std::string final_paint = TakeError();
  EXPECT_NE(final_paint.find("40MiB/40MiB (100.0%) speed: 10MiB/s elapsed time: 4s\n"),
            std::string::npos)
      << final_paint;
}

TEST_F(ProgressReportTest, PercentageIsTruncatedAndMayPass100) {
  ProgressReport report(&env, "t", PrintCount, 3, FakeClock);
  report.Start();
  report.Advance(2);
  EXPECT_EQ(TakeError(), "\r\rt: 2/3 (66.6%) elapsed time: 0ns");
  fake_now += 100 * kMs;
  report.Advance(2);
  const std::string text = TakeError();
  EXPECT_NE(text.find("4/3 (133.3%) speed: 40/s ETA: "), std::string::npos) << text;
}

TEST_F(ProgressReportTest, WritesNothingWithoutTheOption) {
  env.progress = false;
  ProgressReport report(&env, "t", PrintCount, 10, FakeClock);
  report.Start();
  report.Advance(0);  // would divide by zero if it painted
  report.Finish();
  EXPECT_EQ(TakeError(), "");
}

TEST_F(ProgressReportTest, PaintWithNothingDoneOfAKnownTotalDividesByZero) {
  ProgressReport report(&env, "import 'K'", PrintCount, 10, FakeClock);
  report.Start();
  EXPECT_DEATH(report.Advance(0), "");
}

}  // namespace
