// The entry function of qv_hivectl: start-up, the three stages over the
// command line, and the exit status (0 or 1).
#ifndef HIVECTL_FRONTEND_ENTRY_H_
#define HIVECTL_FRONTEND_ENTRY_H_

int HivectlMain(int argc, char** argv);

#endif  // HIVECTL_FRONTEND_ENTRY_H_
