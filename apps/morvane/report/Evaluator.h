#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "data/RecordReader.h"
#include "report/ReportPage.h"
#include "server/Exchange.h"

namespace halvern::morvane::client {

struct EvaluateOptions {
    std::string classifier;
    std::size_t batchTexts = 2000;
    std::size_t batchBytes = 4'000'000;
    std::size_t bins = 15;
    std::size_t mistakes = 25;  // that are kept, with their words
};

// Has a classifier tell the classes of labelled texts, in batches, and compares. Changes nothing on the
// server.
class Evaluator {
public:
    using Watcher = std::function<void(std::uint64_t records, std::uint64_t mistakes)>;

    // All that is referred to must outlive the evaluator.
    Evaluator(const EvaluateOptions& options, Exchange& exchange, Watcher watcher);

    // Records that can't be used are passed over. Throws Failure; without any text it is of LOCAL_FILE.
    Report run(RecordReader& reader);

private:
    std::vector<Record> readBatch(RecordReader& reader);
    void classify(std::vector<Record> batch);
    void take(Record&& record, Outcome&& outcome);
    void explainMistakes();

    const EvaluateOptions& _options;
    Exchange& _exchange;
    const Watcher _watcher;
    std::size_t _batchTexts;
    std::size_t _batchBytes;
    std::uint64_t _records = 0;
    std::uint64_t _wrong = 0;
    std::vector<Outcome> _outcomes;
    std::vector<Mistake> _mistakes;  // most confident first; of equals, the earlier
};

}  // namespace halvern::morvane::client
