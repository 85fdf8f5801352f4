// What a host must know of a tool beyond its registration: whether it keeps state from one render
// to the next (and so needs its frames in order from the start of a sequence).
#pragma once

#include <string>

// Rain, Smoke and Snow keep their particles and step once per render; Puddle keeps its raindrops.
// Takes the registered name ("Q9Rain") or the plain one ("Rain"), in any case.
bool ToolKeepsState(const std::string& name);
