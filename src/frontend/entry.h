// The entry function of qv_hivectl: start-up, the three stages over the
// command line, and the exit status (0 or 1).
#ifndef HIVECTL_FRONTEND_ENTRY_H_
#define HIVECTL_FRONTEND_ENTRY_H_

#include "frontend/command.h"

// The whole run of the program; `parse_command` makes each command.
int HivectlMain(int argc, char** argv, CommandParser parse_command);

#endif  // HIVECTL_FRONTEND_ENTRY_H_
