#include "host/ToolTraits.h"

#include <algorithm>
#include <cctype>

bool ToolKeepsState(const std::string& name) {
    std::string plain = name;
    std::transform(plain.begin(), plain.end(), plain.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (plain.rfind("q9", 0) == 0) plain = plain.substr(2);
    return plain == "rain" || plain == "smoke" || plain == "snow" || plain == "puddle";
}
