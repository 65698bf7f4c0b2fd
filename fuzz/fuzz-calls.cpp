// A row of requests on one store: each byte of the input makes a choice of what is called, or of what fails
// meanwhile.
#include <new>
#include <string_view>

#include "Server.h"
#include "util/Base64.h"

namespace {

class Choices {
public:
    Choices(const std::uint8_t* data, std::size_t size) : _rest(fuzz::textOf(data, size)) {}

    bool areLeft() const { return !_rest.empty(); }
    // From 0 to below limit; 0 when all are made.
    std::size_t below(std::size_t limit) {
        const std::string byte = bytes(1);
        return byte.empty() ? 0 : static_cast<unsigned char>(byte[0]) % limit;
    }
    template <std::size_t Size>
    std::string oneOf(const std::string_view (&list)[Size]) {
        return std::string(list[below(Size)]);
    }
    std::string bytes(std::size_t count) {
        const std::string taken = _rest.substr(0, count);
        _rest.erase(0, taken.size());
        return taken;
    }

private:
    std::string _rest;
};

constexpr std::string_view CLASSIFIERS[] = {"two", "TWO", "three", "none", "old", "odd", "broken", "new"};
constexpr std::string_view CLASSES[] = {"eng", "swe", "one", "t&#xC3;&#xA5;", "&lt;&amp;&quot;&gt;",
                                        "new", ""};
constexpr std::string_view TEXTS[] = {"known", "long", "empty", "chosen"};
constexpr std::string_view READS[] = {"classify", "classifyKeywords", "getInformation"};
constexpr std::string_view WRITES[] = {"train", "untrain", "addClass", "removeClass", "create", "remove"};

std::string requestOf(Choices& choices) {
    int id = 0;
    const auto call = [&id](const std::string& name) {
        return "<" + name + " id='" + std::to_string(++id) + "'";
    };
    std::string reads;
    for (std::size_t count = choices.below(3); count > 0; --count) {
        const std::string name = choices.oneOf(READS);
        reads += call(name) + " classifierName='" + choices.oneOf(CLASSIFIERS) + "'";
        reads += name == "getInformation" ? "/>" : " textId='" + choices.oneOf(TEXTS) + "'/>";
    }
    std::string writes;
    for (std::size_t count = choices.below(6); count > 0; --count) {
        const std::string name = choices.oneOf(WRITES);
        writes += call(name);
        if (name != "create" && name != "remove") {
            writes += " className='" + choices.oneOf(CLASSES) + "'";
        }
        writes += name == "train" || name == "untrain" ? " textId='" + choices.oneOf(TEXTS) + "'/>" : "/>";
    }
    std::string chosen;
    const std::string text = choices.bytes(choices.below(24));
    util::Base64EncoderImpl().encode(util::Bytes(text.begin(), text.end()), chosen);
    std::string request =
        "<morvane xmlns='http://morvane.example/1/server/RequestSchema' version='1.01'><texts>";
    request += "<text id='known'>a hej text</text><text id='empty'/><textBase64 id='chosen'>" + chosen +
               "</textBase64><text id='long'>is a english, and what goes on for more than thirty-one "
               "bytesInOneSingleWordWithoutABlank</text></texts>";
    request += reads.empty() ? "" : "<readCalls>" + reads + "</readCalls>";
    request += writes.empty() ? ""
                              : "<writeCalls classifierName='" + choices.oneOf(CLASSIFIERS) + "' maxSize='" +
                                    (choices.below(4) == 1 ? "300" : "0") + "'>" + writes + "</writeCalls>";
    return request + "</morvane>";
}

// What goes wrong during one request, if anything.
void disturb(fuzz::Server& server, std::size_t choice) {
    server.memory.script = choice == 1 ? [] { return std::uint64_t{0}; } : support::ScriptedMemory::plenty;
    server.files.failingSave = choice == 2 || choice == 5 ? 1 : 0;
    server.files.failingLoad = choice == 3 || choice == 6 ? 1 : 0;
    server.files.failingRemove = choice == 4 ? 1 : 0;
    server.files.outOfMemory = choice >= 5;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Choices choices(data, size);
    fuzz::Server server;
    for (int i = 0; i < 8 && choices.areLeft(); ++i) {
        const fuzz::Server::Files before = server.allStored();
        const std::size_t disturbance = choices.below(10);
        const std::string request = requestOf(choices);
        disturb(server, disturbance);
        bool isDone = false;
        try {
            isDone = fuzz::Server::isSuccess(server.answerTo(request));
        } catch (const std::bad_alloc&) {
            PROMISE(server.files.outOfMemory);
        }
        disturb(server, 0);
        PROMISE(isDone || server.allStored() == before);
    }
    server.checkMemory();
    return 0;
}
