#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halvern::morvane::client {

// Builds one request: any texts, any read calls, and write calls on one classifier.
//
// Texts travel in Base64, so they may be any bytes. Names travel as their bytes; one that the request
// language has no way to say is refused here with a Failure of USAGE, in words that name it, and so is the
// text or call that would be one more than a list of a request can hold. Calls take effect in the order in
// which they were added, reads before writes.
class RequestWriter {
public:
    // The most texts, read calls and write calls that a request holds, each.
    static constexpr std::size_t MAX_ELEMENTS = 100000;

    // Write calls need the name of the classifier, read calls name theirs themselves.
    explicit RequestWriter(const std::string& classifierToWrite = "");

    // From now on the server refuses to train once the stored classifier has this size.
    void setMaxSize(std::int32_t bytes) { _maxSize = bytes; }

    // Gives the id under which calls name the text. A text can be used by any number of calls.
    std::string addText(std::string_view text);

    // Each gives the id of the call, under which Answer has its result. shownAs is what people call the text,
    // as "a.txt", for messages.
    std::string classify(const std::string& classifier, const std::string& textId,
                         const std::string& shownAs = "");
    std::string classifyKeywords(const std::string& classifier, const std::string& textId,
                                 const std::string& shownAs = "");
    std::string getInformation(const std::string& classifier);
    std::string create();
    std::string remove();
    std::string addClass(const std::string& className);
    std::string removeClass(const std::string& className);
    std::string train(const std::string& className, const std::string& textId,
                      const std::string& shownAs = "");
    std::string untrain(const std::string& className, const std::string& textId,
                        const std::string& shownAs = "");

    // The whole request.
    std::string document() const;

    // For whoever fills requests up to a limit: the bytes that document() has by now, and those that one more
    // train with a text of its own would add. Neither is ever too small, and both are off by little.
    std::size_t size() const;
    static std::size_t sizeOfTraining(std::string_view className, std::string_view text);

    std::size_t textCount() const { return _textCount; }
    std::size_t callCount() const { return _calls.size(); }

    // What the call with this id is, for a person: "train spam with a.txt". Empty for no call of this
    // request.
    std::string describe(const std::string& callId) const;

private:
    std::string addRead(const char* call, const std::string& classifier, const std::string& textId,
                        const std::string& description);
    std::string addWrite(const char* call, const std::optional<std::string>& className,
                         const std::string& textId, const std::string& description);
    std::string addCall(const std::string& description);
    std::string tail() const;

    const std::string _classifierToWrite;
    std::int32_t _maxSize = 0;
    std::string _texts;
    std::string _reads;
    std::string _writes;
    std::size_t _textCount = 0;
    std::size_t _readCount = 0;
    std::size_t _writeCount = 0;
    std::vector<std::string> _calls;  // descriptions; the id of a call is its place, from 1
};

// Throw Failure with USAGE, in words for a person, for a name that the request language doesn't allow.
void checkClassifierName(const std::string& name);
void checkClassName(const std::string& name);

}  // namespace halvern::morvane::client
