#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "data/Record.h"

namespace halvern::morvane::client {

enum class RecordFormat { TSV, CSV, JSONL, FOLDER };

// Where labelled texts are and how to read them.
struct RecordSource {
    std::string path = {};
    std::string format = {};  // "tsv", "csv", "jsonl" or "folder"; empty: what the path says
    // A column's name or its number from 1; for JSON lines the name of a member. Empty: found by itself.
    std::string labelColumn = {};
    std::string textColumn = {};
    char delimiter = ',';   // of CSV
    bool hasHeader = true;  // of CSV
    bool tsvHeader = false;
};

// Gives the records of one input, one after the other, in an order that depends on the input alone.
class RecordReader {
public:
    virtual ~RecordReader() = default;

    // Fills the record and returns true; false at the end. What can't be used comes as a record with a
    // problem, and the next call goes on behind it. Throws Failure (LOCAL_FILE) if the input can't be read
    // any further.
    virtual bool next(Record& record) = 0;

    // Bytes read so far, out of size().
    virtual std::uint64_t position() const = 0;
    // Of the whole input in bytes; 0 if that can't be known, as with a pipe.
    virtual std::uint64_t size() const = 0;
};

// Throws Failure (USAGE) for an unknown format or columns that don't fit to it, Failure (LOCAL_FILE) if the
// input can't be opened or lacks the columns.
std::unique_ptr<RecordReader> openRecords(const RecordSource& source);

// The format that the source names or its path suggests: a folder, or the extensions .tsv, .txt, .csv,
// .jsonl, .ndjson and .json. Throws Failure (USAGE) if neither tells.
RecordFormat formatOf(const RecordSource& source);

// Why a class of this name can't be had, or nothing if it can. Names travel as attributes of the request: 1
// to 256 bytes without control characters; and a name that is no UTF-8 would come back from the server as
// another one.
std::string problemOfLabel(const std::string& label);

// 16 hexadecimal digits that change when anything changes that a reader of this source would give: FNV-1a
// over the names and contents of all files. It guards against accidents, not against forgery.
std::string fingerprintOf(const RecordSource& source);

}  // namespace halvern::morvane::client
