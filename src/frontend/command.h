// The command classes and their framework. Every keyword on the command line
// becomes one command object; the entry function parses all of them, then
// prepares all of them, then executes all of them, in order.
//
// Each stage answers by its bool result after writing its own message on
// env->error; an expected failure never throws.
#ifndef HIVECTL_FRONTEND_COMMAND_H_
#define HIVECTL_FRONTEND_COMMAND_H_

#include <cstddef>
#include <memory>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>

#include "frontend/environment.h"

// The root of all key paths (the --Root option); set once by the entry
// function before any command runs.
extern std::string registry_root;

// Running position in the command tokens, advanced in place.
struct TokenCursor {
  const std::string_view* next = nullptr;
  size_t remaining = 0;
};

class Command {
 public:
  virtual ~Command() = default;
  // Takes the command's arguments; false means the message is written.
  virtual bool ParseArguments(TokenCursor& cursor) = 0;
  // Work that must happen before any command of the line executes.
  virtual bool Prepare() = 0;
  virtual bool Execute() = 0;
};

// Hands `sink` whole lines: text is held until a line feed and then written,
// line feed included, in one call, so that nothing else written to the same
// file meanwhile (another thread's message, a diagnostic-log line) lands
// inside a line. Unsynchronised: its users take turns (the import's
// report_mutex). An unended rest is written on destruction.
class LineBuffer final : public std::streambuf {
 public:
  explicit LineBuffer(std::ostream& sink) : sink_(sink) {}
  ~LineBuffer() override;

 protected:
  int_type overflow(int_type c) override;
  std::streamsize xsputn(const char* text, std::streamsize count) override;
  int sync() override;

 private:
  // Writes `pending_` up to and including its last line feed, or all of it.
  void WriteLines(bool all);

  std::ostream& sink_;
  std::string pending_;
};

class CommandBase : public Command {
 public:
  CommandBase(const char* name, Environment* env) : name(name), env(env) {}

 protected:
  // Take one token as a key name (refusing a leading or trailing backslash)
  // or as a value name (anything). On failure the cursor does not move.
  bool ReadKeyName(TokenCursor& cursor, std::string& target);
  bool ReadValueName(TokenCursor& cursor, std::string& target);
  // The FILE argument of export and import.
  bool ReadFileName(TokenCursor& cursor, std::string& target);

  // prefix + name + " 'key\value': " (or ": " when both are empty).
  void WriteHeader(const char* prefix);
  // "error: " when !always_fatal and ignore_errors, else "fatal: "; writes
  // the header and returns the stream for the rest of the line, which
  // reaches env->error in one write once the line feed is in.
  std::ostream& FailureStream(bool always_fatal);
  // "note: " line when verbose.
  void Note(std::string_view text);
  // The end of an Execute whose work was one backend operation: the
  // "completed" note on success, "backend operation failed" otherwise.
  bool ReportBackendResult(bool succeeded);
  // "can't open file '<path>': (<number>) <message>\n" behind
  // FailureStream(true).
  void ReportOpenFailure(const std::string& path, const std::error_code& error_code);
  // "can't read file '<path>': (<number>) <message>\n" behind
  // FailureStream(true), for the errno that a failed read left (EIO if
  // none). "-" names the standard input.
  void ReportReadFailure(const std::string& path, int error_number);

  const char* name;  // not owned
  Environment* env;  // not owned; outlives every command
  std::string key_name;
  std::string value_name;

 private:
  // "can't <verb> file '<path>': (<number>) <message>\n" behind
  // FailureStream(true).
  void ReportFileFailure(const char* verb, const std::string& path,
                         const std::error_code& error_code);
  // What the messages go to: env->error, fed whole lines. Made at the first
  // message.
  std::ostream& Diagnostics();

  struct DiagnosticStream {
    explicit DiagnosticStream(std::ostream& error) : buffer(error), stream(&buffer) {}
    LineBuffer buffer;
    std::ostream stream;
  };
  std::unique_ptr<DiagnosticStream> diagnostics_;
};

// Makes the command named by the token at the cursor and parses its
// arguments. Null on failure, after the message was written. The program
// supplies it (main.cc holds the keyword table), so that the framework needs
// none of the commands. REQUIRES: cursor.remaining > 0.
using CommandParser = std::unique_ptr<Command> (*)(TokenCursor& cursor, Environment& env);

#endif  // HIVECTL_FRONTEND_COMMAND_H_
