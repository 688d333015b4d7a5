#include "support/log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iomanip>
#include <locale>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/log_test_util.h"
#include "support/omembuf.h"
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

// The time in the zone set here, as a fresh thread has no cached date; level and module
// columns and labels; stdout without a file.
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
  LogCapture log;
  LogSetup(9, kLogModuleOther | 0x2);
  { LogLine(9, 0x2) << "storage"; }
  { LogLine(0, 0x3) << "unknown"; }
  const std::string text = log.Text();
  EXPECT_EQ(text.substr(23, 26), " |9| " + ThreadColumn(CurrentThreadId()) + "| STORAGE| stor");
  EXPECT_EQ(text.substr(53 + 23),
            " |0| " + ThreadColumn(CurrentThreadId()) + "| UNKNOWN| unknown\n");
  EXPECT_STREQ(LogModuleLabel(0), "   NONE");
  EXPECT_STREQ(LogModuleLabel(0x80000000), " QV_PHP");
  LogSetup(0, 0);
  LogSetFile(nullptr);
  ::testing::internal::CaptureStdout();
  { LogLine(1, kLogModuleOther) << "filtered"; }
  { LogLine(0, kLogModuleOther) << "to stdout"; }
  fflush(stdout);
  EXPECT_EQ(::testing::internal::GetCapturedStdout().substr(23),
            " |0| " + ThreadColumn(CurrentThreadId()) + "|   OTHER| to stdout\n");
}

// Groups thousands with a comma, to show a locale left behind by a line.
struct CommaGrouping : std::numpunct<char> {
  char do_thousands_sep() const override { return ','; }
  std::string do_grouping() const override { return "\3"; }
};

// Line feeds added only where missing, empty lines dropped, Rewind keeping the header, text
// cut at the limit (Format included); no stream state of a line or of a pooled object another
// thread takes leaks into the next line; lines the filter leaves out are inert.
TEST(LogTest, LineTextsThreaded) {
  LogCapture log;
  { LogLine(1, kLogModuleOther) << "abc"; }
  { LogLine(1, kLogModuleOther) << "abc\n"; }
  { LogLine(1, kLogModuleOther) << ""; }
  {
    LogLine line(2, kLogModuleOther);
    line << "first attempt";
    line.Rewind();
    line << "second";
  }
  { LogLine(1, kLogModuleOther) << std::string(kMaxText - 1, 'b').c_str() << "cd" << "more"; }
  { EXPECT_TRUE((LogLine(1, kLogModuleOther) << "ab").Format("%d-%s%04x", 5, "x", 255u)); }
  {
    LogLine line(1, kLogModuleOther);
    line << "start ";
    EXPECT_TRUE(line.Format("%s", std::string(70000, 'c').c_str()));
    EXPECT_TRUE(line.Format("%s", "after"));
  }
  {
    LogLine line(1, kLogModuleOther);
    line.stream().imbue(std::locale(std::locale::classic(), new CommaGrouping));
    line.stream() << std::hex << std::showbase << std::uppercase << std::setfill('*')
                  << std::setprecision(2) << std::left << 1234567 << ' ' << 3.14159
                  << std::setw(12);
    { LogLine(1, kLogModuleOther).stream() << std::hex << std::setfill('#') << 255; }  // pooled
  }
  { LogLine(1, kLogModuleOther).stream() << 1234567 << ' ' << 3.14159 << std::setw(4) << 7; }
  std::thread([] { LogLine(1, kLogModuleOther).stream() << std::setw(4) << 255; }).join();
  const boost::system::error_code code(13, boost::system::system_category());
  { LogLine(1, kLogModuleOther) << "a " << static_cast<const char*>(nullptr) << " b " << code; }
  LogLine too_detailed(5, kLogModuleOther);
  EXPECT_TRUE(too_detailed.inert());
  too_detailed << "x" << code;
  EXPECT_TRUE(too_detailed.Format("%s", "y"));
  EXPECT_TRUE(LogLine(1, 0x2).inert());
  EXPECT_FALSE(LogLine(0, 0).inert());
  EXPECT_TRUE(LogEnabled(4, kLogModuleOther | 0x2));
  EXPECT_EQ(log.Texts(), (Texts{"abc", "abc", "second", std::string(kMaxText - 1, 'b') + "c",
                                "ab5-x00ff", "start " + std::string(kMaxText - 6, 'c'), "ff",
                                "0X12D,687 3.1", "1234567 3.14159   7", " 255",
                                "a (null) b (EACCES) " + code.message()}));
}

// The name table against libc's names of the same numbers; stream format flags do not apply.
TEST(LogErrorCodeTest, NamesNumbersAndCategories) {
  const auto text = [](int value, const boost::system::error_category& category) {
    std::ostringstream stream;
    stream << std::hex << std::setw(30);
    WriteErrorCode(stream, boost::system::error_code(value, category));
    return stream.str();
  };
  const auto& system = boost::system::system_category();
  for (int value = -1; value <= 134; ++value) {
    const bool named = value >= 1 && value <= 133 && value != 41 && value != 58;
    const std::string name = named ? strerrorname_np(value) : std::to_string(value);
    EXPECT_EQ(text(value, system), "(" + name + ") " + system.message(value));
  }
  const auto& generic = boost::system::generic_category();
  EXPECT_EQ(text(2, generic), "(generic:2) " + generic.message(2));
}

// Lines of threads stay whole and in order; none is written while LogLock holds them back.
TEST(LogTest, ConcurrentLinesStayWholeAndWaitForLogLock) {
  LogCapture log;
  LogLock();
  constexpr int kThreads = 6, kLines = 400;
  auto label = [](int t, int n) { return "t" + std::to_string(t) + " n" + std::to_string(n); };
  auto filler = [](int t) { return std::string(200 + 50 * t, static_cast<char>('a' + t)); };
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &label, &filler] {
      for (int n = 0; n < kLines; ++n) {
        LogLine outer(1, kLogModuleOther);  // two lines open at once use the pool
        { LogLine(1, kLogModuleOther) << "inner"; }
        outer << label(t, n).c_str();
        outer.Format(" %s", filler(t).c_str());
      }
    });
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_EQ(log.Text(), "");
  LogUnlock();
  for (auto& thread : threads) thread.join();
  Texts texts = log.Texts(), expected;
  const auto by_thread = [](const auto& a, const auto& b) { return a.at(1) < b.at(1); };
  std::stable_sort(texts.begin(), texts.end(), by_thread);  // "inner" last
  for (int i = 0; i < kThreads * kLines; ++i) {
    expected.push_back(label(i / kLines, i % kLines) + " " + filler(i / kLines));
  }
  expected.resize(2 * kThreads * kLines, "inner");
  EXPECT_EQ(texts, expected);
}

// A line logged by an exit handler registered before any static object exists, so it
// runs after their destructors, the log pool's teardown included.
std::atomic<bool> log_at_exit{false};
void LogLateLine() {
  if (log_at_exit) LogLine(0, kLogModuleOther) << "late line";
}
__attribute__((constructor(101))) void RegisterLateLine() { atexit(LogLateLine); }

void LogInnerOuterAndExit() {
  LogSetFile(stderr);
  LogSetup(1, kLogModuleOther);
  {
    LogLine outer(1, kLogModuleOther);  // leaves one object cached, one pooled
    { LogLine(1, kLogModuleOther) << "inner"; }
    outer << "outer";
  }
  log_at_exit = true;
  exit(0);
}

TEST(LogDeathTest, LineAfterTeardownAtExit) {
  EXPECT_EXIT(LogInnerOuterAndExit(), ::testing::ExitedWithCode(0),
              "inner\n.*outer\n.*late line\n$");
}

// Seeking stays inside the area, output only (a full area is LineTextsThreaded's cut).
TEST(OmembufTest, Seeking) {
  char area[8];
  basic_omembuf<char> buffer;
  buffer.pubsetbuf(area, sizeof area);
  std::ostream(&buffer) << "abcdef";
  const auto out = std::ios_base::out;
  EXPECT_EQ(buffer.pubseekoff(0, std::ios_base::cur, std::ios_base::in), std::streampos(-1));
  EXPECT_EQ(buffer.pubseekoff(-2, std::ios_base::cur, out), std::streampos(4));
  EXPECT_EQ(buffer.pubseekoff(1, std::ios_base::end, out), std::streampos(-1));
  EXPECT_EQ(buffer.pubseekoff(-1, std::ios_base::beg, out), std::streampos(-1));
  EXPECT_EQ(buffer.pubseekpos(9, out), std::streampos(-1));
  std::ostream(&buffer) << "XY";
  EXPECT_EQ(std::string(area, 6), "abcdXY");
}

}  // namespace
