#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "server/Response.h"
#include "util/StringStream.h"

namespace halvern::classifier {
class ClassNames;
}

namespace halvern::morvane {

// Writes finished text as the calls run and joins it at the end. The bytes, tabs and line feeds included, are
// part of the protocol: clients compare them.
class XmlResponseImpl final : public Response {
public:
    // responseNamespace goes into the document as it is, without escaping.
    XmlResponseImpl(const std::string& responseNamespace, const ResponseVersion& version);

    void classify(const std::string& id, const classifier::Classification& classification) override;
    void classifyKeywords(const std::string& id, const classifier::Keywords& keywords) override;
    void getInformation(const std::string& id,
                        const std::vector<classifier::ClassInformation>& classes) override;
    void create(const std::string& id) override;
    void remove(const std::string& id) override;
    void addClass(const std::string& id) override;
    void removeClass(const std::string& id) override;
    void train(const std::string& id) override;
    void untrain(const std::string& id) override;
    std::string& render(std::string& out) override;
    void clear() override;

private:
    // The lines of all classes of a classifier, in their order, but for their numbers.
    struct ClassLines {
        struct Line {
            std::size_t index;   // of the class
            std::size_t length;  // of what stands before its number
        };
        std::shared_ptr<const classifier::ClassNames> names;
        std::vector<Line> lines;
        std::string text;      // what stands before the numbers, one after the other
        std::size_t most = 0;  // characters of all lines together, numbers included
    };

    void writeClasses(const classifier::Classification& classification);
    void makeLines(const std::shared_ptr<const classifier::ClassNames>& names);
    void writeCall(const char* method, const std::string& id);

    ResponseVersion _version;
    util::StringStream<2048> _header;
    util::StringStream<2048> _footer;
    util::StringStream<4096> _readCalls;
    util::StringStream<4096> _writeCalls;
    ClassLines _lines;  // of the classifier that was asked last
};

class XmlResponseFactoryImpl final : public ResponseFactory {
public:
    // responseNamespace is the target namespace of the response schema.
    explicit XmlResponseFactoryImpl(std::string responseNamespace);
    std::unique_ptr<Response> create(const ResponseVersion& version) const override;

private:
    std::string _namespace;
};

}  // namespace halvern::morvane
