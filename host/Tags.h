// Tag numbers of the host's attribute lists. The top hex digit says what a tag carries:
// 1 an integer, 2 a double, 3 text, 6 a pointer, 8 an identifier.
#pragma once

#include <cstdint>

using Tag = uint32_t;

// Registration attributes of a tool class.
constexpr Tag kRegInit = 0x60000001;
constexpr Tag kRegCleanup = 0x60000002;
constexpr Tag kRegKind = 0x10000000;
constexpr Tag kRegVersionText = 0x30000008;
constexpr Tag kRegBaseClass = 0x60000011;
constexpr Tag kRegScriptInfo = 0x60000005;
constexpr Tag kRegFactory = 0x60000000;
constexpr Tag kRegTileBitmap = 0x10000004;
constexpr Tag kRegName = 0x30000002;
constexpr Tag kRegCategory = 0x30000003;
constexpr Tag kRegShortName = 0x30000004;
constexpr Tag kRegDescription = 0x30000005;
constexpr Tag kRegHelpPath = 0x3000000c;
constexpr Tag kRegMaker = 0x30000009;
constexpr Tag kRegMakerAddress = 0x3000000a;
constexpr Tag kRegFlag19 = 0x10000019;
constexpr Tag kRegFlag33 = 0x10000033;
constexpr Tag kRegFlag10 = 0x10000010;

// Input and output attributes.
constexpr Tag kInDataType = 0x88020000;
constexpr Tag kInControlKind = 0x80030000;
constexpr Tag kInScaleMin = 0x20030000;
constexpr Tag kInScaleMax = 0x20030001;
constexpr Tag kInAllowedMin = 0x20030002;
constexpr Tag kInAllowedMax = 0x20030003;
constexpr Tag kInDefault = 0x20030004;
constexpr Tag kInDefaultX = 0x20030005;
constexpr Tag kInDefaultY = 0x20030006;
constexpr Tag kInWholeNumber = 0x1003000c;
constexpr Tag kInNotify = 0x1003000a;
constexpr Tag kInAnimatable = 0x10030000;
constexpr Tag kInRequired = 0x10030002;
constexpr Tag kInDisabled = 0x10030005;
constexpr Tag kInColourGroup = 0x10030006;
constexpr Tag kInColourChannel = 0x10030007;
constexpr Tag kInPage = 0x10040005;
constexpr Tag kInVisible = 0x10040008;
constexpr Tag kInGroupLabel = 0x30040000;
constexpr Tag kInComboEntry = 0x38040000;
constexpr Tag kInConnector = 0x10020001;

// Image requests and on-screen control records.
constexpr Tag kImageLike = 0x60020000;
constexpr Tag kControlClass = 0x1b0000;
constexpr Tag kControlOperator = 0x60050000;

// Time that stands for "no time".
constexpr double kNoTime = -1e9;
// Time that, given to a write, stands for the input's value as a whole.
constexpr double kWholeValue = -1.0;
