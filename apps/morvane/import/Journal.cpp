#include "import/Journal.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "Failure.h"
#include "data/Fnv.h"
#include "io/filesystem/SaveFile.h"

namespace halvern::morvane::client {

namespace {

using nlohmann::json;

constexpr int VERSION = 1;

json toJson(const std::vector<ClassCounts>& classes) {
    json all = json::array();
    for (const ClassCounts& counts : classes) {
        all.push_back({counts.className, counts.uniqueFeatures, counts.totalCount});
    }
    return all;
}

std::vector<ClassCounts> countsOf(const json& all) {
    std::vector<ClassCounts> classes;
    for (const json& counts : all) {
        classes.push_back({counts.at(0), counts.at(1), counts.at(2)});
    }
    return classes;
}

// Deletes the unfinished files of saves that a kill cut short. Their names hold that of the journal, so that
// whoever holds its lock deletes nobody else's.
void removeLeftovers(const std::filesystem::path& journal) {
    namespace fs = std::filesystem;
    const std::string beginning = "." + journal.filename().string() + ".";
    constexpr std::string_view REST = "XXXXXX.tmp";
    std::error_code error;
    for (fs::directory_iterator entry(fs::absolute(journal).parent_path(), error), end;
         !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (name.size() == beginning.size() + REST.size() && name.starts_with(beginning) &&
            name.ends_with(".tmp")) {
            std::error_code ignored;
            fs::remove(entry->path(), ignored);
        }
    }
}

}  // namespace

JournalFile::JournalFile(const std::string& path, const io::filesystem::SaveFile& saver)
    : _path(path), _saver(saver) {
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    if (!folder.empty()) {
        std::filesystem::create_directories(folder, error);
    }
    // A file of its own, since saving puts a new file in the journal's place.
    const std::string lock = path + ".lock";
    _lock = ::open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (_lock < 0) {
        throw Failure{ExitCode::LOCAL_FILE,
                      "Can't write the journal '" + path + "': " + std::strerror(errno) + ".",
                      "Choose another place: --journal FILE"};
    }
    // Whoever ends removes the name, so the lock counts only if the name still leads to what is locked.
    struct stat held = {};
    struct stat named = {};
    if (::flock(_lock, LOCK_EX | LOCK_NB) != 0 || ::fstat(_lock, &held) != 0 ||
        ::stat(lock.c_str(), &named) != 0 || held.st_ino != named.st_ino) {
        ::close(_lock);
        throw Failure{ExitCode::LOCAL_FILE, "Another import of this input into this classifier is running.",
                      "Wait for it, or end it. It holds " + lock + "."};
    }
    removeLeftovers(path);
}

JournalFile::~JournalFile() { ::close(_lock); }

std::optional<Journal> JournalFile::load() const {
    std::ifstream in(_path, std::ios::binary);
    if (!in.is_open() && !std::filesystem::exists(_path)) {
        return std::nullopt;
    }
    try {
        const json stored = json::parse(in);
        if (stored.at("version") != VERSION) {
            throw Failure{ExitCode::LOCAL_FILE,
                          "The journal '" + _path + "' is of another version of this program.",
                          "End the import with the version that began it."};
        }
        Journal journal;
        journal.server = stored.at("server");
        journal.classifier = stored.at("classifier");
        journal.input = stored.at("input");
        journal.reading = stored.at("reading");
        journal.fingerprint = stored.at("fingerprint");
        journal.records = stored.at("records");
        journal.skipped = stored.at("skipped");
        if (const json& open = stored.at("open"); !open.is_null()) {
            journal.open = OpenBatch{open.at("records"), open.at("skipped"), open.at("guard"),
                                     countsOf(open.at("before"))};
        }
        for (const json& fence : stored.at("fences")) {
            journal.fences.push_back({fence.at("class"), fence.at("since")});
        }
        return journal;
    } catch (const json::exception& e) {
        throw Failure{
            ExitCode::LOCAL_FILE, "The journal '" + _path + "' can't be read: " + e.what() + ".",
            "If the import shall begin anew, use --restart: texts that were learned are learned again."};
    }
}

void JournalFile::save(const Journal& journal) const {
    json open;
    if (journal.open) {
        open = {{"records", journal.open->records},
                {"skipped", journal.open->skipped},
                {"guard", journal.open->guard},
                {"before", toJson(journal.open->before)}};
    }
    json fences = json::array();
    for (const Fence& fence : journal.fences) {
        fences.push_back({{"class", fence.className}, {"since", fence.since}});
    }
    const json stored = {{"version", VERSION},
                         {"server", journal.server},
                         {"classifier", journal.classifier},
                         {"input", journal.input},
                         {"reading", journal.reading},
                         {"fingerprint", journal.fingerprint},
                         {"records", journal.records},
                         {"skipped", journal.skipped},
                         {"open", open},
                         {"fences", fences}};
    const std::string text = stored.dump(1, ' ', false, json::error_handler_t::replace) + "\n";
    try {
        _saver.save(_path, util::Bytes(text.begin(), text.end()));
    } catch (const io::filesystem::SaveFileException& e) {
        throw Failure{
            ExitCode::LOCAL_FILE, "The journal '" + _path + "' can't be written: " + e.what(),
            "Without it an interruption could make texts count twice, so the import stops here. Make room "
            "and run the same command again."};
    }
}

void JournalFile::remove() const {
    ::unlink(_path.c_str());
    ::unlink((_path + ".lock").c_str());
}

std::string journalPath(const Environment& environment, const std::string& server,
                        const std::string& classifier, const std::string& input) {
    std::string folder = environment("XDG_STATE_HOME").value_or("");
    if (!folder.starts_with('/')) {
        // Other paths than absolute ones are to be ignored (XDG Base Directory Specification 0.8).
        folder = environment("HOME").value_or(".") + "/.local/state";
    }
    Fnv hash;
    for (const std::string& part : {server, classifier, input}) {
        hash.add(part);
        hash.add('\0');
    }
    return folder + "/morvane/import-" + hash.text() + ".json";
}

}  // namespace halvern::morvane::client
