#include "import/Importer.h"

#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "Failure.h"
#include "classifier/FeatureExtractor.h"
#include "data/Fnv.h"
#include "server/RequestWriter.h"
#include "server/StatusCode.h"

namespace halvern::morvane::client {

namespace {

// The server's limit; a classifier that has reached it has no room for a guard.
constexpr std::size_t MOST_CLASSES = 65535;
constexpr std::uint32_t FIRST_GENERATION = 3;
constexpr std::uint32_t LAST_GENERATION = 7;

constexpr const char* GO_ON =
    "Run the same command again: it goes on where this one stopped, and learns no text twice.";

std::string makeGuard() {
    std::random_device random;
    Fnv hash;
    for (int i = 0; i < 4; ++i) {
        hash.add(std::to_string(random()));
    }
    return "import-guard-" + hash.text();
}

std::int64_t secondsNow() {
    using namespace std::chrono;
    return duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
}

bool hasClass(const std::vector<ClassCounts>& classes, const std::string& name) {
    return std::any_of(classes.begin(), classes.end(),
                       [&name](const ClassCounts& counts) { return counts.className == name; });
}

}  // namespace

struct Importer::Batch {
    explicit Batch(const std::string& classifier) : request(classifier) {}

    RequestWriter request;
    std::size_t records = 0;
    std::uint64_t texts = 0;
    std::uint64_t skipped = 0;
};

Importer::Importer(const ImportOptions& options, Exchange& exchange, RecordReader& reader,
                   const JournalFile& file, Journal journal, Wait wait, Watcher watcher)
    : _options(options),
      _exchange(exchange),
      _reader(reader),
      _file(file),
      _journal(std::move(journal)),
      _wait(std::move(wait)),
      _watcher(std::move(watcher)),
      _guard(makeGuard()),
      _assume(options.assume),
      _batchBytes(options.batchBytes) {}

ImportCounts Importer::run() {
    passOver(_journal.records);
    _counts.records = _journal.records;
    _counts.skipped = _journal.skipped;
    try {
        withRetries([this] { createIfNeeded(); });
        for (bool isMore = true; isMore;) {
            withRetries([&] { isMore = step(); });
        }
        if (!_journal.fences.empty()) {
            _file.save(_journal);
            std::int64_t last = 0;
            for (const Fence& fence : _journal.fences) {
                last = std::max(last, fence.since);
            }
            const std::chrono::milliseconds age = std::chrono::seconds(secondsNow() - last);
            _wait(std::clamp(_options.fenceTime - age, std::chrono::milliseconds(0), _options.fenceTime));
            withRetries([this] { removeFences(std::chrono::milliseconds(0)); });
        }
    } catch (const Failure& failure) {
        if (failure.code == ExitCode::UNREACHABLE || failure.code == ExitCode::INTERRUPTED) {
            throw Failure{failure.code, failure.message, GO_ON};
        }
        throw;
    }
    _file.remove();
    return _counts;
}

void Importer::passOver(std::uint64_t records) {
    Record record;
    for (std::uint64_t i = 0; i < records; ++i) {
        _reader.next(record);
    }
}

void Importer::withRetries(const std::function<void()>& work) {
    for (int attempt = 1;; ++attempt) {
        try {
            return work();
        } catch (const Failure& failure) {
            if (failure.code != ExitCode::UNREACHABLE || attempt > _options.retries) {
                throw;
            }
        }
        pauseBeforeRetry(attempt);
    }
}

void Importer::pauseBeforeRetry(int attempt) { _wait(_options.pause * (1 << std::min(attempt - 1, 5))); }

bool Importer::step() {
    if (_journal.open) {
        settle();
        return true;
    }
    if (!fill(1)) {
        return false;
    }
    removeFences(_options.longFence);
    sendBatch();
    return true;
}

std::optional<Importer::Classes> Importer::information() {
    RequestWriter request;
    const std::string call = request.getInformation(_options.classifier);
    try {
        return ask(_exchange, request).information(call);
    } catch (const Failure& failure) {
        if (failure.message.find("The requested classifier could not be found") != std::string::npos) {
            return std::nullopt;
        }
        throw;
    }
}

Importer::Classes Importer::requireInformation() {
    std::optional<Classes> classes = information();
    if (!classes) {
        throw Failure{ExitCode::DIFFERENT,
                      "Somebody has removed the classifier '" + _options.classifier + "' during the import.",
                      "To learn everything anew, use --restart --create."};
    }
    return std::move(*classes);
}

void Importer::createIfNeeded() {
    if (information()) {
        return;
    }
    if (_journal.records > 0 || _journal.open) {
        requireInformation();
    }
    if (!_options.create) {
        throw Failure{ExitCode::REFUSED, "There is no classifier '" + _options.classifier + "'.",
                      "Mind the spelling, or have it made: --create"};
    }
    RequestWriter request(_options.classifier);
    request.create();
    try {
        ask(_exchange, request);
    } catch (const Failure& failure) {
        // Two imports may begin at once, and a request of which no answer came may have run after all.
        if (failure.code != ExitCode::REFUSED || !information()) {
            throw;
        }
    }
}

bool Importer::fill(std::size_t records) {
    Record record;
    while (_pending.size() < records && _reader.next(record)) {
        _pending.push_back(std::move(record));
    }
    return _pending.size() >= records;
}

Importer::Batch Importer::makeBatch(const Classes& before) {
    Batch batch(_options.classifier);
    std::set<std::string> classes;
    for (const ClassCounts& counts : before) {
        classes.insert(counts.className);
    }
    if (classes.size() < MOST_CLASSES) {
        batch.request.addClass(_guard);
        batch.request.removeClass(_guard);
    }
    for (; fill(batch.records + 1); ++batch.records) {
        const Record& record = _pending[batch.records];
        if (!record.problem.empty()) {
            if (!_options.skipBad) {
                throw Failure{ExitCode::LOCAL_FILE,
                              "The record in " + record.place + " " + record.problem + ".",
                              "Mend it, or pass such records over: --skip-bad"};
            }
            ++batch.skipped;
            continue;
        }
        const std::size_t size = batch.request.size() + 2 * RequestWriter::sizeOfTraining(record.label, "") +
                                 RequestWriter::sizeOfTraining("", record.text);
        const bool isFull = batch.texts == _options.batchTexts || size > _batchBytes ||
                            batch.request.callCount() + 2 > RequestWriter::MAX_ELEMENTS;
        if (isFull && batch.texts > 0) {
            break;
        }
        if (classes.insert(record.label).second) {
            batch.request.addClass(record.label);
        }
        batch.request.train(record.label, batch.request.addText(record.text), record.place);
        ++batch.texts;
    }
    return batch;
}

void Importer::sendBatch() {
    const Classes before = requireInformation();
    const Batch batch = makeBatch(before);
    _journal.open = OpenBatch{batch.records, batch.skipped, _guard, before};
    if (batch.texts > 0) {
        _file.save(_journal);
        _textsSent = batch.texts;
        try {
            ask(_exchange, batch.request);
        } catch (const Failure& failure) {
            if (failure.code != ExitCode::REFUSED) {
                throw;
            }
            return dealWithRefusal(failure, batch);
        }
    }
    _refusals = 0;
    ++_counts.batches;
    _counts.texts += batch.texts;
    finishBatch();
}

// Nothing was learned, that is certain. Returns if there is something else to try.
void Importer::dealWithRefusal(const Failure& refusal, const Batch& batch) {
    ++_counts.refusals;
    if (refusal.status == statusCode::REQUEST_TOO_LARGE && batch.texts == 1 && _options.skipBad) {
        ++_journal.open->skipped;
        return finishBatch();
    }
    _journal.open.reset();
    if (refusal.status == statusCode::REQUEST_TOO_LARGE && batch.texts > 1) {
        _batchBytes = batch.request.size() / 2;
        return;
    }
    ++_refusals;
    if (refusal.status >= statusCode::INTERNAL_ERROR && _refusals <= _options.retries) {
        _batchBytes = refusal.status == statusCode::OUT_OF_MEMORY ? batch.request.size() / 2 : _batchBytes;
        return pauseBeforeRetry(_refusals);
    }
    // Somebody else may have added a class at the same time, which the next look shows.
    if (refusal.status == statusCode::BAD_REQUEST && _refusals == 1) {
        return;
    }
    _file.save(_journal);
    if (refusal.status == statusCode::REQUEST_TOO_LARGE) {
        const Record& record = _pending[batch.records - 1];
        throw Failure{ExitCode::REFUSED,
                      "The text in " + record.place + " is larger than the server takes in one request:\n" +
                          refusal.message,
                      "Have its maxInput raised, or pass such texts over: --skip-bad", refusal.status};
    }
    throw refusal;
}

void Importer::finishBatch() {
    _journal.records += _journal.open->records;
    _journal.skipped += _journal.open->skipped;
    _pending.erase(_pending.begin(), _pending.begin() + static_cast<std::ptrdiff_t>(_journal.open->records));
    _journal.open.reset();
    _counts.records = _journal.records;
    _counts.skipped = _journal.skipped;
    _watcher(_counts);
}

void Importer::settle() {
    if (!fill(_journal.open->records)) {
        throw Failure{ExitCode::LOCAL_FILE, "The input has become shorter during the import.",
                      "Bring it back as it was and run the same command again."};
    }
    Classes now = requireInformation();
    if (!wasTaken(now) && (isAsBefore(now) || !_assume.empty())) {
        raiseFence(now);
        now = requireInformation();
    }
    const bool isTaken = wasTaken(now);
    if (!isTaken && !isAsBefore(now) && _assume.empty()) {
        throw Failure{
            ExitCode::DIFFERENT,
            "The connection ended while a batch of " + std::to_string(_journal.open->records) +
                " texts was on its way, and since then somebody else has written to the classifier '" +
                _options.classifier + "'. Nothing shows any longer whether the batch was learned.",
            "Decide: --assume taken goes on behind the batch, --assume not-taken sends it again. Whoever "
            "can't tell trains into a new classifier."};
    }
    ++_counts.refusals;
    if (isTaken || (_assume == "taken" && !isAsBefore(now))) {
        _counts.texts += _textsSent;
        _counts.batches += _textsSent > 0 ? 1 : 0;
        finishBatch();
    } else {
        _journal.open.reset();
    }
    // The choice was about the batch that an interrupted run had left.
    _assume.clear();
}

bool Importer::isFence(const std::string& className) const {
    return (_journal.open && _journal.open->guard == className) ||
           std::any_of(_journal.fences.begin(), _journal.fences.end(),
                       [&](const Fence& fence) { return fence.className == className; });
}

bool Importer::isAsBefore(const Classes& now) const {
    const auto relevant = [this](const Classes& classes) {
        std::map<std::string, std::pair<std::uint64_t, std::uint64_t>> all;
        for (const ClassCounts& counts : classes) {
            if (!isFence(counts.className)) {
                all[counts.className] = {counts.uniqueFeatures, counts.totalCount};
            }
        }
        return all;
    };
    return relevant(now) == relevant(_journal.open->before);
}

bool Importer::wasTaken(const Classes& now) {
    const auto totalsOf = [this](const Classes& classes) {
        std::map<std::string, std::uint64_t> totals;
        for (const ClassCounts& counts : classes) {
            if (!isFence(counts.className)) {
                totals[counts.className] = counts.totalCount;
            }
        }
        return totals;
    };
    const std::map<std::string, std::uint64_t> totals = totalsOf(now);
    // A classifier tells nobody its generation.
    for (std::uint32_t generation = FIRST_GENERATION; generation <= LAST_GENERATION; ++generation) {
        const auto extractor = classifier::makeFeatureExtractor(generation);
        std::map<std::string, std::uint64_t> expected = totalsOf(_journal.open->before);
        for (std::uint64_t i = 0; i < _journal.open->records; ++i) {
            const Record& record = _pending[i];
            if (!record.problem.empty()) {
                continue;
            }
            classifier::TokenCounts counts;
            extractor->extract(record.text, counts);
            std::uint64_t& total = expected[record.label];
            for (const classifier::TokenCounts::Entry& entry : counts) {
                total += entry.count;
            }
        }
        if (expected == totals) {
            return true;
        }
    }
    return false;
}

void Importer::raiseFence(const Classes& now) {
    const std::string guard = _journal.open->guard;
    if (std::none_of(_journal.fences.begin(), _journal.fences.end(),
                     [&](const Fence& fence) { return fence.className == guard; })) {
        // Written down first, so that no fence is ever left standing.
        _journal.fences.push_back({guard, secondsNow()});
        _file.save(_journal);
    }
    if (!hasClass(now, guard)) {
        RequestWriter request(_options.classifier);
        request.addClass(guard);
        try {
            ask(_exchange, request);
        } catch (const Failure& failure) {
            if (failure.code != ExitCode::REFUSED || !hasClass(requireInformation(), guard)) {
                throw;
            }
        }
    }
    _guard = makeGuard();
}

void Importer::removeFences(std::chrono::milliseconds age) {
    const auto isDue = [&](const Fence& fence) {
        return std::chrono::seconds(secondsNow() - fence.since) >= age;
    };
    for (auto fence = _journal.fences.begin(); fence != _journal.fences.end();) {
        if (!isDue(*fence)) {
            ++fence;
            continue;
        }
        const std::string name = fence->className;
        if (hasClass(requireInformation(), name)) {
            RequestWriter request(_options.classifier);
            request.removeClass(name);
            try {
                ask(_exchange, request);
            } catch (const Failure& failure) {
                // A removal of which no answer came may have run since the look at the classes.
                if (failure.code != ExitCode::REFUSED || hasClass(requireInformation(), name)) {
                    throw;
                }
            }
        }
        fence = _journal.fences.erase(fence);
    }
}

}  // namespace halvern::morvane::client
