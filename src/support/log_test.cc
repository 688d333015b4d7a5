#include "support/log.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iomanip>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/log_test_util.h"
#include "support/thread.h"

namespace {

constexpr size_t kMaxText = 65104;
using Texts = std::vector<std::string>;

std::string ThreadColumn(int thread_id) {
  char column[8];
  snprintf(column, sizeof column, "%06x", static_cast<unsigned>(thread_id) & 0xFFFFFF);
  return column;
}

std::string LocalTimeNow() {
  const auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(
                          std::chrono::system_clock::now().time_since_epoch()).count();
  const time_t seconds = static_cast<time_t>(millis / 1000);
  tm local{};
  localtime_r(&seconds, &local);
  std::ostringstream text;
  text << std::put_time(&local, "%d/%m/%Y %H:%M:%S.") << std::setfill('0') << std::setw(3)
       << millis % 1000;
  return text.str();
}

// The time in the zone set here, as a fresh thread has no cached date; level, thread and module.
TEST(LogTest, HeaderColumnsThreaded) {
  LogCapture zoned;
  const std::string saved_zone = getenv("TZ") != nullptr ? getenv("TZ") : "UTC";
  setenv("TZ", "XST-5:30", 1);
  tzset();
  std::string before, after;
  int thread_id = 0;
  std::thread([&] {
    thread_id = CurrentThreadId();
    for (int attempt = 0; attempt < 5 && (attempt == 0 || before != after); ++attempt) {
      before = LocalTimeNow();
      { LogLine(3, kLogModuleOther) << "abc"; }
      after = LocalTimeNow();
    }
  }).join();
  setenv("TZ", saved_zone.c_str(), 1);
  tzset();
  ASSERT_EQ(before, after);
  EXPECT_EQ(zoned.Text().substr(zoned.Text().size() - 49),
            before + " |3| " + ThreadColumn(thread_id) + "|   OTHER| abc\n");
}

TEST(LogTest, EmptyLineIsDropped) {
  LogCapture log;
  { LogLine(1, kLogModuleOther) << ""; }
  EXPECT_EQ(log.Text(), "");
}

TEST(LogTest, LongTextIsCutAtTheLimit) {
  LogCapture log;
  { LogLine(1, kLogModuleOther) << std::string(kMaxText - 1, 'b').c_str() << "cd" << "more"; }
  EXPECT_EQ(log.Texts(), Texts{std::string(kMaxText - 1, 'b') + "c"});
}

}  // namespace
