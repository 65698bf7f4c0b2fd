#include "verbs/SourceOptions.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <istream>

#include "Failure.h"
#include "server/RequestWriter.h"

namespace halvern::morvane::client {

namespace {

constexpr const char* FORMATS[] = {"tsv", "csv", "jsonl", "folder"};

// A pipe, such as a shell makes of <(...), gives its bytes to the first reader only.
bool isReadOnlyOnce(const std::string& path) {
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

}  // namespace

SourceOptions::~SourceOptions() {
    if (_descriptor >= 0) {
        ::close(_descriptor);
    }
}

void SourceOptions::declare(CLI::App& verb, const std::string& inputs) {
    verb.add_option("INPUT", _input, inputs)->required();
    verb.add_option("--format", _source.format, "tsv, csv, jsonl or folder; else the name of the input tells")
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"tsv", "csv", "jsonl", "folder"}).description(""));
    verb.add_option("--label-column", _source.labelColumn,
                    "Where the label is: a column's name or number from 1, a member's name in JSON")
        ->type_name("COLUMN");
    verb.add_option("--text-column", _source.textColumn, "Where the text is, likewise")->type_name("COLUMN");
    verb.add_flag("--no-header", _hasNoHeader, "The first row of a CSV file is a record");
    verb.add_flag("--header", _source.tsvHeader, "The first line of a TSV file names the columns");
    verb.add_option("--delimiter", _delimiter, "Between the fields of a CSV file, else a comma")
        ->type_name("CHARACTER");
    verb.add_flag("--skip-bad", skipBad, "Pass records over that can't be used, and count them");
    verb.add_option("--batch", batchTexts, "Most texts in one request")
        ->check(CLI::Range(std::size_t{1}, RequestWriter::MAX_ELEMENTS))
        ->capture_default_str();
    verb.add_option(
            "--max-request", batchBytes,
            "Most bytes in one request, unless a single text has more; halved while the server refuses them")
        ->check(CLI::Range(std::size_t{1000}, std::size_t{1'000'000'000}))
        ->capture_default_str();
}

void SourceOptions::prepare(Context& context) {
    if (_delimiter.size() != 1 || _delimiter == "\"" || _delimiter == "\n" || _delimiter == "\r") {
        throw Failure{ExitCode::USAGE, "'" + _delimiter + "' can't stand between the fields of a CSV file.",
                      "One character: --delimiter ';'"};
    }
    _source.delimiter = _delimiter.front();
    _source.hasHeader = !_hasNoHeader;
    _source.path = _input;
    while (_source.path.size() > 1 && _source.path.ends_with('/')) {
        _source.path.pop_back();
    }
    if (_input == "-" || isReadOnlyOnce(_source.path)) {
        keepInput(context);
    }
}

void SourceOptions::keepInput(Context& context) {
    const bool isStandard = _input == "-";
    if (isStandard && _source.format.empty()) {
        throw Failure{ExitCode::USAGE, "Nothing tells the format of the standard input.",
                      "Name it: --format tsv, csv or jsonl"};
    }
    _source.format = FORMATS[static_cast<int>(formatOf(_source))];  // which the new name doesn't tell
    std::ifstream pipe;
    if (!isStandard) {
        pipe.open(_source.path, std::ios::binary);
        if (!pipe) {
            throw Failure{ExitCode::LOCAL_FILE, "Can't open '" + _input + "': " + std::strerror(errno) + "."};
        }
    }
    std::istream& in = isStandard ? context.in() : pipe;
    std::string pattern = (std::filesystem::temp_directory_path() / "morvane-XXXXXX").string();
    _descriptor = ::mkostemp(pattern.data(), O_CLOEXEC);
    ::unlink(pattern.c_str());
    char buffer[1 << 16];
    bool isKept = _descriptor >= 0;
    while (isKept && (in.read(buffer, sizeof(buffer)) || in.gcount() > 0)) {
        isKept = ::write(_descriptor, buffer, static_cast<std::size_t>(in.gcount())) == in.gcount();
    }
    if (!isKept) {
        throw Failure{ExitCode::LOCAL_FILE,
                      std::string("Can't keep the input in a temporary file: ") + std::strerror(errno) + ".",
                      "Make room, or name another folder: TMPDIR=FOLDER morvane ..."};
    }
    _source.path = "/proc/self/fd/" + std::to_string(_descriptor);
}

std::string SourceOptions::fullName() const {
    std::error_code error;
    const std::filesystem::path full = std::filesystem::canonical(_source.path, error);
    return _input == "-" || error ? _input : full.string();
}

std::string SourceOptions::reading() const {
    return std::string(FORMATS[static_cast<int>(formatOf(_source))]) + " label=" + _source.labelColumn +
           " text=" + _source.textColumn + (_source.hasHeader ? "" : " no-header") +
           (_source.tsvHeader ? " header" : "") + " delimiter=" + _source.delimiter;
}

}  // namespace halvern::morvane::client
