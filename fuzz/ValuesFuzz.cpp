// The command line's values: --size, --set, --frame, --drag and --zoom of the controls command,
// which parses every one of them and draws controls but renders no picture; and the number reader
// on its own. The input is split at newlines into the option values.
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "app/AppError.h"
#include "app/Cli.h"
#include "app/Limits.h"
#include "app/Numbers.h"
#include "host/Registration.h"
#include "host/Registry.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::vector<std::string> tools = [] {
        RegisterPackTools();
        std::vector<std::string> names;
        for (Registry* r : ClassRegistry->Items())
            names.push_back(r->PlainName());
        return names;
    }();
    if (size < 1 || tools.empty()) return 0;
    std::vector<std::string> parts;
    std::string part;
    for (size_t i = 1; i < size; ++i) {
        if (data[i] == '\n') {
            parts.push_back(part);
            part.clear();
        } else {
            part += static_cast<char>(data[i]);
        }
    }
    parts.push_back(part);

    for (const std::string& p : parts) {
        double d;
        (void)ReadReal(p, &d);
        try {
            (void)ParseFloat(p, "v");
        } catch (const AppError&) {
        }
        try {
            (void)ParseWhole(p, -kFrameLimit, kFrameLimit, "v");
        } catch (const AppError&) {
        }
    }

    // The controls command: a tool, then options in the order of the pieces.
    static const char* const options[] = {"--size", "--set", "--frame", "--drag", "--zoom"};
    std::vector<std::string> args = {"crate07", "controls", tools[data[0] % tools.size()],
                                     "--json"};
    for (size_t k = 0; k < parts.size() && k < 12; ++k) {
        args.push_back(options[k % 5]);
        args.push_back(parts[k]);
    }
    std::vector<char*> argv;
    for (auto& a : args)
        argv.push_back(a.data());
    std::ostringstream out, err;
    const int code = RunCommandLine(static_cast<int>(argv.size()), argv.data(), out, err);
    // Every failure is one line of ours.
    if (code != 0) {
        const std::string e = err.str();
        if (e.rfind("crate07: ", 0) != 0 || e.find('\n') != e.size() - 1) __builtin_trap();
    }
    return 0;
}
