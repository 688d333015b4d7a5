#include "frontend/options.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace po = boost::program_options;

namespace {

// The parsed options as store() and the entry function read them, or the exception's message.
std::string Describe(const std::function<po::parsed_options()>& parse) {
  std::ostringstream text;
  try {
    for (const po::option& option : parse().options) {
      text << option.string_key << "|" << option.position_key << "|unregistered="
           << option.unregistered << "|case-insensitive=" << option.case_insensitive;
      for (const std::string& value : option.value) text << "|value=" << value;
      for (const std::string& token : option.original_tokens) text << "|token=" << token;
      text << "\n";
    }
  } catch (const std::exception& e) {
    return std::string("exception: ") + e.what();
  }
  return text.str();
}

// Every line of up to three tokens taking each road through the parser parses in the smallest
// windows as in one run.
TEST(ParseCommandLineTest, WindowsParseAsTheWholeLine) {
  po::options_description options;
  options.add_options()("help,h", "")("Root,r", po::value<std::string>(), "")("Verbose", "")(
      "MaxDBConnections", po::value<uint32_t>(), "");
  const std::vector<std::string> vocabulary = {"get", "",       "-",      "-5",          "-5x",
                                               "-h",  "-hr",    "-r",     "-R",          "-rx",
                                               "-Verbose", "--", "--Root", "--verb", "--Verbose=1",
                                               "--Root="};
  const size_t size = vocabulary.size();
  for (size_t length = 0, lines = 1; length <= 3; ++length, lines *= size) {
    for (size_t number = 0; number < lines; ++number) {
      std::vector<std::string> line;
      for (size_t digits = number, i = 0; i < length; ++i, digits /= size) {
        line.push_back(vocabulary[digits % size]);
      }
      const std::string whole = Describe([&] {
        return po::command_line_parser(line).options(options).style(kCommandLineStyle)
            .allow_unregistered().run();
      });
      for (size_t window : {1, 2}) {
        ASSERT_EQ(Describe([&] { return ParseCommandLine(line, options, window); }), whole)
            << ::testing::PrintToString(line) << " in windows of " << window;
      }
    }
  }
}

}  // namespace
