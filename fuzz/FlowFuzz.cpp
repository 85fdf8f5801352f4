// Flow files as a user might write them, or as a disk might mangle them: every input is parsed and
// built, and must end in a flow or in one AppError, never in a crash or a hang.
#include <cstddef>
#include <cstdint>
#include <string>

#include <nlohmann/json.hpp>

#include "app/AppError.h"
#include "app/Flow.h"
#include "app/Limits.h"
#include "host/Registration.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool once = [] {
        RegisterPackTools();
        SetMaxPixels(int64_t{1} << 20);
        return true;
    }();
    (void)once;
    const std::string text(reinterpret_cast<const char*>(data), size);
    nlohmann::json flow;
    try {
        flow = nlohmann::json::parse(text);
    } catch (const nlohmann::json::exception&) {
        return 0;
    }
    try {
        auto built = Flow::FromJson(flow, "fuzz.json");
        // Tools evaluate their inputs at the first frame, which may be anywhere in the range.
        (void)built->Start();
    } catch (const AppError&) {
    }
    return 0;
}
