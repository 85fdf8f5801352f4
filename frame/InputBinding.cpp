#include "frame/InputBinding.h"

#include "frame/SmallMaths.h"
#include "host/Operator.h"

namespace {

double NumberAt(Input* input, double time) {
    if (!input) return 0.0;
    Parameter* p = input->GetSource(time);
    if (!p || p->GetType() != Parameter::Type::Number) return 0.0;
    return static_cast<Number*>(p)->value;
}

// The constant 1/32767 to single precision by which a sample becomes a channel value.
constexpr float kSampleToChannel = 3.051851e-05f;

}  // namespace

void InputBinding::GetInt(double time, int* out) const {
    *out = TruncateToInt(NumberAt(inputs[0], time));
}

void InputBinding::GetIndex1(double time, int* out) const {
    int v = TruncateToInt(NumberAt(inputs[0], time));
    *out = v == INT32_MAX ? v : v + 1;
}

void InputBinding::GetDouble(double time, double* out) const {
    *out = NumberAt(inputs[0], time);
}

void InputBinding::SetInt(double time, int v) {
    if (!inputs[0]) return;
    AutoNumber n(v);
    inputs[0]->SetSource(&n, time, 1, 0);
}

void InputBinding::SetDouble(double time, double v) {
    if (!inputs[0]) return;
    AutoNumber n(v);
    inputs[0]->SetSource(&n, time, 1, 0);
}

void InputBinding::SetIndex1(double time, int v) {
    if (!inputs[0]) return;
    AutoNumber n(static_cast<double>(v) - 1.0);
    inputs[0]->SetSource(&n, time, 1, 0);
}

void InputBinding::SetPoint(double time, double x, double y) {
    if (!inputs[0]) return;
    Point p(x, y, 0.0);
    inputs[0]->SetSource(&p, time, 1, 0);
}

void InputBinding::SetColour(double time, uint16_t red, uint16_t green, uint16_t blue,
                             uint16_t alpha) {
    const uint16_t samples[4] = {red, green, blue, alpha};
    for (int c = 0; c < 4; ++c) {
        notifyGuard = 1;
        if (!inputs[c]) continue;
        // The product of a 16-bit sample and a single-precision constant is exact in double.
        AutoNumber n(static_cast<double>(samples[c]) * static_cast<double>(kSampleToChannel));
        inputs[c]->SetSource(&n, time, 1, 0);
    }
    notifyGuard = 0;
}

void SingleInputBinding::SetDisabled(bool on) {
    disabled = on;
    if (inputs[0]) inputs[0]->SetAttrs(kInDisabled, int64_t{on ? 1 : 0});
}

void SingleInputBinding::SetHidden(bool on) {
    hidden = on;
    if (inputs[0]) inputs[0]->SetAttrs(kInVisible, int64_t{on ? 0 : 1});
}

void ColourInputBinding::SetDisabled(bool on) {
    disabled = on;
    for (int c = 0; c < 4; ++c)
        if (inputs[c]) inputs[c]->SetAttrs(kInDisabled, int64_t{on ? 1 : 0});
}

void ColourInputBinding::SetHidden(bool on) {
    hidden = on;
    for (int c = 0; c < 3; ++c)
        if (inputs[c]) inputs[c]->SetAttrs(kInVisible, int64_t{on ? 0 : 1});
}
