#include "transfer/csv.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>
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

// One chunk, every cut into two or three chunks, and single bytes.
TEST(CsvTokenizerTest, ChunkBoundariesChangeNothing) {
  EXPECT_EQ(Tokenize({kTrickyInput}), kTrickyEvents);
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
  handler.events.clear();
  EXPECT_FALSE(CsvTokenizer(handler).Feed("\nx\n", 3));  // at a row end
  EXPECT_EQ(handler.events, (std::vector<std::string>{"", "|"}));
}

TEST(CsvControlByteTest, ClassifiesEveryByte) {
  for (int byte = 0; byte < 256; ++byte) {
    bool expected = byte <= 8 || (byte >= 14 && byte <= 31) || byte == 127;
    EXPECT_EQ(IsCsvControlByte(static_cast<unsigned char>(byte)), expected) << byte;
  }
}

TEST(WriteCsvRowTest, UnknownTypeLeavesPartialRow) {
  std::ostringstream out;
  std::string scratch;
  EXPECT_EQ(WriteCsvRow(out, "k", "v", static_cast<regkey::ValueType>(9), "x", 1, scratch),
            CsvWriteResult::kUnexpectedType);
  EXPECT_EQ(out.str(), "k,v");
}

}  // namespace
