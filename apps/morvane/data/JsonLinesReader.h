#pragma once

#include <string>

#include "data/Input.h"
#include "data/RecordReader.h"

namespace halvern::morvane::client {

// One JSON object a line (RFC 8259, jsonlines.org). The label may be a string, a number or a truth value; the
// text is a string. Members are "label" and "text" unless the source names others.
class JsonLinesReader final : public RecordReader {
public:
    explicit JsonLinesReader(const RecordSource& source);
    bool next(Record& record) override;
    std::uint64_t position() const override { return _input.position(); }
    std::uint64_t size() const override { return _input.size(); }

private:
    Input _input;
    const std::string _labelMember;
    const std::string _textMember;
    std::string _line;
};

}  // namespace halvern::morvane::client
