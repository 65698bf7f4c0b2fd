#include "report/Evaluator.h"

#include <algorithm>

#include "Failure.h"
#include "server/Answer.h"
#include "server/RequestWriter.h"
#include "server/StatusCode.h"

namespace halvern::morvane::client {

namespace {

// An answer names every class for every text; more of them at once would only cost memory on both sides.
constexpr std::size_t MOST_SHARES = 200000;

}  // namespace

Evaluator::Evaluator(const EvaluateOptions& options, Exchange& exchange, Watcher watcher)
    : _options(options),
      _exchange(exchange),
      _watcher(std::move(watcher)),
      // Nobody knows the number of classes yet.
      _batchTexts(std::min<std::size_t>(options.batchTexts, 50)),
      _batchBytes(options.batchBytes) {}

Report Evaluator::run(RecordReader& reader) {
    for (std::vector<Record> batch = readBatch(reader); !batch.empty(); batch = readBatch(reader)) {
        classify(std::move(batch));
        _watcher(_records, _wrong);
    }
    if (_outcomes.empty()) {
        throw Failure{ExitCode::LOCAL_FILE, "The input holds no text that could be used."};
    }
    explainMistakes();
    Report report;
    report.classifier = _options.classifier;
    report.metrics = measure(_outcomes, _options.bins);
    report.mistakes = std::move(_mistakes);
    return report;
}

std::vector<Record> Evaluator::readBatch(RecordReader& reader) {
    std::vector<Record> batch;
    std::size_t bytes = 0;
    for (Record record; batch.size() < _batchTexts && bytes < _batchBytes && reader.next(record);) {
        ++_records;
        if (record.problem.empty()) {
            bytes += RequestWriter::sizeOfTraining(_options.classifier, record.text);
            batch.push_back(std::move(record));
        }
    }
    return batch;
}

void Evaluator::classify(std::vector<Record> batch) {
    RequestWriter request;
    std::vector<std::string> calls;
    calls.reserve(batch.size());
    for (const Record& record : batch) {
        calls.push_back(request.classify(_options.classifier, request.addText(record.text), record.place));
    }
    const Answer answer = Answer::parse(_exchange.ask(request.document()));
    if (answer.statusCode() == statusCode::REQUEST_TOO_LARGE && batch.size() > 1) {
        _batchBytes = std::min(_batchBytes, request.size()) / 2;
        const auto middle = batch.begin() + static_cast<std::ptrdiff_t>(batch.size() / 2);
        classify({std::make_move_iterator(batch.begin()), std::make_move_iterator(middle)});
        classify({std::make_move_iterator(middle), std::make_move_iterator(batch.end())});
        return;
    }
    if (!answer.isSuccess()) {
        throw refusal(answer, request);
    }
    for (std::size_t i = 0; i < batch.size(); ++i) {
        const Classified& classified = answer.classification(calls[i]);
        std::map<std::string, double> probabilities;
        for (const ClassShare& share : classified.classes) {
            probabilities[share.className] = share.probability;
        }
        _batchTexts =
            std::clamp<std::size_t>(MOST_SHARES / classified.classes.size(), 1, _options.batchTexts);
        Outcome outcome = outcomeOf(batch[i].label, probabilities, classified.textCoverage.value_or(-1));
        take(std::move(batch[i]), std::move(outcome));
    }
}

void Evaluator::take(Record&& record, Outcome&& outcome) {
    _outcomes.push_back(outcome);
    if (outcome.predicted == outcome.actual) {
        return;
    }
    ++_wrong;
    const auto place = std::upper_bound(
        _mistakes.begin(), _mistakes.end(), outcome.confidence,
        [](double confidence, const Mistake& mistake) { return confidence > mistake.outcome.confidence; });
    if (_mistakes.size() < _options.mistakes || place != _mistakes.end()) {
        _mistakes.insert(place, {std::move(record.place), std::move(record.text), std::move(outcome), {}});
    }
    if (_mistakes.size() > _options.mistakes) {
        _mistakes.pop_back();
    }
}

// One text a request: a few long ones together could be more than the server takes.
void Evaluator::explainMistakes() {
    for (Mistake& mistake : _mistakes) {
        RequestWriter request;
        const std::string call =
            request.classifyKeywords(_options.classifier, request.addText(mistake.text), mistake.place);
        const Answer answer = ask(_exchange, request);
        for (const Keyword& keyword : answer.keywords(call)) {
            mistake.words.push_back({keyword.word, keyword.className, keyword.probability});
        }
    }
}

}  // namespace halvern::morvane::client
