#pragma once

#include <algorithm>
#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "stress/Model.h"

namespace stress {

// What a reader is told of each class.
struct Figures {
    std::uint64_t uniqueFeatures = 0;
    std::uint64_t totalCount = 0;

    auto operator<=>(const Figures&) const = default;
};
using Information = std::map<std::string, Figures>;

// One request on one classifier, with its answer.
struct Operation {
    unsigned client = 0;
    // Places in the one order of all calls and returns of the history.
    std::uint64_t called = 0;
    std::uint64_t returned = 0;
    std::string request;
    std::string response;

    std::vector<Call> calls;  // of a write sequence; empty for a read
    Outcome outcome;
    Information read;  // of a read that was answered
};

// Looks for a serial order of the operations on one classifier, in which each lies between its call and its
// return, and which explains every answer (Wing and Gong, Testing and verifying concurrent objects, 1993; the
// set of dead ends is Lowe's, Testing for linearizability, 2017). Classifiers share nothing, so that a
// history has a serial order if the part of each classifier has one. Takes at most 64 operations.
class SerialOrder {
public:
    // featuresOfWord: how many distinct features one word has, each of which occurs once.
    SerialOrder(std::vector<Operation> operations, std::uint64_t featuresOfWord)
        : _operations(std::move(operations)), _featuresOfWord(featuresOfWord) {}

    bool exists() { return search(0, State()); }

private:
    using Done = std::uint64_t;  // a bit for each operation

    bool search(Done done, const State& state) {
        std::uint64_t firstReturn = ~std::uint64_t(0);
        bool left = false;
        for (std::size_t i = 0; i < _operations.size(); ++i) {
            if ((done >> i & 1) == 0) {
                left = true;
                firstReturn = std::min(firstReturn, _operations[i].returned);
            }
        }
        if (!left) {
            return true;
        }
        if (!_seen.emplace(done, state).second) {
            return false;
        }
        for (std::size_t i = 0; i < _operations.size(); ++i) {
            // What was called behind another's return can't come before it.
            if ((done >> i & 1) == 0 && _operations[i].called < firstReturn) {
                State next = state;
                if (explains(_operations[i], next) && search(done | Done(1) << i, next)) {
                    return true;
                }
            }
        }
        return false;
    }

    bool explains(const Operation& operation, State& state) const {
        if (operation.outcome.failure == Failure::DISK) {
            return true;  // says nothing of the content, and must change nothing
        }
        if (!operation.calls.empty()) {
            return run(operation.calls, state) == operation.outcome;
        }
        return state ? operation.outcome == Outcome() && operation.read == informationOf(*state)
                     : operation.outcome.failure == Failure::NOT_FOUND;
    }

    Information informationOf(const Classes& classes) const {
        Information information;
        for (const auto& [name, words] : classes) {
            Figures& figures = information[name];
            for (const auto& [word, count] : words) {
                figures.uniqueFeatures += _featuresOfWord;
                figures.totalCount += _featuresOfWord * count;
            }
        }
        return information;
    }

    const std::vector<Operation> _operations;
    const std::uint64_t _featuresOfWord;
    std::set<std::pair<Done, State>> _seen;
};

}  // namespace stress
