// show KEY: the names of the key's direct subkeys, then its values in a
// table, sorted by byte order, with long values truncated. For a human
// reader only: the escaping can't be undone.
#ifndef HIVECTL_FRONTEND_SHOW_COMMAND_H_
#define HIVECTL_FRONTEND_SHOW_COMMAND_H_

#include <cstddef>
#include <string>
#include <string_view>

#include "frontend/command.h"

class ShowCommand final : public CommandBase {
 public:
  using CommandBase::CommandBase;
  bool ParseArguments(TokenCursor& cursor) override;
  bool Prepare() override { return true; }
  // True unless a value has a type outside the four.
  bool Execute() override;
};

// Escapes control bytes (0x00-0x08, 0x0a-0x1f, 0x7f) for the terminal: "\n",
// "\r", else "\xhh". Returns the text itself when nothing needs escaping
// (scratch untouched), otherwise a view of `scratch`, which is overwritten.
std::string_view EscapeForDisplay(const char* text, size_t size, std::string& scratch);

#endif  // HIVECTL_FRONTEND_SHOW_COMMAND_H_
