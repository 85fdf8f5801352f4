#include "app/AppError.h"

#include <algorithm>
#include <cctype>

namespace {

std::string Lower(const std::string& s) {
    std::string out = s;
    for (char& c : out)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

size_t Distance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j)
        row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            size_t up = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] != b[j - 1])});
            diagonal = up;
        }
    }
    return row[b.size()];
}

}  // namespace

std::string Nearest(const std::string& word, const std::vector<std::string>& choices) {
    const std::string w = Lower(word);
    std::string best;
    size_t bestDistance = std::string::npos;
    for (const auto& c : choices) {
        size_t d = Distance(w, Lower(c));
        if (d < bestDistance) {
            bestDistance = d;
            best = c;
        }
    }
    // Close enough to be a slip of the keyboard: at most a third of the word, and at least one.
    size_t limit = std::max<size_t>(1, (w.size() + 2) / 3);
    return bestDistance <= limit ? best : std::string();
}
