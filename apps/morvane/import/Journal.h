#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "server/Answer.h"
#include "server/Settings.h"

namespace io::filesystem {
class SaveFile;
}

namespace halvern::morvane::client {

// A class that keeps a request from taking effect which may still be under way; see Importer.
struct Fence {
    std::string className;
    std::int64_t since = 0;  // seconds since 1970
};

// A batch of which it isn't known yet whether the server has learned it.
struct OpenBatch {
    std::uint64_t records = 0;
    std::uint64_t skipped = 0;        // of these records, those that can't be sent
    std::string guard;                // the class of the fence that stops it
    std::vector<ClassCounts> before;  // the classifier just before the batch was sent
};

// How far an import has come, written down so that it can go on after any end of the program.
struct Journal {
    // What is imported where. An import with other words goes not on from this journal.
    std::string server;
    std::string classifier;
    std::string input;
    std::string reading;      // format and columns
    std::string fingerprint;  // of the input

    std::uint64_t records = 0;  // that are done with, whether learned or skipped
    std::uint64_t skipped = 0;
    std::optional<OpenBatch> open;
    std::vector<Fence> fences;
};

// Keeps one journal in a file, and the file for one process.
class JournalFile {
public:
    // Makes the folders on the way, and clears away what a save of this journal has left that was killed.
    // Throws Failure (LOCAL_FILE) if they can't be made or if another process holds this journal. saver must
    // outlive this object.
    JournalFile(const std::string& path, const io::filesystem::SaveFile& saver);
    JournalFile(const JournalFile&) = delete;
    JournalFile& operator=(const JournalFile&) = delete;
    ~JournalFile();

    const std::string& path() const { return _path; }

    // Nothing if there is no journal. Throws Failure (LOCAL_FILE) if there is one that can't be read.
    std::optional<Journal> load() const;
    // On the disk when it returns; a crash at any moment leaves the former journal or this one.
    void save(const Journal& journal) const;
    void remove() const;

private:
    const std::string _path;
    const io::filesystem::SaveFile& _saver;
    int _lock = -1;
};

// Where the journal of this import belongs: below $XDG_STATE_HOME/morvane or ~/.local/state/morvane, so that
// it needs no right to write beside the input.
std::string journalPath(const Environment& environment, const std::string& server,
                        const std::string& classifier, const std::string& input);

}  // namespace halvern::morvane::client
