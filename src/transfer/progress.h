// The --Progress line on the error stream: title, amount, share of the
// total, rate, ETA and elapsed time, repainted in place with carriage
// returns at most every 100 ms. Without --Progress every call is a flag
// test and nothing is written.
//
// Thread safety: a report belongs to the thread that calls it.
#ifndef HIVECTL_TRANSFER_PROGRESS_H_
#define HIVECTL_TRANSFER_PROGRESS_H_

#include <cstdint>
#include <ostream>
#include <string>

#include "frontend/environment.h"

// The unsigned decimal number.
void PrintCount(uint64_t amount, std::ostream& stream);
// "NB" below 10240, "NKiB" below 10485760, "NMiB" above.
void PrintByteSize(uint64_t amount, std::ostream& stream);
// Only the non-zero units, largest first, e.g. "1d1h", "1m30s", "0ns".
void PrintDuration(std::ostream& stream, bool negative, uint64_t days, uint64_t nanoseconds);

// Monotonic clock in nanoseconds.
int64_t SteadyNanoseconds();

class ProgressReport {
 public:
  using AmountPrinter = void (*)(uint64_t amount, std::ostream& stream);
  using Clock = int64_t (*)();

  ProgressReport(Environment* env, std::string title, AmountPrinter print_amount,
                 uint64_t total = 0, Clock clock = SteadyNanoseconds);

  void Start();
  // Adds to the amount done; paints if 100 ms passed since the last paint.
  // With a total above 0, a paint while nothing is done divides by zero:
  // callers advance by real work before the first paint can strike.
  void Advance(uint64_t amount);
  // Final paint and a line feed.
  void Finish();

  uint64_t total;  // 0: not known

 private:
  void Paint(int64_t now);

  uint64_t current_ = 0;
  int64_t start_time_ = 0;
  int64_t last_paint_ = 0;
  uint64_t painted_length_ = 0;
  // Constant after construction.
  Environment* const env_;
  const std::string title_;
  const AmountPrinter print_amount_;
  const Clock clock_;
};

#endif  // HIVECTL_TRANSFER_PROGRESS_H_
