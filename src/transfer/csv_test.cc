#include "transfer/csv.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

namespace {

// Records fields as text and row ends as "|".
class RecordingHandler : public CsvHandler {
 public:
  bool OnField(const char* data, size_t length) override {
    events.emplace_back(data, length);
    return events.size() != stop_after;
  }
  bool OnRowEnd() override {
    events.emplace_back("|");
    return events.size() != stop_after;
  }
  std::vector<std::string> events;
  size_t stop_after = 0;  // 0: never stop
};

// Every kind of field and line end, including a last record with no line end.
const std::string kTrickyInput =
    "KNAME,VNAME,TYPE,VALUE\n"
    "a,\"x,y\",str,\"he said \"\"hi\"\"\"\r\n"
    "\"\",,bin,\"line1\nline2\"\r"
    "\"ab\"c\",plain\"quote,str,\"a\r\nb\"\n"
    "x\r\r\n"
    "last,row,no,end";

const std::vector<std::string> kTrickyEvents = {
    "KNAME", "VNAME", "TYPE", "VALUE", "|",
    "a", "x,y", "str", "he said \"hi\"", "|",
    "", "", "bin", "line1\nline2", "|",
    "ab\"c", "plain\"quote", "str", "a\r\nb", "|",
    "x", "|", "", "|",
    "last", "row", "no"};

std::vector<std::string> Tokenize(const std::vector<std::string>& chunks) {
  RecordingHandler handler;
  CsvTokenizer tokenizer(handler);
  for (const std::string& chunk : chunks) EXPECT_TRUE(tokenizer.Feed(chunk.data(), chunk.size()));
  return handler.events;
}

TEST(CsvTokenizerTest, WholeInputGivesExpectedFieldsAndRows) {
  EXPECT_EQ(Tokenize({kTrickyInput}), kTrickyEvents);
}

TEST(CsvTokenizerTest, ChunkBoundaryAtEveryByteChangesNothing) {
  for (size_t cut = 0; cut <= kTrickyInput.size(); ++cut) {
    EXPECT_EQ(Tokenize({kTrickyInput.substr(0, cut), kTrickyInput.substr(cut)}), kTrickyEvents)
        << "cut at " << cut;
  }
}

TEST(CsvTokenizerTest, TwoBoundariesAndSingleBytesChangeNothing) {
  for (size_t a = 0; a <= kTrickyInput.size(); ++a) {
    for (size_t b = a; b <= kTrickyInput.size(); ++b) {
      ASSERT_EQ(Tokenize({kTrickyInput.substr(0, a), kTrickyInput.substr(a, b - a),
                          kTrickyInput.substr(b)}),
                kTrickyEvents)
          << "cuts at " << a << " and " << b;
    }
  }
  std::vector<std::string> bytes;
  for (char c : kTrickyInput) bytes.emplace_back(1, c);
  EXPECT_EQ(Tokenize(bytes), kTrickyEvents);
}

TEST(CsvTokenizerTest, QuotedFieldStillOpenAtEndIsDropped) {
  EXPECT_EQ(Tokenize({"a,\"open\nfield"}), (std::vector<std::string>{"a"}));
}

TEST(CsvTokenizerTest, HandlerFalseStopsAtOnce) {
  RecordingHandler handler;
  handler.stop_after = 2;
  CsvTokenizer tokenizer(handler);
  EXPECT_FALSE(tokenizer.Feed("a,b,c\n", 6));
  EXPECT_EQ(handler.events, (std::vector<std::string>{"a", "b"}));
  RecordingHandler at_row_end;
  at_row_end.stop_after = 2;
  CsvTokenizer second(at_row_end);
  EXPECT_FALSE(second.Feed("\nx\n", 3));
  EXPECT_EQ(at_row_end.events, (std::vector<std::string>{"", "|"}));
}

TEST(QuoteCsvFieldTest, QuotesOnlyForSeparatorsAndQuotes) {
  std::string scratch = "untouched";
  auto quote = [&](const std::string& text) {
    return std::string(QuoteCsvField(text.data(), text.size(), scratch));
  };
  EXPECT_EQ(quote(""), "");
  EXPECT_EQ(quote(" lead\ttab \xe9\x80 "), " lead\ttab \xe9\x80 ");
  EXPECT_EQ(scratch, "untouched");
  EXPECT_EQ(quote("a,b"), "\"a,b\"");
  EXPECT_EQ(quote("cr\r"), "\"cr\r\"");
  EXPECT_EQ(quote("lf\n"), "\"lf\n\"");
  EXPECT_EQ(quote("say \"hi\""), "\"say \"\"hi\"\"\"");
  EXPECT_EQ(quote("\""), "\"\"\"\"");
}

TEST(CsvControlByteTest, ClassifiesEveryByte) {
  for (int byte = 0; byte < 256; ++byte) {
    bool expected = byte <= 8 || (byte >= 14 && byte <= 31) || byte == 127;
    EXPECT_EQ(IsCsvControlByte(static_cast<unsigned char>(byte)), expected) << byte;
  }
}

std::string Row(regkey::ValueType type, const std::string& data, const std::string& name = "v",
                std::string_view key = "k") {
  std::ostringstream out;
  std::string scratch;
  EXPECT_EQ(WriteCsvRow(out, key, name, type, data.data(), data.size(), scratch),
            CsvWriteResult::kOk);
  return out.str();
}

TEST(WriteCsvRowTest, WritesEachTypeAsTheFormatSays) {
  const uint32_t minus_one_32 = 0xFFFFFFFFu;
  const uint64_t minus_one_64 = ~uint64_t{0};
  EXPECT_EQ(Row(regkey::kTypeI32, std::string(reinterpret_cast<const char*>(&minus_one_32), 4)),
            "k,v,i32,4294967295\n");
  EXPECT_EQ(Row(regkey::kTypeI64, std::string(reinterpret_cast<const char*>(&minus_one_64), 8)),
            "k,v,i64,18446744073709551615\n");
  EXPECT_EQ(Row(regkey::kTypeStr, std::string("a,\"b\"\n", 7), "n,m"),
            "k,\"n,m\",str,\"a,\"\"b\"\"\n\"\n");
  EXPECT_EQ(Row(regkey::kTypeStr, std::string("\0", 1), ""), "k,,str,\n");
  EXPECT_EQ(Row(regkey::kTypeBin, "tab\there \xff"), "k,v,bin,tab\there \xff\n");
  EXPECT_EQ(Row(regkey::kTypeBin, std::string("\x01\xff\xff", 3)), "k,v,b64,Af//\n");
  EXPECT_EQ(Row(regkey::kTypeBin, "\x7f"), "k,v,b64,fw==\n");
}

TEST(WriteCsvRowTest, UnknownTypeLeavesPartialRow) {
  std::ostringstream out;
  std::string scratch;
  EXPECT_EQ(WriteCsvRow(out, "k", "v", static_cast<regkey::ValueType>(9), "x", 1, scratch),
            CsvWriteResult::kUnexpectedType);
  EXPECT_EQ(out.str(), "k,v");
}

// Reads `input` in two chunks cut at `cut` (one chunk by default); messages
// get the prefix FailureStream would.
struct ReadResult {
  bool ok;
  std::string messages;
  std::vector<ImportRow> rows;
};

ReadResult Read(const std::string& input, bool ignore_errors, std::string_view key = "K",
                size_t cut = std::string::npos) {
  cut = std::min(cut, input.size());
  ReadResult result;
  std::ostringstream messages;
  CsvRowReader reader(
      key, ignore_errors,
      [&](bool always_fatal) -> std::ostream& {
        return messages << (always_fatal || !ignore_errors ? "fatal: " : "error: ");
      },
      result.rows);
  CsvTokenizer tokenizer(reader);
  result.ok = tokenizer.Feed(input.data(), cut) &&
              tokenizer.Feed(input.data() + cut, input.size() - cut);
  result.messages = messages.str();
  return result;
}

const std::string kHeader = "KNAME,VNAME,TYPE,VALUE\n";

TEST(CsvRowReaderTest, BuildsRowsWithKeysSizesAndTerminatingZero) {
  ReadResult r = Read(kHeader + "a\\b,n,str,text\n,e,bin,\n,x,i32,-1\nz,y,i64,0x10\nz,w,b64,Zg==\n",
                      false);
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.messages, "");
  ASSERT_EQ(r.rows.size(), 5u);
  EXPECT_EQ(r.rows[0].key, "K\\a\\b");
  EXPECT_EQ(r.rows[0].size, 4u);
  EXPECT_EQ(std::memcmp(r.rows[0].data.get(), "text", 5), 0);
  EXPECT_EQ(r.rows[1].key, "K");
  EXPECT_EQ(r.rows[1].size, 0u);
  EXPECT_EQ(r.rows[1].data[0], '\0');
  uint32_t i32 = 0;
  std::memcpy(&i32, r.rows[2].data.get(), 4);
  EXPECT_EQ(i32, 0xFFFFFFFFu);
  uint64_t i64 = 0;
  std::memcpy(&i64, r.rows[3].data.get(), 8);
  EXPECT_EQ(i64, 16u);
  EXPECT_EQ(r.rows[4].type, 6u);
  EXPECT_EQ(r.rows[4].size, 1u);
  EXPECT_EQ(r.rows[4].data[0], 'f');

  ReadResult at_root = Read(kHeader + ",n,str,x\nsub,n,str,x\n", false, "");
  ASSERT_EQ(at_root.rows.size(), 2u);
  EXPECT_EQ(at_root.rows[0].key, "");
  EXPECT_EQ(at_root.rows[1].key, "sub");
}

TEST(CsvRowReaderTest, HeaderFaultsStopEvenWhenIgnoringErrors) {
  ReadResult word = Read("KNAME,\"VNAME\",type,VALUE\n", true);
  EXPECT_FALSE(word.ok);
  EXPECT_EQ(word.messages,
            "fatal: invalid file header: column 3 contains \"type\" instead of \"TYPE\"\n");
  ReadResult columns = Read("KNAME,VNAME,TYPE\n", true);
  EXPECT_FALSE(columns.ok);
  EXPECT_EQ(columns.messages, "fatal: file header contains 3 columns instead of 4\n");
  ReadResult empty_line = Read("\n", false);
  EXPECT_EQ(empty_line.messages,
            "fatal: invalid file header: column 1 contains \"\" instead of \"KNAME\"\n");
  ReadResult bom = Read("\xef\xbb\xbfKNAME,VNAME,TYPE,VALUE\n", false);
  EXPECT_EQ(bom.messages,
            "fatal: invalid file header: column 1 contains \"\xef\xbb\xbfKNAME\" instead of "
            "\"KNAME\"\n");
}

TEST(CsvRowReaderTest, BadRowsStopOrAreSkippedWithEveryMessage) {
  const std::string bad_rows =
      "\\,v,str,x\n"
      "a,v,STR,x\n"
      "a,v,i32,4294967296\n"
      "a,v,i64,12abc\n"
      "a,v,b64,Zh\n"
      "a,v,b64,Zg=x\n"
      "a,v,str\n"
      "a,v,str,x,y\n"
      "a\\,v,str,x\n"
      "good,v,str,x\n";
  ReadResult ignoring = Read(kHeader + bad_rows, true);
  EXPECT_TRUE(ignoring.ok);
  EXPECT_EQ(ignoring.messages,
            "error: in row 2: key name '\\' is invalid: starts with '\\'\n"
            "error: in row 2: key name '\\' is invalid: ends with '\\'\n"
            "error: in row 3: unknown type: 'STR'\n"
            "error: in row 4: can not parse '4294967296' as a 32-bit integer\n"
            "error: in row 5: can not parse '12abc' as a 64-bit integer\n"
            "error: in row 6: base64 decode failed: invalid character 'h' in position 1\n"
            "error: in row 7: base64 decode failed: invalid character 'x' in position 3\n"
            "error: row 8 contains 3 columns instead of 4\n"
            "error: row 9 contains 5 columns instead of 4\n"
            "error: in row 10: key name 'a\\' is invalid: ends with '\\'\n");
  ASSERT_EQ(ignoring.rows.size(), 1u);
  EXPECT_EQ(ignoring.rows[0].key, "K\\good");

  ReadResult stopping = Read(kHeader + "ok,v,str,x\n" + bad_rows, false);
  EXPECT_FALSE(stopping.ok);
  EXPECT_EQ(stopping.messages, "fatal: in row 3: key name '\\' is invalid: starts with '\\'\n");
}

TEST(CsvRowReaderTest, BadTypeInShortRowGivesBothMessages) {
  ReadResult r = Read(kHeader + "a,v,fstr\n", true);
  EXPECT_TRUE(r.ok);
  EXPECT_EQ(r.messages,
            "error: in row 2: unknown type: 'fstr'\n"
            "error: row 2 contains 3 columns instead of 4\n");
}

TEST(CsvRowReaderTest, B16StopsWithoutMessageEvenWhenIgnoringErrors) {
  ReadResult r = Read(kHeader + "a,v,b16,00\n", true);
  EXPECT_FALSE(r.ok);
  EXPECT_EQ(r.messages, "");
}

TEST(CsvRowReaderTest, LastRecordWithoutLineEndIsLostSilently) {
  ReadResult r = Read(kHeader + "a,v,str,x\nb,v,str,y", false);
  EXPECT_TRUE(r.ok);
  EXPECT_EQ(r.messages, "");
  ASSERT_EQ(r.rows.size(), 1u);
  EXPECT_EQ(r.rows[0].key, "K\\a");
  EXPECT_TRUE(Read("", false).ok);
}

TEST(CsvRoundTripTest, WriterOutputReadsBackByteForByte) {
  std::string tricky;
  for (int byte = 0x09; byte < 0x100; ++byte) {
    if (!IsCsvControlByte(static_cast<unsigned char>(byte))) tricky += static_cast<char>(byte);
  }
  std::string with_control = tricky + std::string("\0\x1b", 2);
  std::ostringstream out;
  out << kCsvHeader;
  std::string scratch;
  std::string key_scratch;
  std::string_view key = QuoteCsvField("a,\"b\"", 5, key_scratch);
  std::string str_value = tricky + '\0';
  WriteCsvRow(out, key, tricky, regkey::kTypeStr, str_value.data(), str_value.size(), scratch);
  WriteCsvRow(out, key, "", regkey::kTypeBin, tricky.data(), tricky.size(), scratch);
  WriteCsvRow(out, key, "c", regkey::kTypeBin, with_control.data(), with_control.size(), scratch);
  ReadResult r = Read(out.str(), false, "");
  ASSERT_TRUE(r.ok) << r.messages;
  ASSERT_EQ(r.rows.size(), 3u);
  for (const ImportRow& row : r.rows) EXPECT_EQ(row.key, "a,\"b\"");
  EXPECT_EQ(r.rows[0].value_name, tricky);
  EXPECT_EQ(std::string(r.rows[0].data.get(), r.rows[0].size), tricky);
  EXPECT_EQ(r.rows[1].type, 4u);
  EXPECT_EQ(std::string(r.rows[1].data.get(), r.rows[1].size), tricky);
  EXPECT_EQ(r.rows[2].type, 6u);
  EXPECT_EQ(std::string(r.rows[2].data.get(), r.rows[2].size), with_control);
}

// Fixed-seed fuzzing, well under a second: random text rich in quotes,
// commas, line ends and backslashes.
std::string RandomText(std::mt19937& random, size_t max_length) {
  static const char kSpecial[] = "\",\r\n\\\0\x01" "a";
  std::string text(random() % (max_length + 1), '\0');
  for (char& c : text) {
    c = random() % 2 ? kSpecial[random() % (sizeof kSpecial - 1)] : static_cast<char>(random());
  }
  return text;
}

TEST(CsvFuzzTest, EveryChunkSplitOfRandomInputGivesTheSameEvents) {
  std::mt19937 random(20261123);
  for (int round = 0; round < 5000; ++round) {
    const std::string input = RandomText(random, 40);
    const std::vector<std::string> whole = Tokenize({input});
    for (size_t cut = 0; cut <= input.size(); ++cut) {
      ASSERT_EQ(Tokenize({input.substr(0, cut), input.substr(cut)}), whole)
          << "round " << round << ", cut at " << cut;
    }
  }
}

TEST(CsvFuzzTest, RandomRowsReadBackAsWritten) {
  // Key, value name, type code, value bytes.
  using Row = std::tuple<std::string, std::string, uint32_t, std::string>;
  std::mt19937 random(7);
  for (int round = 0; round < 5000; ++round) {
    std::ostringstream out;
    out << kCsvHeader;
    std::vector<Row> written;
    std::string key_scratch;
    std::string scratch;
    for (int i = random() % 6; i >= 0; --i) {
      std::string key = RandomText(random, 12);
      key.erase(0, key.find_first_not_of('\\'));  // KNAME never starts or ends with one
      key.erase(key.find_last_not_of('\\') + 1);
      const std::string name = RandomText(random, 12);
      const auto type = static_cast<regkey::ValueType>(random() % 4);
      std::string value = RandomText(random, 30);
      if (type <= regkey::kTypeI64) value.resize(type == regkey::kTypeI32 ? 4 : 8);
      if (type == regkey::kTypeStr) {
        value.erase(std::remove(value.begin(), value.end(), '\0'), value.end());
      }
      const std::string stored = type == regkey::kTypeStr ? value + '\0' : value;
      ASSERT_EQ(WriteCsvRow(out, QuoteCsvField(key.data(), key.size(), key_scratch), name, type,
                            stored.data(), stored.size(), scratch),
                CsvWriteResult::kOk);
      const bool b64 =
          type == regkey::kTypeBin && std::any_of(value.begin(), value.end(), [](char c) {
            return IsCsvControlByte(static_cast<unsigned char>(c));
          });
      written.emplace_back(key, name, b64 ? 6 : type + 1, value);
    }
    const std::string text = out.str();
    ReadResult r = Read(text, false, "", random() % (text.size() + 1));
    ASSERT_TRUE(r.ok) << r.messages;
    std::vector<Row> read;
    for (const ImportRow& row : r.rows) {
      read.emplace_back(row.key, row.value_name, row.type, std::string(row.data.get(), row.size));
    }
    ASSERT_EQ(read, written) << "round " << round;
  }
}

}  // namespace
