// The crate07 command line: tools, describe, render, apply.
#pragma once

#include <iosfwd>

// Runs the command line; returns the process exit code. Output goes to `out`, errors to `err`.
int RunCommandLine(int argc, char** argv);
int RunCommandLine(int argc, char** argv, std::ostream& out, std::ostream& err);
