#include "data/TableReaders.h"

#include <strings.h>

#include <algorithm>

#include "Failure.h"

namespace halvern::morvane::client {

namespace {

std::vector<std::string> splitAtTabs(const std::string& line) {
    std::vector<std::string> fields;
    std::size_t start = 0;
    for (std::size_t tab = line.find('\t'); tab != std::string::npos; tab = line.find('\t', start)) {
        fields.push_back(line.substr(start, tab - start));
        start = tab + 1;
    }
    fields.push_back(line.substr(start));
    return fields;
}

bool isNumber(const std::string& text) {
    return !text.empty() && text.size() < 6 && text.find_first_not_of("0123456789") == std::string::npos;
}

// header is empty if the input has none.
std::optional<std::size_t> findColumn(const std::vector<std::string>& header, const std::string& column) {
    const auto exact = std::find(header.begin(), header.end(), column);
    if (exact != header.end()) {
        return static_cast<std::size_t>(exact - header.begin());
    }
    if (isNumber(column) && std::stoul(column) > 0) {
        return std::stoul(column) - 1;
    }
    const auto folded = std::find_if(header.begin(), header.end(), [&](const std::string& name) {
        return ::strcasecmp(name.c_str(), column.c_str()) == 0;
    });
    if (folded != header.end()) {
        return static_cast<std::size_t>(folded - header.begin());
    }
    return std::nullopt;
}

std::size_t requireColumn(const std::vector<std::string>& header, const std::string& wanted,
                          const char* usual, std::size_t otherwise) {
    const std::optional<std::size_t> found = findColumn(header, wanted.empty() ? usual : wanted);
    if (found && (header.empty() || *found < header.size())) {
        return *found;
    }
    if (wanted.empty() && header.size() <= 2) {
        return otherwise;
    }
    std::string message = "There is no column '" + (wanted.empty() ? std::string(usual) : wanted) + "'.";
    if (!header.empty()) {
        message += " The columns are:";
        for (const std::string& name : header) {
            message += " '" + name + "'";
        }
        message += ".";
    }
    throw Failure{wanted.empty() || !header.empty() ? ExitCode::LOCAL_FILE : ExitCode::USAGE, message,
                  "Name the columns, or number them from 1: --label-column 1 --text-column 2"};
}

Columns columnsOf(const std::vector<std::string>& header, const RecordSource& source) {
    const bool isChosen = !source.labelColumn.empty() || !source.textColumn.empty();
    const Columns columns = {requireColumn(header, source.labelColumn, "label", 0),
                             requireColumn(header, source.textColumn, "text", 1),
                             !header.empty() ? header.size() : std::size_t{isChosen ? 0U : 2U}};
    if (columns.label == columns.text) {
        throw Failure{ExitCode::USAGE, "Label and text can't be the same column.",
                      "Choose them with --label-column and --text-column."};
    }
    return columns;
}

std::string placeOf(std::uint64_t line) { return "line " + std::to_string(line); }

// A quote that nobody closed costs its own line, but not all that follow: most of those were records.
void requireOneLine(std::uint64_t first, std::uint64_t last) {
    if (last > first) {
        throw Failure{ExitCode::LOCAL_FILE,
                      "The quote that opens a field in " + placeOf(first) + " is never closed, so that all " +
                          std::to_string(last - first + 1) + " lines from there to the end are one field.",
                      "Close it, or take these lines out; --skip-bad can't tell what they hold."};
    }
}

void take(Record& record, std::vector<std::string>& fields, const Columns& columns) {
    const std::size_t needed = std::max(columns.label, columns.text) + 1;
    if (fields.size() < needed) {
        record.problem = "has " + std::to_string(fields.size()) +
                         (fields.size() == 1 ? " field" : " fields") +
                         ", and the label or the text is field " + std::to_string(needed);
        return;
    }
    // A delimiter in a text that isn't quoted would cut the text short. Empty fields at the end are harmless.
    while (!fields.empty() && fields.back().empty()) {
        fields.pop_back();
    }
    if (columns.most > 0 && fields.size() > columns.most) {
        record.problem = "has " + std::to_string(fields.size()) + " fields, and there are " +
                         std::to_string(columns.most) + " columns";
        return;
    }
    fields.resize(std::max(fields.size(), needed));
    record.label = std::move(fields[columns.label]);
    record.text = std::move(fields[columns.text]);
    record.problem = problemOfLabel(record.label);
}

}  // namespace

TsvReader::TsvReader(const RecordSource& source) : _input(source.path) {
    if (source.tsvHeader) {
        _input.getLine(_line);
        _columns = columnsOf(splitAtTabs(_line), source);
    } else if (!source.labelColumn.empty() || !source.textColumn.empty()) {
        _columns = columnsOf({}, source);
    }
}

bool TsvReader::next(Record& record) {
    record = Record();
    do {
        record.place = placeOf(_input.line());
        if (!_input.getLine(_line)) {
            return false;
        }
    } while (_line.empty());
    if (_columns) {
        std::vector<std::string> fields = splitAtTabs(_line);
        take(record, fields, *_columns);
        return true;
    }
    const std::size_t tab = _line.find('\t');
    if (tab == std::string::npos) {
        record.problem = "has no tab between label and text";
        return true;
    }
    record.label = _line.substr(0, tab);
    record.text = _line.substr(tab + 1);
    record.problem = problemOfLabel(record.label);
    return true;
}

CsvReader::CsvReader(const RecordSource& source) : _input(source.path), _delimiter(source.delimiter) {
    if (source.hasHeader) {
        if (const std::string problem = readRow(); !problem.empty()) {
            throw Failure{ExitCode::LOCAL_FILE, "The header " + problem + "."};
        }
    }
    if (!_fields.empty() || !source.hasHeader) {
        _columns = columnsOf(_fields, source);
    }
}

bool CsvReader::next(Record& record) {
    record = Record();
    do {
        record.place = placeOf(_input.line());
        record.problem = readRow();
        if (_fields.empty()) {
            return false;
        }
        // An empty line is a row of one empty field, and between rows it means nothing.
    } while (record.problem.empty() && _fields.size() == 1 && _fields.front().empty());
    if (record.problem.empty()) {
        take(record, _fields, _columns);
    }
    return true;
}

bool CsvReader::atRowEnd() {
    if (_input.peek() == '\r') {
        _input.get();
        // A carriage return alone ends a row too: old spreadsheets write such files.
        if (_input.peek() == '\n') {
            _input.get();
        }
        return true;
    }
    if (_input.peek() == '\n') {
        _input.get();
        return true;
    }
    return _input.peek() == Input::END;
}

std::string CsvReader::readRow() {
    _fields.clear();
    if (_input.peek() == Input::END) {
        return {};
    }
    while (true) {
        std::string problem = readField(_fields.emplace_back());
        if (atRowEnd()) {
            return problem;
        }
        if (!problem.empty()) {
            std::string rest;
            _input.getLine(rest);
            return problem;
        }
        _input.get();
    }
}

std::string CsvReader::readField(std::string& field) {
    const auto endsField = [this](int byte) {
        return byte == Input::END || byte == _delimiter || byte == '\r' || byte == '\n';
    };
    if (_input.peek() != '"') {
        while (!endsField(_input.peek())) {
            if (_input.peek() == '"') {
                return "has a quote inside a field that isn't quoted";
            }
            field += static_cast<char>(_input.get());
        }
        return {};
    }
    const std::uint64_t start = _input.line();
    _input.get();
    while (true) {
        const int byte = _input.get();
        if (byte == Input::END) {
            requireOneLine(start, _input.line() - (field.ends_with('\n') ? 1 : 0));
            return "has a quoted field that begins in line " + std::to_string(start) + " and never ends";
        }
        if (byte == '"') {
            if (_input.peek() != '"') {
                break;
            }
            _input.get();
        }
        field += static_cast<char>(byte);
    }
    if (endsField(_input.peek())) {
        return {};
    }
    const std::string problem = "has something behind the closing quote of a field";
    return _input.line() == start
               ? problem
               : problem + " that goes from " + placeOf(start) + " to " + placeOf(_input.line());
}

}  // namespace halvern::morvane::client
