#pragma once

#include <string>
#include <vector>

#include "report/Metrics.h"

namespace halvern::morvane::client {

// A word of a text that speaks for a class.
struct SpeakingWord {
    std::string word;
    std::string className;
    double probability = 0;
};

// A text that the classifier puts into a wrong class.
struct Mistake {
    std::string place;
    std::string text;
    Outcome outcome;
    std::vector<SpeakingWord> words;  // strongest first
};

struct Report {
    std::string classifier;
    std::string input;
    Metrics metrics;
    std::vector<Mistake> mistakes;  // most confident first
};

// An HTML page that stands alone: style and pictures are inside, it loads nothing and needs no script. It
// follows the reader's choice of light or dark, prints well, and says in tables what its pictures show.
std::string reportPage(const Report& report);

}  // namespace halvern::morvane::client
