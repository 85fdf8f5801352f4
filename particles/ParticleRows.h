// Row makers that the particle tools' input tables share: sliders and screws held to their range,
// checkboxes that notify and take part in no animation, and buttons that notify.
#pragma once

#include "frame/ToolOperator.h"

namespace particle_rows {

inline InputDecl slider(const char* id, const char* label, int page, double def, double lo,
                        double hi) {
    return Slider(id, label, page, def, lo, hi).Allowed(lo, hi);
}

inline InputDecl wheel(const char* id, const char* label, int page, double def, double lo,
                       double hi) {
    return Screw(id, label, page, def).Scale(lo, hi).Allowed(lo, hi);
}

inline InputDecl toggle(const char* id, const char* label, int page, double def) {
    return Checkbox(id, label, page, def).Fixed().Notify();
}

inline InputDecl button(const char* id, const char* label, int page) {
    return Button(id, label, page).Notify().StoreAs(Store::Double);
}

}  // namespace particle_rows
