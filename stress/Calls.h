#pragma once

#include <cstddef>
#include <map>
#include <string>

namespace stress {

enum class Verb { CREATE, REMOVE, ADD_CLASS, REMOVE_CLASS, TRAIN, UNTRAIN };

struct Call {
    Verb verb;
    std::string className;  // where the verb wants one
    std::string word;       // of train and untrain
};

// The call as a request has it; its id is its place in the sequence, and a text has the id of its word.
inline std::string toXml(const Call& call, std::size_t place) {
    static const std::map<Verb, std::string> NAMES = {
        {Verb::CREATE, "create"},      {Verb::REMOVE, "remove"},
        {Verb::ADD_CLASS, "addClass"}, {Verb::REMOVE_CLASS, "removeClass"},
        {Verb::TRAIN, "train"},        {Verb::UNTRAIN, "untrain"}};
    std::string xml = "<" + NAMES.at(call.verb) + " id=\"" + std::to_string(place) + "\"";
    if (!call.className.empty()) {
        xml += " className=\"" + call.className + "\"";
    }
    if (!call.word.empty()) {
        xml += " textId=\"" + call.word + "\"";
    }
    return xml + "/>\n";
}

}  // namespace stress
