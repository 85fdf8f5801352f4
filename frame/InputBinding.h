// An engine's hold on one host input (or the four channels of a colour): it reads, writes, hides
// and disables the input and keeps the value the adapter last copied in.
#pragma once

#include <cstdint>

class Input;

// The value last copied from the input, by kind.
struct BindingValue {
    int32_t whole = 0;          // integers, combos, seeds, buttons
    uint8_t flag = 0;           // checkboxes
    uint16_t samples[4] = {0};  // colours, red to alpha
    double number[2] = {0, 0};  // numbers; points X and Y
};

class InputBinding {
  public:
    InputBinding() = default;
    InputBinding(const InputBinding&) = delete;
    InputBinding& operator=(const InputBinding&) = delete;
    virtual ~InputBinding() = default;

    virtual void SetDisabled(bool on) { disabled = on; }
    virtual void SetHidden(bool on) { hidden = on; }

    // Reads inputs[0] at `time`.
    void GetInt(double time, int* out) const;
    void GetIndex1(double time, int* out) const;
    void GetDouble(double time, double* out) const;

    // Writes through the input's SetSource; -1.0 writes the value as a whole, a frame time a key.
    void SetInt(double time, int value);
    void SetDouble(double time, double value);
    void SetIndex1(double time, int value);
    void SetPoint(double time, double x, double y);
    void SetColour(double time, uint16_t red, uint16_t green, uint16_t blue, uint16_t alpha);

    // The value as the engine reads it.
    double Double() const { return value.number[0]; }
    double X() const { return value.number[0]; }
    double Y() const { return value.number[1]; }
    int Int() const { return value.whole; }
    bool Flag() const { return value.flag != 0; }
    uint16_t Sample(int channel) const { return value.samples[channel]; }

    Input* inputs[16] = {};
    uint8_t disabled = 0;
    uint8_t hidden = 0;
    uint8_t notifyGuard = 0;
    uint8_t enabled = 1;
    BindingValue value;
};

class SingleInputBinding : public InputBinding {
  public:
    void SetDisabled(bool on) override;
    void SetHidden(bool on) override;
};

// The four channels of a colour. Hiding shows or hides red, green and blue; alpha stays hidden.
class ColourInputBinding : public InputBinding {
  public:
    void SetDisabled(bool on) override;
    void SetHidden(bool on) override;
};
