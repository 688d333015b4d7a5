#include "transfer/csv.h"

#include <charconv>
#include <cstring>
#include <utility>

#include "frontend/value_parse.h"
#include "registry/key_paths.h"
#include "support/value_codec.h"

namespace {

constexpr char kQuote = '"';
constexpr char kDelimiter = ',';

bool IsSeparator(char c) { return c == kDelimiter || c == '\n' || c == '\r'; }

bool NeedsQuoting(const char* text, size_t length) {
  for (size_t i = 0; i < length; ++i) {
    char c = text[i];
    if (c == '\n' || c == '\r' || c == kQuote || c == kDelimiter) return true;
  }
  return false;
}

bool HasControlByte(const char* data, size_t size) {
  for (size_t i = 0; i < size; ++i) {
    if (IsCsvControlByte(static_cast<unsigned char>(data[i]))) return true;
  }
  return false;
}

}  // namespace

std::string_view QuoteCsvField(const char* text, size_t length, std::string& scratch) {
  if (!NeedsQuoting(text, length)) return std::string_view(text, length);
  scratch.clear();
  scratch.reserve(length + 2);
  scratch += kQuote;
  for (size_t i = 0; i < length; ++i) {
    if (text[i] == kQuote) scratch += kQuote;
    scratch += text[i];
  }
  scratch += kQuote;
  return scratch;
}

bool IsCsvControlByte(unsigned char byte) {
  return byte <= 0x08 || (byte >= 0x0E && byte <= 0x1F) || byte == 0x7F;
}

CsvWriteResult WriteCsvRow(std::ostream& out, std::string_view quoted_key,
                           const std::string& value_name, regkey::ValueType type,
                           const char* data, size_t size, std::string& scratch) {
  out.write(quoted_key.data(), quoted_key.size());
  out.put(kDelimiter);
  std::string_view name = QuoteCsvField(value_name.data(), value_name.size(), scratch);
  out.write(name.data(), name.size());
  switch (type) {
    case regkey::kTypeI32:
      out.write(",i32,", 5);
      WriteDecimal(out, DecodeFixed32(data));
      break;
    case regkey::kTypeI64:
      out.write(",i64,", 5);
      WriteDecimal(out, DecodeFixed64(data));
      break;
    case regkey::kTypeStr: {
      out.write(",str,", 5);
      std::string_view text = QuoteCsvField(data, size > 0 ? size - 1 : 0, scratch);
      out.write(text.data(), text.size());
      break;
    }
    case regkey::kTypeBin: {
      if (!HasControlByte(data, size)) {
        out.write(",bin,", 5);
        std::string_view bytes = QuoteCsvField(data, size, scratch);
        out.write(bytes.data(), bytes.size());
        break;
      }
      if (!Base64EncodeTo(data, size, scratch)) return CsvWriteResult::kBase64Failed;
      out.write(",b64,", 5);
      out.write(scratch.data(), scratch.size());
      break;
    }
    default:
      return CsvWriteResult::kUnexpectedType;
  }
  out.put('\n');
  return CsvWriteResult::kOk;
}

bool CsvTokenizer::EmitField(const char* data, size_t length) {
  if (pending_.empty()) return handler_.OnField(data, length);
  pending_.append(data, length);
  bool go_on = handler_.OnField(pending_.data(), pending_.size());
  pending_.clear();
  return go_on;
}

bool CsvTokenizer::Feed(const char* chunk, size_t n) {
  size_t i = 0;
  while (i < n) {
    const char c = chunk[i];
    switch (state_) {
      case State::kFieldStart:
        if (c == kQuote) {
          ++i;
          state_ = State::kQuoted;
        } else {
          state_ = State::kUnquoted;
        }
        break;
      case State::kUnquoted: {
        size_t j = i;
        while (j < n && !IsSeparator(chunk[j])) ++j;
        if (j == n) {
          pending_.append(chunk + i, n - i);
          i = n;
          break;
        }
        if (!EmitField(chunk + i, j - i)) return false;
        i = j;
        state_ = State::kFieldEnd;
        break;
      }
      case State::kQuoted: {
        const void* found = std::memchr(chunk + i, kQuote, n - i);
        if (found == nullptr) {
          pending_.append(chunk + i, n - i);
          i = n;
          break;
        }
        size_t p = static_cast<const char*>(found) - chunk;
        if (p + 1 < n && IsSeparator(chunk[p + 1])) {
          if (!EmitField(chunk + i, p - i)) return false;
          state_ = State::kFieldEnd;
        } else {
          pending_.append(chunk + i, p - i);
          state_ = State::kQuoteSeen;
        }
        i = p + 1;
        break;
      }
      case State::kQuoteSeen:
        if (c == kQuote) {
          pending_ += kQuote;
          ++i;
          state_ = State::kQuoted;
        } else if (IsSeparator(c)) {
          if (!EmitField(chunk + i, 0)) return false;
          state_ = State::kFieldEnd;
        } else {
          pending_ += kQuote;
          state_ = State::kQuoted;
        }
        break;
      case State::kFieldEnd:
        ++i;
        if (c == kDelimiter) {
          state_ = State::kFieldStart;
        } else if (c == '\n' || c == '\r') {
          if (!handler_.OnRowEnd()) return false;
          state_ = c == '\n' ? State::kFieldStart : State::kAfterCarriageReturn;
        }
        break;
      case State::kAfterCarriageReturn:
        if (c == '\n') ++i;
        state_ = State::kFieldStart;
        break;
    }
  }
  return true;
}

CsvRowReader::CsvRowReader(std::string_view key_name, bool ignore_errors, FailureStream failure,
                           std::vector<ImportRow>& rows)
    : key_name_(key_name), ignore_errors_(ignore_errors), failure_(std::move(failure)), rows_(rows) {}

bool CsvRowReader::OnField(const char* data, size_t length) {
  ++column_number_;
  if (skip_row_) return true;
  if (column_number_ > 4) {
    skip_row_ = true;
    return true;
  }
  std::string_view field(data, length);
  if (row_number_ == 1) return CheckHeaderField(field);
  switch (column_number_) {
    case 1:
      return ReadKeyField(field);
    case 2:
      row_.value_name.assign(field);
      return true;
    case 3:
      return ReadTypeField(field);
    default:
      return ReadValueField(field);
  }
}

bool CsvRowReader::OnRowEnd() {
  if (column_number_ != 4) {
    if (row_number_ == 1) {
      failure_(true) << "file header contains " << column_number_ << " columns instead of 4\n";
      return false;
    }
    failure_(false) << "row " << row_number_ << " contains " << column_number_
                    << " columns instead of 4\n";
    if (!RowFailed()) return false;
  }
  if (!skip_row_ && row_number_ > 1) rows_.push_back(std::move(row_));
  row_ = ImportRow();
  column_number_ = 0;
  ++row_number_;
  skip_row_ = false;
  return true;
}

bool CsvRowReader::CheckHeaderField(std::string_view field) {
  static constexpr std::string_view kWords[] = {"KNAME", "VNAME", "TYPE", "VALUE"};
  std::string_view expected = kWords[column_number_ - 1];
  if (field == expected) return true;
  failure_(true) << "invalid file header: column " << column_number_ << " contains \"" << field
                 << "\" instead of \"" << expected << "\"\n";
  return false;
}

bool CsvRowReader::ReadKeyField(std::string_view field) {
  if (regkey::StartsWithBackslash(field)) {
    RowMessage() << "key name '" << field << "' is invalid: starts with '\\'\n";
    if (!RowFailed()) return false;
  }
  if (regkey::EndsWithBackslash(field)) {
    RowMessage() << "key name '" << field << "' is invalid: ends with '\\'\n";
    if (!RowFailed()) return false;
  }
  row_.key.reserve(key_name_.size() + 1 + field.size());
  row_.key.assign(key_name_);
  if (!key_name_.empty() && !field.empty()) row_.key += '\\';
  row_.key.append(field);
  return true;
}

bool CsvRowReader::ReadTypeField(std::string_view field) {
  row_.type = ParseSetType(field);
  if (row_.type == kSetUnknown || row_.type == kSetFstr || row_.type == kSetFbin) {
    RowMessage() << "unknown type: '" << field << "'\n";
    return RowFailed();
  }
  return true;
}

bool CsvRowReader::ReadValueField(std::string_view field) {
  if (row_.type == kSetB16) return false;  // the format has no such type; stop without a message
  if (DecodeValueText(row_.type, field, row_.data, row_.size,
                      [this]() -> std::ostream& { return RowMessage(); })) {
    return true;
  }
  return RowFailed();
}

bool CsvRowReader::RowFailed() {
  if (!ignore_errors_) return false;
  skip_row_ = true;
  return true;
}

std::ostream& CsvRowReader::RowMessage() {
  return failure_(false) << "in row " << row_number_ << ": ";
}
