#include "app/Cli.h"

#include <iostream>

int RunCommandLine(int argc, char** argv) { return RunCommandLine(argc, argv, std::cout, std::cerr); }
int RunCommandLine(int argc, char** argv, std::ostream& out, std::ostream& err) {
    (void)argc; (void)argv; (void)out; (void)err;
    return 0;
}
