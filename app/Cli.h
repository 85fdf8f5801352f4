// The crate07 command line: tools, describe, render, apply.
#pragma once

#include <iosfwd>

// Exit codes: 0 done; 1 an error in what was asked (a value, a flow, an image, a write); 2 a
// command line the parser cannot read (an unknown option, a missing argument); 130 interrupted by
// Ctrl-C or SIGTERM, with the files written before kept.
constexpr int kExitDone = 0;
constexpr int kExitError = 1;
constexpr int kExitUsage = 2;
constexpr int kExitInterrupted = 130;

// Runs the command line; returns the process exit code. Output goes to `out`, errors to `err`.
int RunCommandLine(int argc, char** argv);
int RunCommandLine(int argc, char** argv, std::ostream& out, std::ostream& err);
