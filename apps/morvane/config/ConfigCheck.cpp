#include "config/ConfigCheck.h"

#include <algorithm>
#include <array>
#include <optional>

#include "Failure.h"
#include "Text.h"
#include "platform/memory/MemoryStatus.h"
#include "server/Configuration.h"
#include "server/Memory.h"
#include "util/EscapeXml.h"
#include "util/StringHelper.h"
#include "windows/com/xml/Document.h"
#include "windows/com/xml/Element.h"
#include "windows/com/xml/XMLException.h"

namespace halvern::morvane::client {

namespace {

using windows::com::xml::Document;
using windows::com::xml::Element;
using windows::com::xml::NodeList;

// A key and a value for it that the reader takes.
struct Key {
    const char* name;
    const char* soundValue;
};

constexpr std::array<Key, 8> KEYS = {{{"port", "9400"},
                                      {"maxInput", "20000000"},
                                      {"maxClients", "32"},
                                      {"clientQueueSize", "128"},
                                      {"classifierRootPath", ""},
                                      {"logLevel", "log"},
                                      {"logMemory", "false"},
                                      {"saveRequests", "false"}}};

constexpr const char* CONFIG_NAMESPACE = "http://morvane.example/1/config/ConfigSchema";

bool isKey(const std::string& name) {
    return std::any_of(KEYS.begin(), KEYS.end(), [&](const Key& key) { return name == key.name; });
}

// A sound configuration but for this one value.
std::string documentWith(const std::string& name, const std::string& value) {
    std::string document = std::string("<morvane xmlns=\"") + CONFIG_NAMESPACE + "\">";
    for (const Key& key : KEYS) {
        document += std::string("<") + key.name + ">" +
                    (key.name == name ? util::escapeXml(value) : std::string(key.soundValue)) + "</" +
                    key.name + ">";
    }
    return document + "</morvane>";
}

// The reader stops at the first value that it can't take, so each is shown to it alone.
std::optional<std::string> complaintAbout(const ConfigurationReader& reader, const std::string& key,
                                          const std::string& value) {
    try {
        const Configuration configuration = reader.readText(documentWith(key, value));
        if (configuration.clientQueueSize < 0) {
            return "the number of clients that may wait can't be below 0.";
        }
        return std::nullopt;
    } catch (const windows::com::xml::ValidateException&) {
        // Only this key is narrowed by the schema, whose own words are about data types.
        return "'" + value + "' isn't a whole number from 1.";
    } catch (const exceptions::Exception& e) {
        return e.what();
    }
}

// What the XML library found wrong comes with codes, a row of blanks and the system's last error around it.
std::string withoutDetails(const std::string& message) {
    const auto valueOf = [&](const std::string& lead) {
        const std::size_t place = message.find(lead);
        const std::size_t begin = place + lead.size();
        return place == std::string::npos ? ""
                                          : trimmed(message.substr(begin, message.find('\n', begin) - begin));
    };
    const std::string description = valueOf("\nDescription: ");
    return description.empty() ? trimmed(message) : "Line " + valueOf("\nLine: ") + ": " + description;
}

bool isBooleanWord(const std::string& value) {
    const std::string word = util::StringHelper::toLower(value);
    return word == "true" || word == "false" || word == "1" || word == "0";
}

bool isWholeNumber(const std::string& value) {
    const std::string digits = trimmed(value).substr(trimmed(value).starts_with('-') ? 1 : 0);
    return !digits.empty() && digits.find_first_not_of("0123456789") == std::string::npos;
}

void noteOddValue(const std::string& key, const std::string& value, ConfigFindings& findings) {
    if ((key == "logMemory" || key == "saveRequests") && !isBooleanWord(value)) {
        findings.notes.push_back(key + ": '" + value + "' counts as false. Write true or false.");
    } else if ((key == "port" || key == "maxInput" || key == "clientQueueSize") && !isWholeNumber(value)) {
        findings.notes.push_back(key + ": of '" + value + "' only the digits in front count.");
    }
}

// Element by element, what the schema would complain of one at a time and in its own terms.
void checkKeys(const ConfigurationReader& reader, const Document& document, ConfigFindings& findings) {
    const Element root = document.getRootElement();
    const NodeList children = root.selectNodes("*");
    for (std::int32_t i = 0; i < children.size(); ++i) {
        const std::string name = Element(children.getNode(i)).getTagName();
        if (!isKey(name)) {
            findings.complaints.push_back("There is no key '" + name + "'.");
        }
    }
    for (const Key& key : KEYS) {
        const std::string name = key.name;
        const NodeList found = root.selectNodes("mv:" + name);
        if (found.size() != 1) {
            findings.complaints.push_back(found.size() == 0
                                              ? "The key '" + name + "' is missing."
                                              : "The key '" + name + "' stands there " +
                                                    std::to_string(found.size()) + " times; once is right.");
            continue;
        }
        const std::string value = Element(found.getNode(0)).getText();
        if (const std::optional<std::string> complaint = complaintAbout(reader, name, value)) {
            findings.complaints.push_back(name + ": " + *complaint);
        } else {
            noteOddValue(name, value, findings);
        }
    }
}

void noteConsequences(const Configuration& configuration, ConfigFindings& findings) {
    constexpr std::int32_t NEEDED_BY_THE_BUILT_IN_TEST = 1000;
    if (configuration.port == 0) {
        findings.notes.push_back(
            "port: 0 lets the system choose; clients have to learn the port from the log.");
    }
    if (configuration.maxInput < 0) {
        findings.notes.push_back("maxInput: below 0 there is no limit, and one request may take all memory.");
    } else if (configuration.maxInput < NEEDED_BY_THE_BUILT_IN_TEST) {
        findings.notes.push_back("maxInput: hardly any request fits into " +
                                 std::to_string(configuration.maxInput) + " bytes.");
    }
    const double most =
        static_cast<double>(MEMORY_OF_A_REQUEST_BYTE) * configuration.maxInput * configuration.maxClients;
    if (most > static_cast<double>(platform::memory::MemoryStatusImpl().total())) {
        findings.notes.push_back(memoryOfRequests(configuration.maxInput, configuration.maxClients) +
                                 " This machine has less.");
    }
}

}  // namespace

ConfigFindings checkConfig(const std::string& schemaPath, const std::string& text) {
    ConfigFindings findings;
    try {
        Document().load(schemaPath);
    } catch (const windows::com::xml::XMLException& e) {
        throw Failure{ExitCode::LOCAL_FILE,
                      "The schema " + schemaPath + " can't be read: " + withoutDetails(e.what()),
                      "It has to lie beside the program, in xml/schemas/config/. Install it again."};
    }
    const ConfigurationReader reader(schemaPath);
    std::string firstFailure;
    try {
        noteConsequences(reader.readText(text), findings);
    } catch (const exceptions::Exception& e) {
        firstFailure = withoutDetails(e.what());
    }
    try {
        Document document;
        document.loadXml(text);
        document.setSelectionNamespaces(std::string("xmlns:mv='") + CONFIG_NAMESPACE + "'");
        if (document.selectNodes("/mv:morvane").size() == 1) {
            checkKeys(reader, document, findings);
        }
    } catch (const windows::com::xml::XMLException&) {
        // No XML at all: the reader has said so.
    }
    if (!firstFailure.empty() && findings.complaints.empty()) {
        findings.complaints.push_back(firstFailure);
    }
    return findings;
}

std::string commentedConfig() {
    return R"(<?xml version="1.0" encoding="utf-8" ?>
<!-- The configuration of a Morvane server: morvaneserver -config FILE reads it at its start. Every key must stand
     here exactly once. "morvane config check FILE" tells what is wrong with it. Relative paths count from the folder
     of the executable. -->
<morvane xmlns="http://morvane.example/1/config/ConfigSchema">

    <!-- TCP port, on all interfaces. The server knows no users: keep the port inside your network. -->
    <port>9400</port>

    <!-- The largest request in bytes; a negative number means no limit. In the worst case, requests need
         50 x maxInput x maxClients bytes of memory at once; ordinary ones need a tenth of that. -->
    <maxInput>20000000</maxInput>

    <!-- Connections at one time, from 1; others wait. -->
    <maxClients>32</maxClients>

    <!-- How many may wait. -->
    <clientQueueSize>128</clientQueueSize>

    <!-- The folder of the classifier files, one for each classifier. Copy them to back them up. -->
    <classifierRootPath>./classifiers/</classifierRootPath>

    <!-- The least important lines that the log gets: log, error, failure or test. -->
    <logLevel>log</logLevel>

    <!-- true adds the free memory to each line of the log. -->
    <logMemory>false</logMemory>

    <!-- true keeps a copy of each request in logs/requests/: for a search, not for every day. -->
    <saveRequests>false</saveRequests>
</morvane>
)";
}

}  // namespace halvern::morvane::client
