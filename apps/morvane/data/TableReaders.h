#pragma once

#include <optional>
#include <string>
#include <vector>

#include "data/Input.h"
#include "data/RecordReader.h"

namespace halvern::morvane::client {

// Which fields of a row hold what, from 0.
struct Columns {
    std::size_t label = 0;
    std::size_t text = 1;
    std::size_t most = 0;  // fields in a row; 0: any number
};

// Lines of fields between tabs, in which nothing is quoted and no text holds a tab or a line end.
//
// Without a choice of columns the first tab ends the label and all behind it is the text.
class TsvReader final : public RecordReader {
public:
    explicit TsvReader(const RecordSource& source);
    bool next(Record& record) override;
    std::uint64_t position() const override { return _input.position(); }
    std::uint64_t size() const override { return _input.size(); }

private:
    Input _input;
    std::optional<Columns> _columns;
    std::string _line;
};

// Comma-separated values as in RFC 4180: CRLF or LF ends a row, quotes enclose fields with delimiters, line
// ends and doubled quotes.
class CsvReader final : public RecordReader {
public:
    explicit CsvReader(const RecordSource& source);
    bool next(Record& record) override;
    std::uint64_t position() const override { return _input.position(); }
    std::uint64_t size() const override { return _input.size(); }

private:
    // Fills _fields with the next row and tells what is wrong with it, if anything. The number of fields is 0
    // at the end only.
    std::string readRow();
    // Returns what is wrong with the field, which goes to the end of the row in that case.
    std::string readField(std::string& field);
    bool atRowEnd();

    Input _input;
    const char _delimiter;
    Columns _columns;
    std::vector<std::string> _fields;
};

}  // namespace halvern::morvane::client
