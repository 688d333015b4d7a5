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
#include <map>
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

// Points the log at a temporary file and restores the settings afterwards.
class LogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    saved_file_ = LogGetFile();
    saved_level_ = LogGetLevel();
    saved_modules_ = LogGetModules();
    file_ = tmpfile();
    ASSERT_NE(file_, nullptr);
    LogSetFile(file_);
    LogSetup(4, kLogModuleOther);
  }
  void TearDown() override {
    LogSetFile(saved_file_);
    LogSetup(saved_level_, saved_modules_);
    if (file_ != nullptr) fclose(file_);
  }

  std::string Contents() { return ReadAll(file_); }

  void StartNewFile() {
    fclose(file_);
    file_ = tmpfile();
    ASSERT_NE(file_, nullptr);
    LogSetFile(file_);
  }

  static std::string ReadAll(FILE* file) {
    fflush(file);
    rewind(file);
    std::string text;
    char chunk[4096];
    size_t got;
    while ((got = fread(chunk, 1, sizeof chunk, file)) > 0) text.append(chunk, got);
    return text;
  }

  static std::vector<std::string> SplitLines(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
      lines.push_back(text.substr(start, end - start));
    }
    EXPECT_EQ(start, text.size()) << "text after the last line feed";
    return lines;
  }

  // Text of the only line in the file, without header and line feed.
  std::string OnlyText() {
    const std::vector<std::string> lines = SplitLines(Contents());
    if (lines.size() != 1) {
      ADD_FAILURE() << lines.size() << " lines";
      return "";
    }
    return lines[0].substr(kHeader);
  }

  FILE* file_ = nullptr;

 private:
  FILE* saved_file_ = nullptr;
  uint32_t saved_level_ = 0;
  uint32_t saved_modules_ = 0;
};

std::string HexThreadColumn(int thread_id) {
  char column[8];
  snprintf(column, sizeof column, "%06x", static_cast<unsigned>(thread_id) & 0xFFFFFF);
  return column;
}

// "dd/mm/yyyy HH:MM:SS.mmm" in local time.
std::string FormatTime(std::chrono::system_clock::time_point when) {
  const auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(
                          when.time_since_epoch()).count();
  const time_t seconds = static_cast<time_t>(millis / 1000);
  tm local{};
  localtime_r(&seconds, &local);
  char text[128];
  snprintf(text, sizeof text, "%02d/%02d/%04d %02d:%02d:%02d.%03d", local.tm_mday,
           local.tm_mon + 1, local.tm_year + 1900, local.tm_hour, local.tm_min,
           local.tm_sec, static_cast<int>(millis % 1000));
  return text;
}

class ScopedTimeZone {
 public:
  explicit ScopedTimeZone(const char* zone) {
    const char* old = getenv("TZ");
    had_zone_ = old != nullptr;
    if (had_zone_) old_zone_ = old;
    setenv("TZ", zone, 1);
    tzset();
  }
  ~ScopedTimeZone() {
    if (had_zone_) {
      setenv("TZ", old_zone_.c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }

 private:
  bool had_zone_ = false;
  std::string old_zone_;
};

// A fresh thread has no cached date, so the zone set here is the one used.
TEST_F(LogTest, HeaderLayoutThreaded) {
  ScopedTimeZone zone("XST-5:30");
  std::string before;
  std::string after;
  int thread_id = 0;
  std::thread([&] {
    thread_id = CurrentThreadId();
    for (int attempt = 0; attempt < 5; ++attempt) {
      before = FormatTime(std::chrono::system_clock::now());
      LogLine line(3, kLogModuleOther);
      line << "abc";
      after = FormatTime(std::chrono::system_clock::now());
      if (before == after) break;
      line.Rewind();  // straddled a millisecond: drop the line and retry
    }
  }).join();
  ASSERT_EQ(before, after);

  const std::string expected =
      before + " |3| " + HexThreadColumn(thread_id) + "|   OTHER| abc\n";
  const std::string text = Contents();
  EXPECT_EQ(text.size(), 49u);
  EXPECT_EQ(text, expected);
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
  EXPECT_EQ(lines[1].substr(23, 2 + 3), " |0| ");
  EXPECT_EQ(lines[1].substr(34), "|    NONE| none");
  EXPECT_EQ(lines[2].substr(34), "| UNKNOWN| unknown");
}

TEST_F(LogTest, LevelZeroPassesAnySettingsToStdout) {
  LogSetup(0, 0);
  LogSetFile(nullptr);
  EXPECT_EQ(LogGetFile(), nullptr);
  EXPECT_TRUE(LogEnabled(0, 0));
  EXPECT_FALSE(LogEnabled(1, kLogModuleOther));

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

TEST_F(LogTest, LineFeedAddedOnlyWhenMissing) {
  { LogLine(1, kLogModuleOther) << "abc"; }
  EXPECT_EQ(Contents().size(), 49u);
  { LogLine(1, kLogModuleOther) << "abc\n"; }
  { LogLine(1, kLogModuleOther) << "two\n\n"; }
  const std::string text = Contents();
  EXPECT_EQ(text.size(), 49u + 49u + 50u);
  EXPECT_EQ(text.substr(49 + kHeader, 4), "abc\n");
  EXPECT_EQ(text.substr(98 + kHeader), "two\n\n");
}

TEST_F(LogTest, LineWithoutTextWritesNothing) {
  { LogLine line(1, kLogModuleOther); }
  { LogLine(1, kLogModuleOther) << ""; }
  {
    LogLine line(1, kLogModuleOther);
    line << "dropped";
    line.Rewind();
  }
  EXPECT_EQ(Contents(), "");
  { LogLine(1, kLogModuleOther) << "x"; }  // the thread still logs afterwards
  EXPECT_EQ(Contents().size(), kHeader + 2);
}

TEST_F(LogTest, TextIsCutAtTheLimit) {
  { LogLine(1, kLogModuleOther) << std::string(kMaxText, 'a').c_str(); }
  std::string text = Contents();
  ASSERT_EQ(text.size(), kHeader + kMaxText + 1);
  EXPECT_EQ(text.substr(kHeader), std::string(kMaxText, 'a') + "\n");

  StartNewFile();
  {
    LogLine line(1, kLogModuleOther);
    line << std::string(kMaxText - 1, 'b').c_str();
    line << "cd";  // only "c" fits; "d" and later text are lost
    line << "more";
  }
  { LogLine(1, kLogModuleOther) << "next"; }  // a full line doesn't spoil the next
  const std::vector<std::string> lines = SplitLines(Contents());
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].substr(kHeader), std::string(kMaxText - 1, 'b') + "c");
  EXPECT_EQ(lines[1].substr(kHeader), "next");
}

TEST_F(LogTest, FormatAppendsAndCuts) {
  {
    LogLine line(1, kLogModuleOther);
    line << "ab";
    EXPECT_TRUE(line.Format("%d-%s", 5, "x"));
    line << "|";
    EXPECT_TRUE(line.Format("%s", ""));
    EXPECT_TRUE(line.Format("%04x", 255u));
  }
  EXPECT_EQ(OnlyText(), "ab5-x|00ff");

  StartNewFile();
  const std::string big(70000, 'c');
  {
    LogLine line(1, kLogModuleOther);
    line << "start ";
    EXPECT_TRUE(line.Format("%s", big.c_str()));
    EXPECT_TRUE(line.Format("%s", "after"));
  }
  EXPECT_EQ(OnlyText(), "start " + std::string(kMaxText - 6, 'c'));
}

TEST_F(LogTest, RewindKeepsHeader) {
  {
    LogLine line(2, kLogModuleOther);
    line << "first attempt";
    line.Rewind();
    line << "second";
  }
  const std::string text = Contents();
  ASSERT_EQ(text.size(), kHeader + 7);
  EXPECT_EQ(text.substr(23, 3), " |2");
  EXPECT_EQ(text.substr(kHeader), "second\n");
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
  {
    LogLine line(1, kLogModuleOther);
    line.stream() << 1234567 << ' ' << 3.14159 << ' ' << std::setw(4) << 7;
  }
  const std::vector<std::string> lines = SplitLines(Contents());
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].substr(kHeader), "0X12D,687 3.1");
  EXPECT_EQ(lines[1].substr(kHeader), "1234567 3.14159    7");
}

TEST_F(LogTest, NullTextAndInertLines) {
  { LogLine(1, kLogModuleOther) << "a " << static_cast<const char*>(nullptr) << " b"; }
  EXPECT_EQ(OnlyText(), "a (null) b");

  StartNewFile();
  {
    LogLine too_detailed(5, kLogModuleOther);
    EXPECT_TRUE(too_detailed.inert());
    too_detailed << "x" << boost::system::error_code(2, boost::system::system_category());
    EXPECT_TRUE(too_detailed.Format("%s", "y"));
    too_detailed.Rewind();
    LogLine other_module(1, 0x2);
    EXPECT_TRUE(other_module.inert());
    other_module << "z";
    LogLine level_zero(0, 0);
    EXPECT_FALSE(level_zero.inert());
  }
  EXPECT_EQ(Contents(), "");
}

TEST(LogSettingsTest, LogEnabledFilter) {
  const uint32_t level = LogGetLevel();
  const uint32_t modules = LogGetModules();
  LogSetup(4, kLogModuleOther);
  EXPECT_EQ(LogGetLevel(), 4u);
  EXPECT_EQ(LogGetModules(), kLogModuleOther);
  EXPECT_FALSE(LogEnabled(5, kLogModuleOther));
  EXPECT_FALSE(LogEnabled(1, 0x00000002));
  EXPECT_FALSE(LogEnabled(1, 0));
  EXPECT_TRUE(LogEnabled(0, 0));
  EXPECT_TRUE(LogEnabled(0, 0x2));
  EXPECT_TRUE(LogEnabled(4, kLogModuleOther));
  EXPECT_TRUE(LogEnabled(1, kLogModuleOther | 0x2));
  LogSetup(0, 0xFFFFFFFF);
  EXPECT_FALSE(LogEnabled(1, kLogModuleOther));
  EXPECT_TRUE(LogEnabled(0, kLogModuleOther));
  LogSetup(level, modules);
}

TEST(LogSettingsTest, ModuleLabels) {
  EXPECT_STREQ(LogModuleLabel(0), "   NONE");
  EXPECT_STREQ(LogModuleLabel(1), "UNKNOWN");
  EXPECT_STREQ(LogModuleLabel(kLogModuleOther | 0x2), "UNKNOWN");
  EXPECT_STREQ(LogModuleLabel(0x2), "STORAGE");
  EXPECT_STREQ(LogModuleLabel(0x1000), "REGDBST");
  EXPECT_STREQ(LogModuleLabel(0x10000), "    VAD");
  EXPECT_STREQ(LogModuleLabel(kLogModuleOther), "  OTHER");
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

std::string ErrorText(int value, const boost::system::error_category& category) {
  std::ostringstream stream;
  stream << std::hex << std::setw(30);  // must not change the numbers
  WriteErrorCode(stream, boost::system::error_code(value, category));
  return stream.str();
}

TEST(LogErrorCodeTest, SystemCodesByName) {
  const auto& system = boost::system::system_category();
  EXPECT_EQ(ErrorText(2, system), "(ENOENT) " + system.message(2));
  EXPECT_EQ(ErrorText(2, system), "(ENOENT) No such file or directory");
  EXPECT_EQ(ErrorText(41, system), "(41) " + system.message(41));
  EXPECT_EQ(ErrorText(58, system), "(58) " + system.message(58));
  EXPECT_EQ(ErrorText(0, system), "(0) " + system.message(0));
  EXPECT_EQ(ErrorText(134, system), "(134) " + system.message(134));
  EXPECT_EQ(ErrorText(150, system), "(150) " + system.message(150));
  EXPECT_EQ(ErrorText(-1, system), "(-1) " + system.message(-1));
}

// The table against libc's own names of the same numbers.
TEST(LogErrorCodeTest, NameTableMatchesLibc) {
  const auto& system = boost::system::system_category();
  int named = 0;
  for (int value = 1; value <= 133; ++value) {
    const std::string text = ErrorText(value, system);
    if (value == 41 || value == 58) {
      EXPECT_EQ(text.substr(0, 5), "(" + std::to_string(value) + ") ");
      continue;
    }
    const char* name = strerrorname_np(value);
    ASSERT_NE(name, nullptr) << value;
    EXPECT_EQ(text, "(" + std::string(name) + ") " + system.message(value));
    ++named;
  }
  EXPECT_EQ(named, 131);
}

TEST(LogErrorCodeTest, OtherCategoriesByNameAndValue) {
  const auto& generic = boost::system::generic_category();
  EXPECT_EQ(ErrorText(2, generic), "(generic:2) " + generic.message(2));
  EXPECT_EQ(ErrorText(0, generic), "(generic:0) " + generic.message(0));
}

TEST_F(LogTest, ErrorCodeInsertion) {
  const boost::system::error_code code(13, boost::system::system_category());
  { LogLine(1, kLogModuleOther) << "open: " << code; }
  EXPECT_EQ(OnlyText(), "open: (EACCES) " + code.message());
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
  EXPECT_TRUE(line_ended.load());
  EXPECT_EQ(OnlyText(), "waited");
}

// Objects handed on through the pool are reset like cached ones.
TEST_F(LogTest, PooledObjectIsResetThreaded) {
  {
    LogLine outer(1, kLogModuleOther);
    {
      LogLine inner(1, kLogModuleOther);
      inner.stream() << std::hex << std::setfill('#') << 255;
    }
    outer.stream() << std::hex << std::setfill('#') << 254;
  }
  // The inner object now sits in the pool; other threads take it from there.
  for (int i = 0; i < 3; ++i) {
    std::thread([] {
      LogLine line(1, kLogModuleOther);
      line.stream() << std::setw(4) << 255;
    }).join();
  }
  const std::vector<std::string> lines = SplitLines(Contents());
  ASSERT_EQ(lines.size(), 5u);
  EXPECT_EQ(lines[0].substr(kHeader), "ff");
  EXPECT_EQ(lines[1].substr(kHeader), "fe");
  for (size_t i = 2; i < 5; ++i) EXPECT_EQ(lines[i].substr(kHeader), " 255");
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
        if (n % 3 == 0) {
          LogLine line(1, kLogModuleOther);
          line.Format("t%d n%d %s", t, n, filler.c_str());
        } else {
          // Two lines open at once send objects through the pool.
          LogLine outer(1, kLogModuleOther);
          outer << "t" << std::to_string(t).c_str() << " n" << std::to_string(n).c_str();
          {
            LogLine inner(1, kLogModuleOther);
            inner << "t" << std::to_string(t).c_str() << " inner";
          }
          outer << " " << filler.c_str();
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();

  const std::vector<std::string> lines = SplitLines(Contents());
  const int inner_lines = kLinesPerThread - (kLinesPerThread + 2) / 3;
  ASSERT_EQ(lines.size(), static_cast<size_t>(kThreads * (kLinesPerThread + inner_lines)));
  std::map<std::string, int> thread_of_column;
  std::vector<int> next_line(kThreads, 0);
  for (const std::string& line : lines) {
    ASSERT_GT(line.size(), kHeader);
    ASSERT_EQ(line.substr(23, 5), " |1| ");
    ASSERT_EQ(line.substr(34, 11), "|   OTHER| ");
    const std::string text = line.substr(kHeader);
    ASSERT_EQ(text[0], 't');
    const int t = text[1] - '0';
    ASSERT_TRUE(t >= 0 && t < kThreads) << text;
    EXPECT_EQ(line.substr(28, 6), HexThreadColumn(thread_ids[t]));
    thread_of_column.emplace(line.substr(28, 6), t);
    if (text.substr(2) == " inner") continue;
    const int n = next_line[t]++;
    const std::string filler(200 + 50 * t, static_cast<char>('a' + t));
    EXPECT_EQ(text, "t" + std::to_string(t) + " n" + std::to_string(n) + " " + filler);
  }
  EXPECT_EQ(thread_of_column.size(), static_cast<size_t>(kThreads));
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
  EXPECT_EQ(stream.tellp(), std::streampos(6));
  EXPECT_EQ(buffer.pubseekoff(0, std::ios_base::cur, std::ios_base::in),
            std::streampos(-1));
  EXPECT_EQ(buffer.pubseekoff(-2, std::ios_base::cur, std::ios_base::out),
            std::streampos(4));
  EXPECT_EQ(buffer.pubseekoff(1, std::ios_base::end, std::ios_base::out),
            std::streampos(-1));
  EXPECT_EQ(buffer.pubseekoff(-1, std::ios_base::beg, std::ios_base::out),
            std::streampos(-1));
  EXPECT_EQ(buffer.pubseekpos(9, std::ios_base::out), std::streampos(-1));
  EXPECT_EQ(stream.tellp(), std::streampos(4));  // failed seeks moved nothing
  stream << "XYZW";
  EXPECT_TRUE(stream.good());
  stream << "!";
  EXPECT_TRUE(stream.bad());
  EXPECT_EQ(std::string(area, 8), "abcdXYZW");
  EXPECT_EQ(buffer.pubseekoff(-8, std::ios_base::end, std::ios_base::out),
            std::streampos(0));
}

}  // namespace
