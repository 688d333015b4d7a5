#include "frontend/environment.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include <unistd.h>

namespace {

class SystemEnvironmentTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/hivectl-env-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir = pattern;
  }
  void TearDown() override {
    std::remove((dir + "/out").c_str());
    rmdir(dir.c_str());
  }
  std::string dir;
  SystemEnvironment env;
};

TEST_F(SystemEnvironmentTest, StreamsAreTheProcessStreams) {
  EXPECT_EQ(env.output, &std::cout);
  EXPECT_EQ(env.error, &std::cerr);
  EXPECT_EQ(env.input, &std::cin);
  EXPECT_EQ(env.max_db_connections, 1u);
  EXPECT_FALSE(env.verbose || env.progress || env.ignore_errors);
}

TEST_F(SystemEnvironmentTest, MissingInputGivesErrno) {
  std::error_code error_code(99, std::generic_category());
  EXPECT_EQ(env.OpenInputFile((dir + "/nosuch").c_str(), error_code), nullptr);
  EXPECT_EQ(error_code.value(), ENOENT);
  EXPECT_EQ(error_code.category(), std::system_category());
}

TEST_F(SystemEnvironmentTest, OutputTruncatesAndInputReadsBinary) {
  std::string path = dir + "/out";
  std::ofstream(path) << "old content that must go";
  std::error_code error_code(99, std::generic_category());
  {
    std::unique_ptr<std::ostream> out = env.OpenOutputFile(path.c_str(), error_code);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(error_code.value(), 0);
    *out << std::string("a\r\n\0b", 5);
  }
  std::unique_ptr<std::istream> in = env.OpenInputFile(path.c_str(), error_code);
  ASSERT_NE(in, nullptr);
  std::string content((std::istreambuf_iterator<char>(*in)), std::istreambuf_iterator<char>());
  EXPECT_EQ(content, std::string("a\r\n\0b", 5));
}

TEST_F(SystemEnvironmentTest, UnwritableOutputGivesErrno) {
  std::error_code error_code;
  EXPECT_EQ(env.OpenOutputFile((dir + "/no/such/dir/file").c_str(), error_code), nullptr);
  EXPECT_EQ(error_code.value(), ENOENT);
}

}  // namespace
