// What a tool offers, read from the operator its registration makes: pages, inputs in the order of
// declaration, image inputs, output and presets.
#pragma once

#include <iosfwd>
#include <string>

#include <nlohmann/json.hpp>

class Registry;

// The registration of a tool by registered name, plain name or class identifier, any case.
// Throws AppError naming the nearest known tool.
Registry* FindToolOrThrow(const std::string& name);

nlohmann::json DescribeTool(const std::string& name);
void PrintDescription(const nlohmann::json& description, std::ostream& out);
