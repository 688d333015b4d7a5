#include "transfer/progress.h"

#include <chrono>
#include <sstream>
#include <utility>

namespace {

constexpr int64_t kPaintInterval = 100000000;  // ns
constexpr uint64_t kSecond = 1000000000;       // ns
constexpr uint64_t kDay = 86400;               // s
constexpr char kBlanks[] = "                                                                ";
constexpr size_t kBlankCount = sizeof(kBlanks) - 1;

// Nanoseconds as whole seconds, rounded up.
void PrintSeconds(std::ostream& stream, uint64_t nanoseconds) {
  uint64_t seconds = (nanoseconds + kSecond - 1) / kSecond;
  PrintDuration(stream, false, seconds / kDay, seconds % kDay * kSecond);
}

}  // namespace

void PrintCount(uint64_t amount, std::ostream& stream) { stream << amount; }

void PrintByteSize(uint64_t amount, std::ostream& stream) {
  if (amount < 10240) {
    stream << amount << "B";
  } else if (amount < 10485760) {
    stream << (amount >> 10) << "KiB";
  } else {
    stream << (amount >> 20) << "MiB";
  }
}

void PrintDuration(std::ostream& stream, bool negative, uint64_t days, uint64_t nanoseconds) {
  if (days != 0) {
    if (negative) stream << '-';
    stream << days << 'd';
  } else if (nanoseconds == 0) {
    stream << "0ns";
    return;
  } else if (negative) {
    stream << '-';
  }
  uint64_t s = nanoseconds / kSecond;
  uint64_t r = nanoseconds % kSecond;
  if (s > 3599) stream << s / 3600 << 'h';
  if (s % 3600 > 59) stream << s % 3600 / 60 << 'm';
  if (s % 60 != 0) stream << s % 60 << 's';
  if (r > 999999) stream << r / 1000000 << "ms";
  if (r % 1000000 > 999) stream << r % 1000000 / 1000 << "us";
  if (r % 1000 != 0) stream << r % 1000 << "ns";
}

int64_t SteadyNanoseconds() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

ProgressReport::ProgressReport(Environment* env, std::string title, AmountPrinter print_amount,
                               uint64_t total, Clock clock)
    : total(total), env_(env), title_(std::move(title)), print_amount_(print_amount), clock_(clock) {}

void ProgressReport::Start() {
  if (!env_->progress) return;
  start_time_ = clock_();
  last_paint_ = start_time_ - kPaintInterval;
}

void ProgressReport::Advance(uint64_t amount) {
  if (!env_->progress) return;
  current_ += amount;
  int64_t now = clock_();
  if (now < last_paint_ + kPaintInterval) return;
  Paint(now);
}

void ProgressReport::Finish() {
  if (!env_->progress) return;
  last_paint_ = clock_() - kPaintInterval;
  Advance(0);
  *env_->error << '\n';
}

void ProgressReport::Paint(int64_t now) {
  last_paint_ = now;
  uint64_t elapsed = static_cast<uint64_t>(now - start_time_);
  std::ostringstream text;
  text << title_ << ": ";
  print_amount_(current_, text);
  if (total != 0) {
    text << '/';
    print_amount_(total, text);
    uint64_t permille = current_ * 1000 / total;
    text << " (" << permille / 10 << '.' << permille % 10 << "%)";
  }
  if (elapsed > 999999) {
    text << " speed: ";
    print_amount_(current_ * 1000 / (elapsed / 1000000), text);
    text << "/s";
  }
  if (total != 0) {
    // Divides by current_ unguarded: a paint with nothing done and a known
    // total ends the process on the arithmetic trap.
    uint64_t remaining = total * elapsed / current_ - elapsed;
    if (remaining != 0) {
      text << " ETA: ";
      PrintSeconds(text, remaining);
    }
  }
  text << " elapsed time: ";
  PrintSeconds(text, elapsed);

  std::ostream& out = *env_->error;
  out << '\r';
  uint64_t to_wipe = painted_length_;
  while (to_wipe > kBlankCount) {
    out.write(kBlanks, kBlankCount);
    to_wipe -= kBlankCount;
  }
  out.write(kBlanks, static_cast<std::streamsize>(to_wipe));
  out << '\r';
  std::string line = text.str();
  out << line;
  painted_length_ = line.size();
}
