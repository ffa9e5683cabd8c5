#include "cli_common.h"

int main(int argc, char** argv) { return grabsys::Main(argc, argv); }
