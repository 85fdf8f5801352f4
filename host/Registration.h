// The registration of the pack's tool classes, as data: one row a tool. A tool is entered in the
// class registry once its engine exists, that is once its row has a factory.
#pragma once

#include <vector>

#include "host/Registry.h"

struct ToolClassRow {
    const char* classID;
    const char* name;
    const char* shortName;
    int bitmap;
    const char* description;
    const char* helpPath;
    OperatorFactory factory;
};

// The eleven rows, in alphabetical order of the tools.
const std::vector<ToolClassRow>& ToolClassTable();

// The attribute list of a tool class, in the order the host expects.
TagList RegistrationAttributes(const ToolClassRow& row, const ScriptInfo* script);

// Enters a class in ClassRegistry (the record lives as long as the process). Used for the pack's
// own rows and for classes made by tests.
Registry* RegisterToolClass(const ToolClassRow& row);

// Enters every row of the table that has a factory; runs once, during static initialisation, and
// may be called again without effect.
void RegisterPackTools();

constexpr const char* kCategory = "Vantreel Bramblix\\Crate 07";
constexpr const char* kMaker = "Vantreel";
constexpr const char* kMakerAddress = "https://crate07.example/";
