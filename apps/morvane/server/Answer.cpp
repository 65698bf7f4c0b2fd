#include "server/Answer.h"

#include <algorithm>
#include <limits>

#include "Text.h"
#include "server/ElementNames.h"
#include "server/StatusCode.h"
#include "util/Numbers.h"
#include "windows/com/xml/Document.h"
#include "windows/com/xml/Element.h"
#include "windows/com/xml/Library.h"
#include "windows/com/xml/XMLException.h"

namespace halvern::morvane::client {

namespace {

using windows::com::xml::Element;
using windows::com::xml::NodeList;

constexpr const char* RESPONSE_NAMESPACE = "http://morvane.example/1/server/ResponseSchema";

// What helps against a refusal whose text holds these words. The first that fits is it.
struct Advice {
    const char* words;
    const char* hint;
};

constexpr Advice ADVICE[] = {
    {"The requested classifier could not be found",
     "Mind the spelling, or make it: morvane create CLASSIFIER CLASS..."},
    {"Trying to create a classifier that already exists",
     "Use it as it is ('morvane info CLASSIFIER' shows it), or 'morvane remove' it first."},
    {"Trying to add an already existing class",
     "There is nothing to do: 'morvane info CLASSIFIER' lists it."},
    {"has 65535 classes", "Remove a class, or spread the classes over several classifiers."},
    {"Trying to remove a nonexisting class",
     "Mind the spelling, upper and lower case too: 'morvane info CLASSIFIER' lists the classes."},
    {"Trying to train on a class that doesn't exist",
     "Mind the spelling, upper and lower case too, or add it: morvane add-class CLASSIFIER CLASS"},
    {"Trying to untrain",
     "Mind the spelling, upper and lower case too: 'morvane info CLASSIFIER' lists the classes."},
    {"beyond a total count of", "The class is full. Untrain old texts, or go on in another class."},
    {"into a class more than", "The class is full. Untrain old texts, or go on in another class."},
    {"has reached the maximum allowed size", "The limit is your own --max-size. Raise it or leave it out."},
    {"before any classes have been added",
     "Give it classes and texts first: morvane add-class CLASSIFIER CLASS..., then morvane train."},
    {"seems to be corrupt",
     "The file of the classifier is damaged: bring it back from a backup, or remove it and train anew."},
    {"with empty training data",
     "The file of the classifier is damaged: bring it back from a backup, or remove it and train anew."},
    {"Validation of an request failed",
     "The request breaks the request language; docs/protocol.md tells what is allowed."},
    {"trying to read xml parameters", "The request is no sound XML; docs/protocol.md shows sound ones."},
    {"trying to write the file", "The server couldn't save: is its disk full? Tell its operator."},
    {"to open the file for writing", "The server couldn't save: has it lost its rights? Tell its operator."},
    {"because the data size was too big",
     "The classifier would pass 2 GiB. Remove classes, or spread them over several classifiers."},
};

std::string hintFor(const Answer& answer) {
    for (const Advice& advice : ADVICE) {
        if (answer.message().find(advice.words) != std::string::npos) {
            return advice.hint;
        }
    }
    switch (answer.statusCode()) {
        case statusCode::REQUEST_TOO_LARGE:
            return "The request has more bytes than the server takes (maxInput). Send fewer or shorter texts "
                   "at "
                   "once, or have maxInput raised; 'morvane import' finds a size that fits.";
        case statusCode::OUT_OF_MEMORY:
            return "The server ran out of memory; nothing was changed. Try again later, or with fewer texts.";
        case statusCode::INTERNAL_ERROR:
            return "Nothing was changed. Tell the server's operator, whose log has more, and try again "
                   "later.";
        default:
            return "Nothing was changed. docs/protocol.md explains the words.";
    }
}

template <class Use>
void forEach(const NodeList& nodes, Use use) {
    for (std::int32_t i = 0; i < nodes.size(); ++i) {
        use(Element(nodes.getNode(i)));
    }
}

template <class Use>
void forEachChild(const Element& parent, Use use) {
    forEach(parent.selectNodes("*"), use);
}

std::uint64_t countOf(const Element& element) {
    return static_cast<std::uint64_t>(
        util::toInteger(element.getText(), 0, std::numeric_limits<std::int64_t>::max() - 1));
}

Classified classifiedOf(const Element& call) {
    Classified classified;
    forEachChild(call, [&](const Element& block) {
        if (block.hasAttribute(elementNames::TEXT_COVERAGE)) {
            classified.textCoverage = util::toDouble(block.getAttribute(elementNames::TEXT_COVERAGE));
        }
        forEachChild(block, [&](const Element& entry) {
            classified.classes.push_back({entry.getAttribute(elementNames::CLASS_NAME),
                                          util::toDouble(entry.getAttribute(elementNames::PROBABILITY))});
        });
    });
    return classified;
}

std::vector<Keyword> keywordsOf(const Element& call) {
    std::vector<Keyword> keywords;
    forEachChild(call, [&](const Element& block) {
        forEachChild(block, [&](const Element& entry) {
            keywords.push_back({entry.getText(), entry.getAttribute(elementNames::CLASS_NAME),
                                util::toDouble(entry.getAttribute(elementNames::PROBABILITY))});
        });
    });
    std::stable_sort(keywords.begin(), keywords.end(),
                     [](const Keyword& a, const Keyword& b) { return a.probability > b.probability; });
    return keywords;
}

std::vector<ClassCounts> countsOf(const Element& call) {
    std::vector<ClassCounts> classes;
    forEachChild(call, [&](const Element& block) {
        forEachChild(block, [&](const Element& entry) {
            ClassCounts counts{entry.getAttribute(elementNames::CLASS_NAME)};
            forEachChild(entry, [&](const Element& count) {
                (count.getTagName() == "uniqueFeatures" ? counts.uniqueFeatures : counts.totalCount) =
                    countOf(count);
            });
            classes.push_back(std::move(counts));
        });
    });
    return classes;
}

// The server tells the call behind its reason. Names can't hold a line end, so that they can't imitate this.
std::string failedCallIn(const std::string& message) {
    constexpr std::string_view LEAD = "\nCall id: ";
    const std::size_t place = message.rfind(LEAD);
    if (place == std::string::npos) {
        return "";
    }
    const std::size_t begin = place + LEAD.size();
    return message.substr(begin, message.find('\n', begin) - begin);
}

Failure notAnAnswer(const std::string& why) {
    return {ExitCode::UNREACHABLE, "What came back is no answer of a Morvane server: " + why,
            "Does a Morvane server listen at this address? 'morvane request' shows answers as they are."};
}

}  // namespace

const ClassShare& Classified::best() const {
    // Written so that a share that is no number never wins over one that is.
    return *std::max_element(classes.begin(), classes.end(), [](const ClassShare& a, const ClassShare& b) {
        return (a.probability != a.probability && b.probability == b.probability) ||
               a.probability < b.probability;
    });
}

Answer Answer::parse(const std::string& response) {
    const windows::com::xml::Library library;
    Answer answer;
    try {
        windows::com::xml::Document document;
        document.loadXml(response);
        document.setSelectionNamespaces(std::string("xmlns:mv='") + RESPONSE_NAMESPACE + "'");
        const Element root = document.getElement(elementNames::MV_MORVANE);
        const Element status = root.getElement(elementNames::MV_STATUS);
        answer._isSuccess = status.getBoolean(elementNames::SUCCESS);
        answer._statusCode = static_cast<std::int32_t>(
            util::toInteger(status.getAttribute(elementNames::STATUS_CODE), INT32_MIN, INT32_MAX));
        answer._message = trimmed(status.getText());
        if (!answer._isSuccess) {
            answer._failedCall = failedCallIn(answer._message);
        }
        forEach(root.selectNodes("mv:readCalls/*"), [&](const Element& call) {
            Result& result = answer._results[call.getAttribute(elementNames::ID)];
            const std::string method = call.getTagName();
            if (method == elementNames::CLASSIFY) {
                result = classifiedOf(call);
            } else if (method == elementNames::CLASSIFY_KEYWORDS) {
                result = keywordsOf(call);
            } else if (method == elementNames::GET_INFORMATION) {
                result = countsOf(call);
            }
        });
    } catch (const exceptions::Exception& e) {
        throw notAnAnswer(trimmed(e.what()));
    }
    return answer;
}

template <class Sort>
const Sort& Answer::result(const std::string& callId) const {
    const auto found = _results.find(callId);
    const Sort* result = found == _results.end() ? nullptr : std::get_if<Sort>(&found->second);
    if (result == nullptr) {
        throw notAnAnswer("it has no result for call " + callId + ".");
    }
    return *result;
}

const Classified& Answer::classification(const std::string& callId) const {
    const auto& classified = result<Classified>(callId);
    if (classified.classes.empty()) {
        throw notAnAnswer("it has no classes for call " + callId + ".");
    }
    return classified;
}

const std::vector<Keyword>& Answer::keywords(const std::string& callId) const {
    return result<std::vector<Keyword>>(callId);
}

const std::vector<ClassCounts>& Answer::information(const std::string& callId) const {
    return result<std::vector<ClassCounts>>(callId);
}

Failure refusal(const Answer& answer, const RequestWriter& request) {
    // A request that is refused as a whole names no call, and needn't if there is but one.
    return refusal(answer, request.describe(request.callCount() == 1 ? "1" : answer.failedCall()));
}

Failure refusal(const Answer& answer, const std::string& call) {
    std::string message = "The server refused (" + std::to_string(answer.statusCode()) + ") ";
    message += (call.empty() ? "the request" : "to " + call) + ".";
    if (!answer.message().empty()) {
        message += "\n" + answer.message();
    }
    return {ExitCode::REFUSED, message, hintFor(answer), answer.statusCode(), call};
}

Answer ask(Exchange& exchange, const RequestWriter& request) {
    Answer answer = Answer::parse(exchange.ask(request.document()));
    if (!answer.isSuccess()) {
        throw refusal(answer, request);
    }
    return answer;
}

}  // namespace halvern::morvane::client
