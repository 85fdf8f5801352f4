#include <csignal>

#include "app/Cli.h"
#include "host/App.h"

namespace {

std::atomic<bool>* interruptFlag = nullptr;

// Ctrl-C raises the host's abort: the frame in progress stops at the tool's next test, is dropped,
// and the command line exits after keeping what was written.
extern "C" void OnInterrupt(int) {
    if (interruptFlag) interruptFlag->store(true, std::memory_order_relaxed);
}

}  // namespace

int main(int argc, char** argv) {
    interruptFlag = &GetApp()->interrupted;
    std::signal(SIGINT, OnInterrupt);
    std::signal(SIGTERM, OnInterrupt);
    return RunCommandLine(argc, argv);
}
