#pragma once

#include <cstdint>
#include <string>

namespace halvern::morvane {

// Writes requests, as a client program would: the texts first, then one sequence of calls.
//
// Nothing is escaped and nothing is refused, since the built-in test also has to send what a sound client
// never would. A request without calls has no sequence.
class Api {
public:
    // Known to clients without a look at the server's schemas, and so written down here once more.
    static constexpr char REQUEST_NAMESPACE[] = "http://morvane.example/1/server/RequestSchema";

    virtual ~Api() = default;

    // Replaces out by the whole request and returns it.
    virtual std::string& render(std::string& out) const = 0;

    // text may be any bytes: it travels in Base64.
    void addText(const std::string& id, const std::string& text);

protected:
    explicit Api(const std::string& version);

    std::string& renderAround(std::string& out, const std::string& sequence) const;

private:
    const std::string _head;
    std::string _texts;
    const std::string _tail;
};

// A request that asks.
class ReadCallsApi final : public Api {
public:
    explicit ReadCallsApi(const std::string& version) : Api(version) {}

    void addClassify(const std::string& id, const std::string& classifierName, const std::string& textId);

    std::string& render(std::string& out) const override;

private:
    std::string _calls;
};

// A request that changes one classifier.
class WriteCallsApi final : public Api {
public:
    WriteCallsApi(const std::string& classifierName, const std::string& version)
        : Api(version), _classifierName(classifierName) {}

    void create(const std::string& id);
    void remove(const std::string& id);
    void addClass(const std::string& id, const std::string& className);
    void train(const std::string& id, const std::string& className, const std::string& textId);

    std::string& render(std::string& out) const override;

private:
    const std::string _classifierName;
    std::string _calls;
    const std::uint64_t _maxSize = 0;  // no limit, said in so many words
};

}  // namespace halvern::morvane
