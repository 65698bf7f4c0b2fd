#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "Failure.h"
#include "server/Exchange.h"
#include "server/RequestWriter.h"

namespace halvern::morvane::client {

struct ClassShare {
    std::string className;
    double probability = 0;
};

// What classify gives. There is at least one class.
struct Classified {
    std::optional<double> textCoverage;  // share of the text's features that the classifier knows, 0 to 1
    std::vector<ClassShare> classes;     // in byte order of the names

    // The most probable class; of several, the first.
    const ClassShare& best() const;
};

struct Keyword {
    std::string word;
    std::string className;
    double probability = 0;
};

struct ClassCounts {
    std::string className;
    std::uint64_t uniqueFeatures = 0;
    std::uint64_t totalCount = 0;
};

// What a server answered. Names and words are the bytes of the answer, which is UTF-8.
class Answer {
public:
    // Throws Failure with UNREACHABLE if the bytes are no whole answer of a Morvane server.
    static Answer parse(const std::string& response);

    bool isSuccess() const { return _isSuccess; }
    std::int32_t statusCode() const { return _statusCode; }

    // Of a refusal: the whole text of the server, trimmed, and the id of the call that failed, which is empty
    // if the request failed as a whole.
    const std::string& message() const { return _message; }
    const std::string& failedCall() const { return _failedCall; }

    // The results of a success by the id of their call, for calls of the sort. Throw Failure with UNREACHABLE
    // if the answer has none for the id.
    const Classified& classification(const std::string& callId) const;
    const std::vector<Keyword>& keywords(const std::string& callId) const;  // most probable first
    const std::vector<ClassCounts>& information(const std::string& callId) const;

private:
    using Result = std::variant<Classified, std::vector<Keyword>, std::vector<ClassCounts>>;

    template <class Sort>
    const Sort& result(const std::string& callId) const;

    bool _isSuccess = false;
    std::int32_t _statusCode = 0;
    std::string _message;
    std::string _failedCall;
    std::map<std::string, Result> _results;
};

// Sends the request and gives the answer of a success. Throws what Exchange and Answer throw, and for a
// refusal a Failure with REFUSED: the server's text whole, the call that failed, and what to do.
Answer ask(Exchange& exchange, const RequestWriter& request);

// The Failure of a refusal, for whoever deals with answers that are no success. call is the one that was
// refused, as RequestWriter describes it, and empty if that isn't known.
Failure refusal(const Answer& answer, const RequestWriter& request);
Failure refusal(const Answer& answer, const std::string& call);

}  // namespace halvern::morvane::client
