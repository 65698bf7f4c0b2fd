#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <variant>
#include <vector>

#include "classifier/Classification.h"
#include "windows/com/xml/Document.h"
#include "windows/com/xml/SchemaCache.h"

namespace halvern::morvane {

// A keyword as a client sees it, which owns its bytes.
struct ParsedKeyword {
    std::string token;
    std::string className;
    double probability = 0;
};

// What a response showed of one read call: of classify, classifyKeywords or getInformation.
using ParsedResult = std::variant<classifier::Classification, std::vector<ParsedKeyword>,
                                  std::vector<classifier::ClassInformation>>;

// What a client reads out of a response. The results of write calls, which say nothing, aren't read.
struct ParsedResponse {
    std::string version;
    bool success = false;
    std::int32_t code = 0;                          // one of namespace statusCode
    std::string errorMessage;                       // of a failure
    std::map<std::string, ParsedResult> responses;  // by the id of the call
};

// Reads responses, and only those that the response schema finds valid. Belongs to one thread, in which a
// windows::com::xml::Library has to live.
class ResponseValidator {
public:
    // schemaFolder ends with a slash. Throws windows::com::xml::XMLException.
    explicit ResponseValidator(const std::string& schemaFolder);

    // The bytes may be any. Throws windows::com::xml::XMLException if they are no valid response, and
    // exceptions::NumberFormatException for a number that the schema admits and the program can't hold.
    ParsedResponse parse(const std::string& response) const;

    // The version that an error response carries, whatever the request said.
    std::string schemaVersion() const;

private:
    windows::com::xml::Document _schema;
    windows::com::xml::SchemaCache _schemas;
};

}  // namespace halvern::morvane
