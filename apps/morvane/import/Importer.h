#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "data/RecordReader.h"
#include "import/Journal.h"
#include "server/Answer.h"
#include "server/Exchange.h"

namespace halvern::morvane::client {

struct ImportOptions {
    std::string classifier;
    bool create = false;
    bool skipBad = false;
    std::size_t batchTexts = 5000;
    std::size_t batchBytes = 4'000'000;
    int retries = 5;  // after the connection broke or the server failed, in a row
    std::chrono::milliseconds pause = std::chrono::seconds(1);  // before the first retry; doubles each time
    std::chrono::milliseconds fenceTime = std::chrono::seconds(5);  // that a fence stands at least
    std::chrono::milliseconds longFence =
        std::chrono::seconds(60);  // after which a fence goes while the import goes on
    std::string assume;  // "taken" or "not-taken", for an open batch about which the totals say nothing
};

struct ImportCounts {
    std::uint64_t records = 0;  // with those of former runs
    std::uint64_t skipped = 0;
    std::uint64_t texts = 0;  // learned in this run
    std::uint64_t batches = 0;
    std::uint64_t refusals = 0;  // batches that had to be sent again
};

// Learns labelled texts in batches, each text exactly once, whatever ends the program or the connection.
//
// A batch is one write sequence, which the server takes as a whole or not at all. Before a batch goes out,
// the journal says how many records are done with and what the classifier holds. If no answer comes, the
// totals of the classifier tell whether the batch was taken: they are those of before, or those of before
// plus what the features of the batch add up to. Anything else means that somebody else has written, and a
// person has to decide.
//
// "Those of before" alone doesn't say that the batch won't be taken yet: it may still wait in the server, be
// it behind others or in a thread that has no turn. Therefore each batch begins with adding and removing one
// class, its guard, of which nobody ever sees anything. If no answer came, the importer adds that class
// itself, the fence. Write sequences run one after the other, so the batch either came before the fence, and
// the totals show it, or it finds the class there and fails for good. The fence has learned nothing, is seen
// by whoever reads the classifier meanwhile, and goes when the import has ended and no request can be under
// way any longer.
class Importer {
public:
    // Waits so long, or throws Failure (INTERRUPTED) earlier.
    using Wait = std::function<void(std::chrono::milliseconds)>;
    // Is told after each batch.
    using Watcher = std::function<void(const ImportCounts&)>;

    // Goes on where the journal ends. All that is referred to must outlive the importer.
    Importer(const ImportOptions& options, Exchange& exchange, RecordReader& reader, const JournalFile& file,
             Journal journal, Wait wait, Watcher watcher);

    // Returns when all records are learned or skipped, and the journal is gone. Throws Failure; unless it
    // says otherwise, the journal stays and another Importer goes on from it.
    ImportCounts run();

private:
    struct Batch;
    using Classes = std::vector<ClassCounts>;

    void passOver(std::uint64_t records);
    // Brings the import one batch further, or an open batch to its end. False if nothing is left to do.
    bool step();
    // Calls work, and again with growing pauses as long as the server can't be reached.
    void withRetries(const std::function<void()>& work);
    void pauseBeforeRetry(int attempt);

    // Nothing if there is no such classifier.
    std::optional<Classes> information();
    Classes requireInformation();
    void createIfNeeded();

    // Reads ahead. False if there aren't that many records.
    bool fill(std::size_t records);
    Batch makeBatch(const Classes& before);
    void sendBatch();
    void dealWithRefusal(const Failure& refusal, const Batch& batch);
    void finishBatch();

    // Finds out whether the open batch was learned. It is finished then, or else no batch is open any longer.
    void settle();
    bool wasTaken(const Classes& now);
    bool isAsBefore(const Classes& now) const;
    void raiseFence(const Classes& now);
    void removeFences(std::chrono::milliseconds age);
    bool isFence(const std::string& className) const;

    const ImportOptions& _options;
    Exchange& _exchange;
    RecordReader& _reader;
    const JournalFile& _file;
    Journal _journal;
    const Wait _wait;
    const Watcher _watcher;
    ImportCounts _counts;
    std::deque<Record> _pending;  // read, and not yet done with
    std::string _guard;
    std::string _assume;
    std::size_t _batchBytes;
    std::uint64_t _textsSent = 0;  // in the open batch, if this run has sent it
    int _refusals = 0;             // in a row
};

}  // namespace halvern::morvane::client
