#include "transfer/csv.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

namespace {

// Records fields as "[text]" and row ends as "|".
class RecordingHandler : public CsvHandler {
 public:
  bool OnField(const char* data, size_t length) override {
    events += "[" + std::string(data, length) + "]";
    return true;
  }
  bool OnRowEnd() override {
    events += "|";
    return true;
  }
  std::string events;
};

// A quote inside a quoted field that neither doubles nor closes it is kept.
TEST(CsvTokenizerTest, StrayQuoteInQuotedFieldIsKept) {
  RecordingHandler handler;
  CsvTokenizer tokenizer(handler);
  const std::string input = "\"ab\"c\"\n";
  ASSERT_TRUE(tokenizer.Feed(input.data(), input.size()));
  EXPECT_EQ(handler.events, "[ab\"c]|");
}

// Fixed-seed fuzzing: random text rich in quotes, commas, line ends and backslashes.
std::string RandomText(std::mt19937& random, size_t max_length) {
  static const char kSpecial[] = "\",\r\n\\\0\x01" "a";
  std::string text(random() % (max_length + 1), '\0');
  for (char& c : text) {
    c = random() % 2 ? kSpecial[random() % (sizeof kSpecial - 1)] : static_cast<char>(random());
  }
  return text;
}

// Random rows written by WriteCsvRow read back by CsvRowReader, fed in two chunks cut anywhere.
TEST(CsvFuzzTest, RandomRowsReadBackAsWritten) {
  using Row = std::tuple<std::string, std::string, uint32_t, std::string>;
  std::mt19937 random(7);
  for (int round = 0; round < 5000; ++round) {
    std::ostringstream out, messages;
    out << kCsvHeader;
    std::vector<Row> written, read;
    std::string key_scratch, scratch;
    for (int i = random() % 6; i >= 0; --i) {
      std::string key = RandomText(random, 12);
      key.erase(0, key.find_first_not_of('\\'));  // KNAME never starts or ends with one
      key.erase(key.find_last_not_of('\\') + 1);
      const std::string name = RandomText(random, 12);
      const auto type = static_cast<regkey::ValueType>(random() % 4);
      std::string value = RandomText(random, 30);
      if (type <= regkey::kTypeI64) value.resize(type == regkey::kTypeI32 ? 4 : 8);
      if (type == regkey::kTypeStr) std::replace(value.begin(), value.end(), '\0', 'z');
      const std::string stored = type == regkey::kTypeStr ? value + '\0' : value;
      ASSERT_EQ(WriteCsvRow(out, QuoteCsvField(key.data(), key.size(), key_scratch), name, type,
                            stored.data(), stored.size(), scratch),
                CsvWriteResult::kOk);
      const bool b64 =
          type == regkey::kTypeBin && std::any_of(value.begin(), value.end(), IsCsvControlByte);
      written.emplace_back(key, name, b64 ? 6 : type + 1, value);
    }
    const std::string text = out.str();
    const size_t cut = random() % (text.size() + 1);
    std::vector<ImportRow> rows;
    CsvRowReader reader("", false, [&](bool) -> std::ostream& { return messages; }, rows);
    CsvTokenizer tokenizer(reader);
    ASSERT_TRUE(tokenizer.Feed(text.data(), cut) && tokenizer.Feed(&text[cut], text.size() - cut))
        << messages.str();
    for (const ImportRow& row : rows) {
      read.emplace_back(row.key, row.value_name, row.type, std::string(row.data.get(), row.size));
    }
    ASSERT_EQ(read, written) << "round " << round;
  }
}

}  // namespace
