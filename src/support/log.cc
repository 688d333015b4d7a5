#include "support/log.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <locale>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "support/omembuf.h"
#include "support/thread.h"

namespace {

// Header and text together; the two bytes behind them take the closing line
// feed and vsnprintf's terminator.
constexpr size_t kTextLimit = 65149;
constexpr size_t kHeaderSize = 45;
constexpr size_t kDateSize = 19;
constexpr uint32_t kLinePoolSlots = 32;

FILE* log_file = nullptr;
uint32_t log_modules = 0;
uint32_t log_level = 0;
std::mutex log_mutex;

}  // namespace

struct LogLineObject {
  LogLineObject();
  // Back to an empty put area and the format state of a new object.
  void Reset();
  size_t Position() {
    return static_cast<size_t>(buffer.pubseekoff(0, std::ios_base::cur, std::ios_base::out));
  }
  void SetPosition(size_t position) {
    buffer.pubseekpos(static_cast<std::streamoff>(position), std::ios_base::out);
  }

  basic_omembuf<char, std::char_traits<char>> buffer;
  std::ostream stream;
  std::ios_base::fmtflags saved_flags;
  std::streamsize saved_precision;
  std::streamsize saved_width;
  char saved_fill;
  char text[kTextLimit + 2];
};

LogLineObject::LogLineObject() : stream(&buffer) {
  stream.imbue(std::locale::classic());
  saved_flags = stream.flags();
  saved_precision = stream.precision();
  saved_width = stream.width();
  saved_fill = stream.fill();
  buffer.pubsetbuf(text, kTextLimit);
}

void LogLineObject::Reset() {
  buffer.pubsetbuf(text, kTextLimit);
  stream.clear();
  stream.imbue(std::locale::classic());
  stream.flags(saved_flags);
  stream.precision(saved_precision);
  stream.width(saved_width);
  stream.fill(saved_fill);
}

namespace {

// Free line objects shared by all threads. Slots are only ever exchanged, so
// no lock is needed; a slot found empty or taken simply gives the next try.
std::atomic<LogLineObject*> line_pool[kLinePoolSlots] = {};
// Set at process exit once the pool is emptied; later lines free their
// objects instead of pooling them.
std::atomic<bool> pool_closed{false};

uint32_t InitialPoolSize() {
  const uint32_t size = std::max(std::thread::hardware_concurrency(), 8u);
  return std::min(size, kLinePoolSlots);
}
// Zero until set: a line logged during static initialisation before then
// uses slot 0 only.
const uint32_t line_pool_size = InitialPoolSize();

struct PoolTeardown {
  ~PoolTeardown() {
    pool_closed.store(true, std::memory_order_release);
    for (auto& slot : line_pool) delete slot.exchange(nullptr, std::memory_order_acq_rel);
  }
} pool_teardown;

enum class ThreadState : uint8_t { kFresh, kRegistered, kEnded };

thread_local ThreadState thread_state = ThreadState::kFresh;
thread_local LogLineObject* cached_line = nullptr;
thread_local int64_t date_second = INT64_MIN;
thread_local char date_text[kDateSize];

struct ThreadCleanup {
  ~ThreadCleanup() {
    delete cached_line;
    cached_line = nullptr;
    thread_state = ThreadState::kEnded;
  }
};

void RegisterThreadCleanup() {
  // The runtime runs the destructor of this object when the thread ends.
  static thread_local ThreadCleanup cleanup;
  (void)cleanup;
  thread_state = ThreadState::kRegistered;
}

LogLineObject* TakeFromPool() {
  LogLineObject* object = line_pool[0].exchange(nullptr, std::memory_order_acq_rel);
  for (uint32_t slot = 1; object == nullptr && slot < line_pool_size; ++slot) {
    object = line_pool[slot].exchange(nullptr, std::memory_order_acq_rel);
  }
  return object;
}

LogLineObject* AcquireLineObject() {
  LogLineObject* object = cached_line;
  cached_line = nullptr;
  if (object == nullptr) object = TakeFromPool();
  if (object == nullptr) return new LogLineObject;
  object->Reset();
  return object;
}

// The object becomes the thread's cached one; a formerly cached object
// travels through the pool's slots, and what none of them takes is freed.
void RecycleLineObject(LogLineObject* object) {
  if (thread_state != ThreadState::kRegistered) {
    delete object;
    return;
  }
  LogLineObject* older = cached_line;
  cached_line = object;
  if (older == nullptr) return;
  if (!pool_closed.load(std::memory_order_acquire)) {
    older = line_pool[0].exchange(older, std::memory_order_acq_rel);
    for (uint32_t slot = 1; older != nullptr && slot < line_pool_size; ++slot) {
      older = line_pool[slot].exchange(older, std::memory_order_acq_rel);
    }
  }
  delete older;
}

constexpr std::array<char, 200> MakeDigitPairs() {
  std::array<char, 200> pairs{};
  for (int value = 0; value < 100; ++value) {
    pairs[2 * value] = static_cast<char>('0' + value / 10);
    pairs[2 * value + 1] = static_cast<char>('0' + value % 10);
  }
  return pairs;
}
constexpr std::array<char, 200> kDigitPairs = MakeDigitPairs();

inline void PutPair(char* out, int value) {
  std::memcpy(out, &kDigitPairs[2 * value], 2);
}

// "dd/mm/yyyy HH:MM:SS" of the local time.
void FormatDate(int64_t second, char* out) {
  const time_t time = static_cast<time_t>(second);
  tm local{};
  if (localtime_r(&time, &local) == nullptr) {
    std::memset(out, '?', kDateSize);
    return;
  }
  const int year = std::clamp(local.tm_year + 1900, 0, 9999);
  PutPair(out, local.tm_mday);
  out[2] = '/';
  PutPair(out + 3, local.tm_mon + 1);
  out[5] = '/';
  PutPair(out + 6, year / 100);
  PutPair(out + 8, year % 100);
  out[10] = ' ';
  PutPair(out + 11, local.tm_hour);
  out[13] = ':';
  PutPair(out + 14, local.tm_min);
  out[16] = ':';
  PutPair(out + 17, local.tm_sec % 100);
}

void WriteHeader(char* out, uint32_t level, uint32_t module) {
  constexpr int64_t kNanosPerSecond = 1000000000;
  const int64_t now = std::chrono::duration_cast<std::chrono::nanoseconds>(
                          std::chrono::system_clock::now().time_since_epoch())
                          .count();
  int64_t second = now / kNanosPerSecond;
  int64_t nanos = now % kNanosPerSecond;
  if (nanos < 0) {
    nanos += kNanosPerSecond;
    --second;
  }
  if (second != date_second) {
    FormatDate(second, date_text);
    date_second = second;
  }
  std::memcpy(out, date_text, kDateSize);
  const int millis = static_cast<int>(nanos / 1000000);
  out[19] = '.';
  out[20] = static_cast<char>('0' + millis / 100);
  PutPair(out + 21, millis % 100);
  out[23] = ' ';
  out[24] = '|';
  out[25] = static_cast<char>('0' + (level & 0xFF));
  out[26] = '|';
  out[27] = ' ';
  static constexpr char kHex[] = "0123456789abcdef";
  const uint32_t thread = static_cast<uint32_t>(CurrentThreadId()) & 0xFFFFFF;
  for (int i = 0; i < 6; ++i) out[28 + i] = kHex[(thread >> (20 - 4 * i)) & 0xF];
  out[34] = '|';
  out[35] = ' ';
  std::memcpy(out + 36, LogModuleLabel(module), 7);
  out[43] = '|';
  out[44] = ' ';
}

// Indexed by bit number; bit 0 has no module.
constexpr const char* kModuleLabels[32] = {
    "UNKNOWN", "STORAGE", " DBSTOR", "PRESENC", " LOGINS", "  MCONF", "   LOGS",
    "STREAMS", "CONFIGS", "   CONF", "CLUSTER", "   CHAT", "REGDBST", " FILETR",
    "   REGS", "   DIRS", "    VAD", "SRV_CFG", "RESOLVE", "LOG_SRV", "DSCNTRL",
    " VERIFY", "MULTIGW", "    SIP", " WEBRTC", "TRANSPR", "   H323", "TRANSCE",
    "  OTHER", "    NHP", "FAKECLI", " QV_PHP",
};

// Linux errno names by value; 41 and 58 have no constant of their own.
constexpr size_t kErrnoNameCount = 150;
constexpr const char* kErrnoNames[kErrnoNameCount] = {
    nullptr, "EPERM", "ENOENT", "ESRCH", "EINTR", "EIO", "ENXIO", "E2BIG",
    "ENOEXEC", "EBADF", "ECHILD", "EAGAIN", "ENOMEM", "EACCES", "EFAULT",
    "ENOTBLK", "EBUSY", "EEXIST", "EXDEV", "ENODEV", "ENOTDIR", "EISDIR",
    "EINVAL", "ENFILE", "EMFILE", "ENOTTY", "ETXTBSY", "EFBIG", "ENOSPC",
    "ESPIPE", "EROFS", "EMLINK", "EPIPE", "EDOM", "ERANGE", "EDEADLK",
    "ENAMETOOLONG", "ENOLCK", "ENOSYS", "ENOTEMPTY", "ELOOP", nullptr,
    "ENOMSG", "EIDRM", "ECHRNG", "EL2NSYNC", "EL3HLT", "EL3RST", "ELNRNG",
    "EUNATCH", "ENOCSI", "EL2HLT", "EBADE", "EBADR", "EXFULL", "ENOANO",
    "EBADRQC", "EBADSLT", nullptr, "EBFONT", "ENOSTR", "ENODATA", "ETIME",
    "ENOSR", "ENONET", "ENOPKG", "EREMOTE", "ENOLINK", "EADV", "ESRMNT",
    "ECOMM", "EPROTO", "EMULTIHOP", "EDOTDOT", "EBADMSG", "EOVERFLOW",
    "ENOTUNIQ", "EBADFD", "EREMCHG", "ELIBACC", "ELIBBAD", "ELIBSCN",
    "ELIBMAX", "ELIBEXEC", "EILSEQ", "ERESTART", "ESTRPIPE", "EUSERS",
    "ENOTSOCK", "EDESTADDRREQ", "EMSGSIZE", "EPROTOTYPE", "ENOPROTOOPT",
    "EPROTONOSUPPORT", "ESOCKTNOSUPPORT", "EOPNOTSUPP", "EPFNOSUPPORT",
    "EAFNOSUPPORT", "EADDRINUSE", "EADDRNOTAVAIL", "ENETDOWN", "ENETUNREACH",
    "ENETRESET", "ECONNABORTED", "ECONNRESET", "ENOBUFS", "EISCONN",
    "ENOTCONN", "ESHUTDOWN", "ETOOMANYREFS", "ETIMEDOUT", "ECONNREFUSED",
    "EHOSTDOWN", "EHOSTUNREACH", "EALREADY", "EINPROGRESS", "ESTALE",
    "EUCLEAN", "ENOTNAM", "ENAVAIL", "EISNAM", "EREMOTEIO", "EDQUOT",
    "ENOMEDIUM", "EMEDIUMTYPE", "ECANCELED", "ENOKEY", "EKEYEXPIRED",
    "EKEYREVOKED", "EKEYREJECTED", "EOWNERDEAD", "ENOTRECOVERABLE", "ERFKILL",
    "EHWPOISON",
};

}  // namespace

void LogSetup(uint32_t level, uint32_t modules) {
  log_level = level;
  log_modules = modules;
}

void LogSetFile(FILE* file) { log_file = file; }
FILE* LogGetFile() { return log_file; }
uint32_t LogGetLevel() { return log_level; }
uint32_t LogGetModules() { return log_modules; }
void LogLock() { log_mutex.lock(); }
void LogUnlock() { log_mutex.unlock(); }

bool LogEnabled(uint32_t level, uint32_t module) {
  return level == 0 || (level <= log_level && (module & log_modules) != 0);
}

const char* LogModuleLabel(uint32_t module) {
  if (module == 0) return "   NONE";
  if ((module & (module - 1)) != 0) return "UNKNOWN";
  return kModuleLabels[__builtin_ctz(module)];
}

void WriteErrorCode(std::ostream& stream, const boost::system::error_code& code) {
  const int value = code.value();
  std::string text = "(";
  if (code.category() == boost::system::system_category()) {
    const char* name = nullptr;
    if (value >= 1 && static_cast<size_t>(value) < kErrnoNameCount) name = kErrnoNames[value];
    text += name != nullptr ? name : std::to_string(value);
  } else {
    text += code.category().name();
    text += ':';
    text += std::to_string(value);
  }
  text += ") ";
  text += code.message();
  stream.write(text.data(), static_cast<std::streamsize>(text.size()));
}

LogLine::LogLine(uint32_t level, uint32_t module) : level_(level), module_(module) {
  if (level != 0 && !LogEnabled(level, module)) {
    module_ = 0;
    return;
  }
  if (thread_state == ThreadState::kFresh) RegisterThreadCleanup();
  object_ = AcquireLineObject();
  WriteHeader(object_->text, level, module);
  object_->SetPosition(kHeaderSize);
}

LogLine::~LogLine() noexcept(false) {
  if (object_ == nullptr) return;
  std::unique_ptr<LogLineObject> object(object_);
  object_ = nullptr;
  size_t length = object->Position();
  // A line without text, or a broken position, is dropped with its object.
  if (length <= kHeaderSize || length > kTextLimit) return;
  if (object->text[length - 1] != '\n') object->text[length++] = '\n';
  FILE* file = log_file != nullptr ? log_file : stdout;
  {
    // The one fwrite under the mutex keeps lines of threads apart.
    std::lock_guard<std::mutex> lock(log_mutex);
    fwrite(object->text, 1, length, file);
  }
  RecycleLineObject(object.release());
}

std::ostream& LogLine::stream() { return object_->stream; }

LogLine& LogLine::operator<<(const char* text) {
  if (inert()) return *this;
  object_->stream << (text != nullptr ? text : "(null)");
  return *this;
}

LogLine& LogLine::operator<<(const boost::system::error_code& code) {
  if (inert()) return *this;
  WriteErrorCode(object_->stream, code);
  return *this;
}

bool LogLine::Format(const char* format, ...) {
  if (inert()) return true;
  const std::streampos position = object_->stream.tellp();
  if (position == std::streampos(-1)) return true;
  const size_t used = static_cast<size_t>(position);
  if (used > kTextLimit) return true;
  const size_t room = kTextLimit + 1 - used;
  va_list arguments;
  va_start(arguments, format);
  const int written = vsnprintf(object_->text + used, room, format, arguments);
  va_end(arguments);
  if (written < 0) return true;
  // A text that didn't fit was cut at the end of the area.
  const size_t end = static_cast<size_t>(written) >= room ? kTextLimit : used + written;
  object_->SetPosition(end);
  return true;
}

void LogLine::Rewind() {
  if (inert()) return;
  object_->stream.clear();
  object_->SetPosition(kHeaderSize);
}
