#include "frontend/entry.h"

int main(int argc, char** argv) { return HivectlMain(argc, argv); }
