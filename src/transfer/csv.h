// The registry CSV format: the writer of one value row, the streaming
// tokenizer, and the reader that turns records into ImportRows.
//
// File layout: the header "KNAME,VNAME,TYPE,VALUE\n", then one record per
// value with the columns key path (relative to the command's key), value
// name, type token and value. The writer quotes a field only when it holds
// a line feed, carriage return, double quote or comma, and ends every row
// with one line feed. The reader accepts more (any quoting, CR, LF or CRLF
// line ends) and, deliberately, less: a last record without a line end is
// dropped in silence, and a "b16" row stops the parse without a message.
#ifndef HIVECTL_TRANSFER_CSV_H_
#define HIVECTL_TRANSFER_CSV_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "registry/key.h"

constexpr std::string_view kCsvHeader = "KNAME,VNAME,TYPE,VALUE\n";
// The reader's chunk size.
constexpr size_t kCsvChunkSize = 16384;

// `text` as it stands when it needs no quoting (empty included); otherwise
// the quoted form, built in `scratch`, with inner quotes doubled.
std::string_view QuoteCsvField(const char* text, size_t length, std::string& scratch);

// 0x00-0x08, 0x0E-0x1F and 0x7F: a bin value holding one is written as b64.
bool IsCsvControlByte(unsigned char byte);

enum class CsvWriteResult { kOk, kUnexpectedType, kBase64Failed };

// Writes the rest of one row after the already quoted key column: ",",
// the quoted value name, ",TYPE,VALUE" and a line feed. `size` is what
// NextValue returned (text counts its NUL). On a failure the row stays
// partly written. `scratch` is reused between calls.
CsvWriteResult WriteCsvRow(std::ostream& out, std::string_view quoted_key,
                           const std::string& value_name, regkey::ValueType type,
                           const char* data, size_t size, std::string& scratch);

// Receives what CsvTokenizer finds. Returning false from either callback
// stops the parse at once.
class CsvHandler {
 public:
  virtual ~CsvHandler() = default;
  // One finished field; the bytes are valid only during the call.
  virtual bool OnField(const char* data, size_t length) = 0;
  // A line end after the last field of a record.
  virtual bool OnRowEnd() = 0;
};

// Splits a byte stream, given in chunks of any size, into fields and
// records. State survives chunk boundaries, so any split of the input gives
// the same calls. End of input is no event: an unfinished record is simply
// never reported.
class CsvTokenizer {
 public:
  explicit CsvTokenizer(CsvHandler& handler) : handler_(handler) {}

  // False if a handler stopped the parse; the tokenizer must not be fed
  // again after that.
  bool Feed(const char* chunk, size_t n);

 private:
  enum class State { kFieldStart, kUnquoted, kQuoted, kQuoteSeen, kFieldEnd, kAfterCarriageReturn };

  bool EmitField(const char* data, size_t length);

  CsvHandler& handler_;
  State state_ = State::kFieldStart;
  std::string pending_;
};

// One parsed value row.
struct ImportRow {
  std::string key;         // command key, "\" if both non-empty, KNAME
  std::string value_name;  // VNAME
  uint32_t type = 0;       // code of ParseSetType
  std::unique_ptr<char[]> data;
  uint64_t size = 0;  // value bytes, without the extra NUL of str and bin
};

// The handler that checks records and collects ImportRows. Messages go to
// the stream that `failure(always_fatal)` returns, which has already
// written the command's prefix and header.
class CsvRowReader final : public CsvHandler {
 public:
  using FailureStream = std::function<std::ostream&(bool always_fatal)>;

  CsvRowReader(std::string_view key_name, bool ignore_errors, FailureStream failure,
               std::vector<ImportRow>& rows);

  bool OnField(const char* data, size_t length) override;
  // Record check (4 columns), then the row is kept unless it was bad.
  bool OnRowEnd() override;

 private:
  bool CheckHeaderField(std::string_view field);
  bool ReadKeyField(std::string_view field);
  bool ReadTypeField(std::string_view field);
  bool ReadValueField(std::string_view field);
  // Stops the parse, or marks the row to be skipped under ignore_errors.
  bool RowFailed();
  std::ostream& RowMessage();

  // Constant after construction.
  const std::string key_name_;
  const bool ignore_errors_;
  const FailureStream failure_;
  std::vector<ImportRow>& rows_;

  uint32_t row_number_ = 1;
  uint32_t column_number_ = 0;
  bool skip_row_ = false;
  ImportRow row_;
};

#endif  // HIVECTL_TRANSFER_CSV_H_
