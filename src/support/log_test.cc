#include "support/log.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iomanip>
#include <locale>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/omembuf.h"
#include "support/thread.h"

namespace {

constexpr size_t kHeader = 45;
constexpr size_t kMaxText = 65104;

std::string ReadAll(FILE* file) {
  fflush(file);
  rewind(file);
  std::string text;
  char chunk[4096];
  size_t got;
  while ((got = fread(chunk, 1, sizeof chunk, file)) > 0) text.append(chunk, got);
  return text;
}

std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
    lines.push_back(text.substr(start, end - start));
  }
  EXPECT_EQ(start, text.size()) << "text after the last line feed";
  return lines;
}

std::string HexThreadColumn(int thread_id) {
  char column[8];
  snprintf(column, sizeof column, "%06x", static_cast<unsigned>(thread_id) & 0xFFFFFF);
  return column;
}

// Points the log at a temporary file and restores the settings afterwards.
class LogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    saved_file_ = LogGetFile();
    saved_level_ = LogGetLevel();
    saved_modules_ = LogGetModules();
    StartNewFile();
    LogSetup(4, kLogModuleOther);
  }
  void TearDown() override {
    LogSetFile(saved_file_);
    LogSetup(saved_level_, saved_modules_);
    if (file_ != nullptr) fclose(file_);
  }
  void StartNewFile() {
    if (file_ != nullptr) fclose(file_);
    file_ = tmpfile();
    ASSERT_NE(file_, nullptr);
    LogSetFile(file_);
  }
  std::string Contents() { return ReadAll(file_); }
  // The texts of the lines, without header and line feed.
  std::vector<std::string> Texts() {
    std::vector<std::string> texts;
    for (const std::string& line : SplitLines(Contents())) {
      texts.push_back(line.size() >= kHeader ? line.substr(kHeader) : "SHORT:" + line);
    }
    return texts;
  }

  FILE* file_ = nullptr;

 private:
  FILE* saved_file_ = nullptr;
  uint32_t saved_level_ = 0;
  uint32_t saved_modules_ = 0;
};

// A fresh thread has no cached date, so the zone set here is the one used.
TEST_F(LogTest, HeaderLayoutThreaded) {
  const char* old_zone = getenv("TZ");
  const std::string saved_zone = old_zone != nullptr ? old_zone : "";
  setenv("TZ", "XST-5:30", 1);
  tzset();
  std::string before;
  std::string after;
  int thread_id = 0;
  auto now = [] {
    const auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(
                            std::chrono::system_clock::now().time_since_epoch()).count();
    const time_t seconds = static_cast<time_t>(millis / 1000);
    tm local{};
    localtime_r(&seconds, &local);
    char text[64];
    snprintf(text, sizeof text, "%02d/%02d/%04d %02d:%02d:%02d.%03d", local.tm_mday,
             local.tm_mon + 1, local.tm_year + 1900, local.tm_hour, local.tm_min,
             local.tm_sec, static_cast<int>(millis % 1000));
    return std::string(text);
  };
  std::thread([&] {
    thread_id = CurrentThreadId();
    for (int attempt = 0; attempt < 5; ++attempt) {
      before = now();
      LogLine line(3, kLogModuleOther);
      line << "abc";
      after = now();
      if (before == after) break;
      line.Rewind();  // straddled a millisecond: drop the line and retry
    }
  }).join();
  if (old_zone != nullptr) setenv("TZ", saved_zone.c_str(), 1); else unsetenv("TZ");
  tzset();
  ASSERT_EQ(before, after);
  EXPECT_EQ(Contents(), before + " |3| " + HexThreadColumn(thread_id) + "|   OTHER| abc\n");
}

TEST_F(LogTest, LevelAndModuleColumns) {
  LogSetup(9, kLogModuleOther | 0x2);
  { LogLine(9, 0x2) << "storage"; }
  { LogLine(0, 0) << "none"; }
  { LogLine(0, 0x1) << "unknown"; }
  const std::vector<std::string> lines = SplitLines(Contents());
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0].substr(23), " |9| " + HexThreadColumn(CurrentThreadId()) +
                                     "| STORAGE| storage");
  EXPECT_EQ(lines[1].substr(23, 5), " |0| ");
  EXPECT_EQ(lines[1].substr(34), "|    NONE| none");
  EXPECT_EQ(lines[2].substr(34), "| UNKNOWN| unknown");

  EXPECT_STREQ(LogModuleLabel(kLogModuleOther | 0x2), "UNKNOWN");
  EXPECT_STREQ(LogModuleLabel(0x1000), "REGDBST");
  EXPECT_STREQ(LogModuleLabel(0x80000000), " QV_PHP");
  std::set<std::string> labels;
  for (int bit = 1; bit < 32; ++bit) {
    const std::string label = LogModuleLabel(uint32_t{1} << bit);
    EXPECT_EQ(label.size(), 7u) << bit;
    labels.insert(label);
  }
  EXPECT_EQ(labels.size(), 31u);
  EXPECT_EQ(labels.count("UNKNOWN"), 0u);
}

TEST(LogSettingsTest, LogEnabledFilter) {
  const uint32_t level = LogGetLevel();
  const uint32_t modules = LogGetModules();
  LogSetup(4, kLogModuleOther);
  EXPECT_FALSE(LogEnabled(5, kLogModuleOther));
  EXPECT_FALSE(LogEnabled(1, 0x2));
  EXPECT_FALSE(LogEnabled(1, 0));
  EXPECT_TRUE(LogEnabled(0, 0x2));
  EXPECT_TRUE(LogEnabled(4, kLogModuleOther));
  EXPECT_TRUE(LogEnabled(1, kLogModuleOther | 0x2));
  LogSetup(0, 0xFFFFFFFF);
  EXPECT_FALSE(LogEnabled(1, kLogModuleOther));
  LogSetup(level, modules);
}

TEST_F(LogTest, LevelZeroPassesAnySettingsToStdout) {
  LogSetup(0, 0);
  LogSetFile(nullptr);
  FILE* capture = tmpfile();
  ASSERT_NE(capture, nullptr);
  fflush(stdout);
  const int saved_stdout = dup(STDOUT_FILENO);
  ASSERT_GE(saved_stdout, 0);
  ASSERT_GE(dup2(fileno(capture), STDOUT_FILENO), 0);
  {
    LogLine line(1, kLogModuleOther);
    EXPECT_TRUE(line.inert());
    line << "filtered";
  }
  { LogLine(0, kLogModuleOther) << "to stdout"; }
  fflush(stdout);
  dup2(saved_stdout, STDOUT_FILENO);
  close(saved_stdout);

  const std::string text = ReadAll(capture);
  fclose(capture);
  ASSERT_EQ(text.size(), kHeader + 10);
  EXPECT_EQ(text.substr(23), " |0| " + HexThreadColumn(CurrentThreadId()) +
                                 "|   OTHER| to stdout\n");
  EXPECT_EQ(Contents(), "");
}

TEST_F(LogTest, LineFeedsEmptyLinesAndRewind) {
  { LogLine(1, kLogModuleOther) << "abc"; }
  { LogLine(1, kLogModuleOther) << "abc\n"; }
  { LogLine(1, kLogModuleOther) << "two\n\n"; }
  { LogLine line(1, kLogModuleOther); }
  { LogLine(1, kLogModuleOther) << ""; }
  {
    LogLine line(1, kLogModuleOther);
    line << "dropped";
    line.Rewind();
  }
  {
    LogLine line(2, kLogModuleOther);
    line << "first attempt";
    line.Rewind();
    line << "second";
  }
  const std::string text = Contents();
  ASSERT_EQ(text.size(), 4 * kHeader + 4 + 4 + 5 + 7);
  EXPECT_EQ(text.substr(kHeader, 4), "abc\n");
  EXPECT_EQ(text.substr(2 * kHeader + 4, 4), "abc\n");
  EXPECT_EQ(text.substr(3 * kHeader + 8, 5), "two\n\n");
  EXPECT_EQ(text.substr(3 * kHeader + 13 + 23, 3), " |2");  // header kept by Rewind
  EXPECT_EQ(text.substr(4 * kHeader + 13), "second\n");
}

TEST_F(LogTest, TextIsCutAtTheLimit) {
  { LogLine(1, kLogModuleOther) << std::string(kMaxText, 'a').c_str(); }
  {
    LogLine line(1, kLogModuleOther);
    line << std::string(kMaxText - 1, 'b').c_str();
    line << "cd";  // only "c" fits; "d" and later text are lost
    line << "more";
  }
  {
    LogLine line(1, kLogModuleOther);
    line << "ab";
    EXPECT_TRUE(line.Format("%d-%s", 5, "x"));
    EXPECT_TRUE(line.Format("%04x", 255u));
  }
  {
    LogLine line(1, kLogModuleOther);
    line << "start ";
    EXPECT_TRUE(line.Format("%s", std::string(70000, 'c').c_str()));
    EXPECT_TRUE(line.Format("%s", "after"));
  }
  EXPECT_EQ(Texts(), (std::vector<std::string>{std::string(kMaxText, 'a'),
                                               std::string(kMaxText - 1, 'b') + "c",
                                               "ab5-x00ff",
                                               "start " + std::string(kMaxText - 6, 'c')}));
}

// Groups thousands with a comma, to show a locale left behind by a line.
struct CommaGrouping : std::numpunct<char> {
  char do_thousands_sep() const override { return ','; }
  std::string do_grouping() const override { return "\3"; }
};

TEST_F(LogTest, FormatStateDoesNotLeakToNextLine) {
  {
    LogLine line(1, kLogModuleOther);
    line.stream().imbue(std::locale(std::locale::classic(), new CommaGrouping));
    line.stream() << std::hex << std::showbase << std::uppercase << std::setfill('*')
                  << std::setprecision(2) << std::left << 1234567 << ' ' << 3.14159
                  << std::setw(12);
  }
  { LogLine(1, kLogModuleOther).stream() << 1234567 << ' ' << 3.14159 << ' ' << std::setw(4) << 7; }
  EXPECT_EQ(Texts(), (std::vector<std::string>{"0X12D,687 3.1", "1234567 3.14159    7"}));
}

TEST_F(LogTest, NullTextErrorCodesAndInertLines) {
  const boost::system::error_code code(13, boost::system::system_category());
  { LogLine(1, kLogModuleOther) << "a " << static_cast<const char*>(nullptr) << " b " << code; }
  {
    LogLine too_detailed(5, kLogModuleOther);
    EXPECT_TRUE(too_detailed.inert());
    too_detailed << "x" << code;
    EXPECT_TRUE(too_detailed.Format("%s", "y"));
    LogLine other_module(1, 0x2);
    EXPECT_TRUE(other_module.inert());
    other_module << "z";
    EXPECT_FALSE(LogLine(0, 0).inert());
  }
  EXPECT_EQ(Texts(), std::vector<std::string>{"a (null) b (EACCES) " + code.message()});
}

std::string ErrorText(int value, const boost::system::error_category& category) {
  std::ostringstream stream;
  stream << std::hex << std::setw(30);  // must not change the numbers
  WriteErrorCode(stream, boost::system::error_code(value, category));
  return stream.str();
}

// The name table against libc's own names of the same numbers.
TEST(LogErrorCodeTest, NamesNumbersAndCategories) {
  const auto& system = boost::system::system_category();
  EXPECT_EQ(ErrorText(2, system), "(ENOENT) No such file or directory");
  for (int value : {0, 41, 58, 134, -1}) {
    EXPECT_EQ(ErrorText(value, system), "(" + std::to_string(value) + ") " + system.message(value));
  }
  for (int value = 1; value <= 133; ++value) {
    if (value == 41 || value == 58) continue;
    const char* name = strerrorname_np(value);
    ASSERT_NE(name, nullptr) << value;
    EXPECT_EQ(ErrorText(value, system), "(" + std::string(name) + ") " + system.message(value));
  }
  const auto& generic = boost::system::generic_category();
  EXPECT_EQ(ErrorText(2, generic), "(generic:2) " + generic.message(2));
}

TEST_F(LogTest, LogLockHoldsBackLinesThreaded) {
  std::atomic<bool> line_ended{false};
  LogLock();
  std::thread writer([&] {
    { LogLine(1, kLogModuleOther) << "waited"; }
    line_ended = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_FALSE(line_ended.load());
  LogUnlock();
  writer.join();
  EXPECT_EQ(Texts(), std::vector<std::string>{"waited"});
}

// Objects handed on through the pool are reset like cached ones.
TEST_F(LogTest, PooledObjectIsResetThreaded) {
  {
    LogLine outer(1, kLogModuleOther);
    { LogLine(1, kLogModuleOther).stream() << std::hex << std::setfill('#') << 255; }
    outer.stream() << std::hex << 254;
  }
  // The inner object now sits in the pool; another thread takes it from there.
  std::thread([] { LogLine(1, kLogModuleOther).stream() << std::setw(4) << 255; }).join();
  EXPECT_EQ(Texts(), (std::vector<std::string>{"ff", "fe", " 255"}));
}

TEST_F(LogTest, ConcurrentLinesStayWhole) {
  constexpr int kThreads = 6;
  constexpr int kLinesPerThread = 400;
  std::vector<int> thread_ids(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &thread_ids] {
      thread_ids[t] = CurrentThreadId();
      const std::string filler(200 + 50 * t, static_cast<char>('a' + t));
      for (int n = 0; n < kLinesPerThread; ++n) {
        // Two lines open at once send objects through the pool.
        LogLine outer(1, kLogModuleOther);
        outer << "t" << std::to_string(t).c_str() << " n" << std::to_string(n).c_str();
        if (n % 2 == 0) { LogLine(1, kLogModuleOther) << "t" << std::to_string(t).c_str() << " inner"; }
        outer.Format(" %s", filler.c_str());
      }
    });
  }
  for (auto& thread : threads) thread.join();

  const std::vector<std::string> lines = SplitLines(Contents());
  ASSERT_EQ(lines.size(), static_cast<size_t>(kThreads * kLinesPerThread * 3 / 2));
  std::vector<int> next_line(kThreads, 0);
  for (const std::string& line : lines) {
    ASSERT_GT(line.size(), kHeader);
    ASSERT_EQ(line.substr(23, 5), " |1| ");
    ASSERT_EQ(line.substr(34, 11), "|   OTHER| ");
    const std::string text = line.substr(kHeader);
    const int t = text[1] - '0';
    ASSERT_TRUE(text[0] == 't' && t >= 0 && t < kThreads) << text;
    EXPECT_EQ(line.substr(28, 6), HexThreadColumn(thread_ids[t]));
    if (text.substr(2) == " inner") continue;
    const std::string filler(200 + 50 * t, static_cast<char>('a' + t));
    EXPECT_EQ(text, "t" + std::to_string(t) + " n" + std::to_string(next_line[t]++) + " " + filler);
  }
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(next_line[t], kLinesPerThread);
}

// A line logged by an exit handler that runs after the log's own teardown.
std::atomic<bool> log_at_exit{false};
void LogLateLine() {
  if (log_at_exit) LogLine(0, kLogModuleOther) << "late line";
}
// Registered before any static object exists, so it runs after their
// destructors, the pool's teardown included.
__attribute__((constructor(101))) void RegisterLateLine() { atexit(LogLateLine); }

TEST(LogDeathTest, LineAfterTeardownAtExit) {
  EXPECT_EXIT(
      {
        LogSetFile(stderr);
        LogSetup(1, kLogModuleOther);
        {
          // Two lines open at once leave one object cached, one pooled.
          LogLine outer(1, kLogModuleOther);
          { LogLine(1, kLogModuleOther) << "inner"; }
          outer << "outer";
        }
        log_at_exit = true;
        exit(0);
      },
      ::testing::ExitedWithCode(0), "inner\n.*outer\n.*late line\n$");
}

// The stream buffer itself: seeking stays inside the area.
TEST(OmembufTest, SeekingAndFullArea) {
  char area[8];
  basic_omembuf<char> buffer;
  buffer.pubsetbuf(area, sizeof area);
  std::ostream stream(&buffer);
  stream << "abcdef";
  const auto out = std::ios_base::out;
  EXPECT_EQ(buffer.pubseekoff(0, std::ios_base::cur, std::ios_base::in), std::streampos(-1));
  EXPECT_EQ(buffer.pubseekoff(-2, std::ios_base::cur, out), std::streampos(4));
  EXPECT_EQ(buffer.pubseekoff(1, std::ios_base::end, out), std::streampos(-1));
  EXPECT_EQ(buffer.pubseekoff(-1, std::ios_base::beg, out), std::streampos(-1));
  EXPECT_EQ(buffer.pubseekpos(9, out), std::streampos(-1));
  EXPECT_EQ(stream.tellp(), std::streampos(4));  // failed seeks moved nothing
  stream << "XYZW";
  EXPECT_TRUE(stream.good());
  stream << "!";
  EXPECT_TRUE(stream.bad());
  EXPECT_EQ(std::string(area, 8), "abcdXYZW");
}

}  // namespace
