#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "stress/Calls.h"

// What a classifier does, told once more in the fewest words: the yardstick for the real one.
namespace stress {

// How often a class has learned each word. A word that was never learned, or unlearned, has no entry.
using LearnedWords = std::map<std::string, std::uint32_t>;
using Classes = std::map<std::string, LearnedWords>;
// No value: there is no such classifier.
using State = std::optional<Classes>;

enum class Failure {
    NONE,
    EXISTS,
    NOT_FOUND,
    MARKED_FOR_DELETION,
    CLASS_EXISTS,
    NO_CLASS,
    DISK,
    UNKNOWN,  // words that no order explains
};

// What a write sequence came to: success, or the place of the call that failed and why.
struct Outcome {
    Failure failure = Failure::NONE;
    std::size_t call = 0;

    bool operator==(const Outcome&) const = default;
};

// Runs a write sequence whole or not at all.
inline Outcome run(const std::vector<Call>& calls, State& state) {
    State working = state;
    bool holdsOne = false;  // the sequence has made or loaded the classifier
    bool removed = false;
    for (std::size_t i = 0; i < calls.size(); ++i) {
        const Call& call = calls[i];
        if (call.verb == Verb::REMOVE) {
            removed = true;
            continue;
        }
        if (call.verb == Verb::CREATE) {
            if (holdsOne || state) {
                return {Failure::EXISTS, i};
            }
            working = Classes();
            holdsOne = true;
            removed = false;
            continue;
        }
        if (removed) {
            return {Failure::MARKED_FOR_DELETION, i};
        }
        if (!working) {
            return {Failure::NOT_FOUND, i};
        }
        holdsOne = true;
        const auto known = working->find(call.className);
        if (call.verb == Verb::ADD_CLASS) {
            if (!working->emplace(call.className, LearnedWords()).second) {
                return {Failure::CLASS_EXISTS, i};
            }
        } else if (known == working->end()) {
            return {Failure::NO_CLASS, i};
        } else if (call.verb == Verb::REMOVE_CLASS) {
            working->erase(known);
        } else if (call.verb == Verb::TRAIN) {
            ++known->second[call.word];
        } else if (const auto word = known->second.find(call.word);
                   word != known->second.end() && --word->second == 0) {
            known->second.erase(word);
        }
    }
    state = removed ? State() : working;
    return {};
}

}  // namespace stress
