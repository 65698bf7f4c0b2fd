#include "data/JsonLinesReader.h"

#include <nlohmann/json.hpp>

namespace halvern::morvane::client {

JsonLinesReader::JsonLinesReader(const RecordSource& source)
    : _input(source.path),
      _labelMember(source.labelColumn.empty() ? "label" : source.labelColumn),
      _textMember(source.textColumn.empty() ? "text" : source.textColumn) {}

bool JsonLinesReader::next(Record& record) {
    record = Record();
    do {
        record.place = "line " + std::to_string(_input.line());
        if (!_input.getLine(_line)) {
            return false;
        }
    } while (_line.find_first_not_of(" \t") == std::string::npos);

    using nlohmann::json;
    json object;
    try {
        object = json::parse(_line);
    } catch (const json::exception& e) {
        record.problem = std::string("is no JSON: ") + e.what();
        return true;
    }
    if (!object.is_object()) {
        record.problem = "is no JSON object";
        return true;
    }
    const auto label = object.find(_labelMember);
    const auto text = object.find(_textMember);
    if (label == object.end() || text == object.end()) {
        record.problem = "has no member '" + (label == object.end() ? _labelMember : _textMember) + "'";
    } else if (!label->is_string() && !label->is_number() && !label->is_boolean()) {
        record.problem = "has a label that is neither string nor number";
    } else if (!text->is_string()) {
        record.problem = "has a text that is no string";
    } else {
        record.label = label->is_string() ? label->get<std::string>() : label->dump();
        record.text = text->get<std::string>();
        record.problem = problemOfLabel(record.label);
    }
    return true;
}

}  // namespace halvern::morvane::client
