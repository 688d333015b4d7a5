#include "frontend/command.h"

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

#include "frontend/test_environment.h"
#include "frontend/value_commands.h"

namespace {

// Parses `words` as a whole command line; returns the commands, or stops at
// the first failure leaving `cursor` where the failing command left it.
struct Line {
  explicit Line(std::vector<std::string> words) : storage(std::move(words)) {
    for (const std::string& word : storage) tokens.emplace_back(word);
    cursor = TokenCursor{tokens.data(), tokens.size()};
  }
  bool ParseAll(Environment& env) {
    while (cursor.remaining > 0) {
      std::unique_ptr<Command> command = ParseCommand(cursor, env);
      if (!command) return false;
      commands.push_back(std::move(command));
    }
    return true;
  }
  size_t consumed() const { return tokens.size() - cursor.remaining; }

  std::vector<std::string> storage;
  std::vector<std::string_view> tokens;
  TokenCursor cursor;
  std::vector<std::unique_ptr<Command>> commands;
};

// Exposes the protected helpers.
class ProbeCommand final : public CommandBase {
 public:
  using CommandBase::CommandBase;
  bool ParseArguments(TokenCursor&) override { return true; }
  bool Prepare() override { return true; }
  bool Execute() override { return true; }
  using CommandBase::FailureStream;
  using CommandBase::key_name;
  using CommandBase::Note;
  using CommandBase::ReadFileName;
  using CommandBase::ReadKeyName;
  using CommandBase::ReadValueName;
  using CommandBase::value_name;
};

TEST(CommandHeaderTest, ShapesFollowTheParsedFields) {
  TestEnvironment env;
  ProbeCommand probe("get", &env);
  probe.FailureStream(true) << "x\n";
  probe.key_name = "a";
  probe.FailureStream(true) << "y\n";
  probe.value_name = "Level";
  probe.key_name = "a\\b";
  probe.FailureStream(true) << "z\n";
  probe.key_name.clear();
  probe.FailureStream(true) << "w\n";
  EXPECT_EQ(env.err.str(),
            "fatal: get: x\n"
            "fatal: get 'a': y\n"
            "fatal: get 'a\\b\\Level': z\n"
            "fatal: get 'Level': w\n");

  // The prefix depends on ignore_errors only when the failure isn't always fatal.
  env.err.str("");
  probe.FailureStream(false) << "1\n";
  env.ignore_errors = true;
  probe.FailureStream(false) << "2\n";
  probe.FailureStream(true) << "3\n";
  probe.Note("completed");  // notes only when verbose
  env.verbose = true;
  probe.Note("completed");
  EXPECT_EQ(env.err.str(), "fatal: get 'Level': 1\nerror: get 'Level': 2\nfatal: get 'Level': 3\n"
                           "note: get 'Level': completed\n");
  EXPECT_EQ(env.out.str(), "");
}

TEST(ReadKeyNameTest, RefusesBackslashAtEitherEndWithoutMoving) {
  TestEnvironment env;
  ProbeCommand probe("get", &env);
  const std::string_view tokens[] = {"\\", "\\a", "a\\", "", "a\\\\b\\\\c", " \x01"};
  TokenCursor cursor{tokens, 6};
  std::string target = "old";
  EXPECT_FALSE(probe.ReadKeyName(cursor, target));
  EXPECT_EQ(env.err.str(), "fatal: get: key name '\\' is invalid: starts with '\\'\n");
  EXPECT_EQ(cursor.next, tokens);
  EXPECT_EQ(cursor.remaining, 6u);
  EXPECT_EQ(target, "old");

  env.err.str("");
  ++cursor.next, --cursor.remaining;
  EXPECT_FALSE(probe.ReadKeyName(cursor, target));
  EXPECT_EQ(env.err.str(), "fatal: get: key name '\\a' is invalid: starts with '\\'\n");
  env.err.str("");
  ++cursor.next, --cursor.remaining;
  EXPECT_FALSE(probe.ReadKeyName(cursor, target));
  EXPECT_EQ(env.err.str(), "fatal: get: key name 'a\\' is invalid: ends with '\\'\n");
  ++cursor.next, --cursor.remaining;

  env.err.str("");
  EXPECT_TRUE(probe.ReadKeyName(cursor, target));
  EXPECT_EQ(target, "");
  EXPECT_TRUE(probe.ReadKeyName(cursor, target));
  EXPECT_EQ(target, "a\\\\b\\\\c");
  EXPECT_TRUE(probe.ReadKeyName(cursor, target));
  EXPECT_EQ(target, " \x01");
  EXPECT_EQ(cursor.remaining, 0u);
  EXPECT_EQ(env.err.str(), "");

  EXPECT_FALSE(probe.ReadKeyName(cursor, target));
  EXPECT_FALSE(probe.ReadValueName(cursor, target));
  EXPECT_EQ(env.err.str(),
            "fatal: get: key name is not specified\nfatal: get: value name is not specified\n");
}

TEST(ReadFileNameTest, TakesAnyTokenButNeedsOne) {
  TestEnvironment env;
  ProbeCommand probe("export", &env);
  probe.key_name = "k";
  const std::string_view tokens[] = {""};
  TokenCursor cursor{tokens, 1};
  std::string target = "old";
  EXPECT_TRUE(probe.ReadFileName(cursor, target));
  EXPECT_EQ(target, "");
  EXPECT_FALSE(probe.ReadFileName(cursor, target));
  EXPECT_EQ(env.err.str(), "fatal: export 'k': file is not specified\n");

  const std::string_view names[] = {"", "\\a\\"};  // value names take anything
  cursor = TokenCursor{names, 2};
  EXPECT_TRUE(probe.ReadValueName(cursor, target));
  EXPECT_EQ(target, "");
  EXPECT_TRUE(probe.ReadValueName(cursor, target));
  EXPECT_EQ(target, "\\a\\");
}

TEST(ParseCommandTest, UnknownAndCaseSensitiveKeywords) {
  for (const char* word : {"GET", "frobnicate", "", "Load", "ge", "gets", "-Verbose", "get "}) {
    TestEnvironment env;
    Line line({word, "a", "b"});
    EXPECT_FALSE(line.ParseAll(env)) << word;
    EXPECT_EQ(line.consumed(), 0u);
    EXPECT_EQ(env.err.str(), std::string("fatal: unknown command '") + word + "'\n");
  }
}

TEST(ParseCommandTest, EachKeywordTakesItsArguments) {
  TestEnvironment env;
  Line line({"get", "a", "b", "set", "a", "b", "str", "x", "exists", "a", "b", "removev", "a",
             "b", "renamev", "a", "b", "c", "d", "copyv", "a", "b", "c", "d", "show", "a",
             "remove", "a", "rename", "a", "b", "copy", "a", "b"});
  EXPECT_TRUE(line.ParseAll(env));
  EXPECT_EQ(line.commands.size(), 10u);
  EXPECT_EQ(env.err.str(), "");
}

TEST(ParseCommandTest, FailuresKeepTheCursorOnTheBadToken) {
  struct Case {
    std::vector<std::string> words;
    size_t consumed;
    const char* message;
  };
  const Case cases[] = {
      {{"get", "a\\", "b"}, 1, "fatal: get: key name 'a\\' is invalid: ends with '\\'\n"},
      {{"copy", "good", "bad\\"}, 2,
       "fatal: copy 'good': key name 'bad\\' is invalid: ends with '\\'\n"},
      {{"exists", "a"}, 2, "fatal: exists 'a': value name is not specified\n"},
      {{"get", "a", "b", "remove"}, 4, "fatal: remove: key name is not specified\n"},
      {{"get", "a", "b", "c"}, 3, "fatal: unknown command 'c'\n"},
      {{"renamev", "a", "v", "\\b", "w"}, 3,
       "fatal: renamev 'a\\v': key name '\\b' is invalid: starts with '\\'\n"},
      {{"set", "k", "v"}, 3, "fatal: set 'k\\v': type is not specified\n"},
      {{"set", "k", "v", "wrong", "1"}, 3, "fatal: set 'k\\v': unknown type 'wrong'\n"},
      {{"set", "k", "v", "i32"}, 4, "fatal: set 'k\\v': value is not specified\n"},
      {{"set", "k", "v", "i32", "4294967296"}, 4,
       "fatal: set 'k\\v': can not parse '4294967296' as a 32-bit integer\n"},
      {{"set", "k", "v", "i64", "12x"}, 4,
       "fatal: set 'k\\v': can not parse '12x' as a 64-bit integer\n"},
      {{"set", "k", "", "b64", "Zh"}, 4,
       "fatal: set 'k': base64 decode failed: invalid character 'h' in position 1\n"},
  };
  for (const Case& c : cases) {
    TestEnvironment env;
    Line line(c.words);
    EXPECT_FALSE(line.ParseAll(env)) << c.message;
    EXPECT_EQ(line.consumed(), c.consumed) << c.message;
    EXPECT_EQ(env.err.str(), c.message);
  }
}

TEST(ParseCommandTest, AcceptsEdgeValues) {
  TestEnvironment env;
  Line line({"set", "k", "v", "i32", "-", "set", "k", "v", "i32", "", "set", "k", "v", "i64",
             "99999999999999999999", "set", "k", "v", "b16", "", "set", "k", "v", "b64", "",
             "set", "k", "v", "b64", "Zg=", "set", "k", "v", "fstr", "", "get", "", "Name"});
  EXPECT_TRUE(line.ParseAll(env)) << env.err.str();
  EXPECT_EQ(line.commands.size(), 8u);
}

// Runs Prepare of one "set" with the given type and file argument.
bool PrepareSet(TestEnvironment& env, const char* type, const char* file) {
  Line line({"set", "k", "v", type, file});
  if (!line.ParseAll(env)) return false;
  return line.commands.front()->Prepare();
}

TEST(SetPrepareTest, ReportsUnopenableFile) {
  TestEnvironment env;
  EXPECT_FALSE(PrepareSet(env, "fstr", "missing.txt"));
  EXPECT_EQ(env.err.str(),
            "fatal: set 'k\\v': can't open file 'missing.txt': (2) No such file or directory\n");
}

TEST(SetPrepareTest, RefusesNulInStringButNotInBinary) {
  TestEnvironment env;
  env.files["f"] = std::string("hello\0world", 11);
  EXPECT_FALSE(PrepareSet(env, "fstr", "f"));
  EXPECT_EQ(env.err.str(),
            "fatal: set 'k\\v': file 'f' contains a null byte at position 5 and can not be "
            "stored as a string\n");
  env.err.str("");
  env.verbose = true;
  EXPECT_TRUE(PrepareSet(env, "fbin", "f"));
  EXPECT_EQ(env.err.str(), "note: set 'k\\v': file/stdin parsing completed\n");
  env.err.str("");
  EXPECT_TRUE(PrepareSet(env, "str", "f"));  // other types read no file
  EXPECT_EQ(env.err.str(), "");
}

TEST(SetPrepareTest, StandardInputIsReadOnce) {
  TestEnvironment env;
  env.verbose = true;
  env.in.str(std::string(100000, 'x'));
  Line line({"set", "k", "a", "fstr", "-", "set", "k", "b", "fstr", "-"});
  ASSERT_TRUE(line.ParseAll(env));
  EXPECT_TRUE(line.commands[0]->Prepare());
  EXPECT_TRUE(env.in.eof());
  EXPECT_TRUE(line.commands[1]->Prepare());
  EXPECT_EQ(env.err.str(),
            "note: set 'k\\a': file/stdin parsing completed\n"
            "note: set 'k\\b': file/stdin parsing completed\n");
}

}  // namespace
