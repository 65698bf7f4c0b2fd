// A whole request, from its bytes to the bytes of its answer, on a store of a few classifiers in memory.
#include <limits>
#include <map>

#include "Store.h"
#include "Target.h"
#include "classifier/ClassifierException.h"
#include "server/EmptyXmlHookImpl.h"
#include "server/ReadAccess.h"
#include "server/XmlClassifier.h"
#include "server/XmlErrorResponseImpl.h"
#include "server/XmlResponseImpl.h"
#include "support/ClassifierTable.h"
#include "support/Xml.h"

namespace {

using namespace halvern::morvane;

class Server : public support::ClassifierTable {
public:
    using Files = std::map<std::string, util::Bytes>;

    Server() {
        const auto put = [this](const std::string& name, const util::Bytes& data) {
            files.put("root/" + name + ".dat", std::string(data.begin(), data.end()));
        };
        put("two", fuzz::twoClasses().bytes());
        put("three", fuzz::threeClasses(7).bytes());
        put("none", support::StoredClassifier().bytes());
        put("old", fuzz::oldClasses(3).bytes());
        put("odd", fuzz::smoothedBy(std::numeric_limits<double>::quiet_NaN()).bytes());
        put("broken", fuzz::damaged(fuzz::twoClasses().bytes()));
    }

    std::string answerTo(const std::string& request) {
        static const support::LoadedSchema requests(MORVANE_SCHEMAS "/server/RequestSchema.xsd");
        static const support::LoadedSchema responses(MORVANE_SCHEMAS "/server/ResponseSchema.xsd");
        const XmlResponseFactoryImpl results(responses.targetNamespace());
        const XmlErrorResponseFactoryImpl errors(responses.targetNamespace(), responses.version());
        const EmptyXmlHookFactoryImpl hooks;
        std::string out;
        XmlClassifierFactoryImpl(table, results, errors, hooks, requests.cache(), requests.targetNamespace(),
                                 "root", log)
            .create()
            ->handle(out, request);
        PROMISE(fuzz::isReadableXml(out));
        PROMISE(responses.problemOf(out).empty());
        return out;
    }
    Files stored() const {
        Files all;
        for (const std::string& name : files.names()) {
            all[name] = files.load(name);
        }
        return all;
    }
    // Memory never holds what the disk doesn't.
    void checkMemory() {
        for (const auto& [name, data] : stored()) {
            const auto fromDisk = factory.create(callbackFactory);
            try {
                fromDisk->setTrainingData(data);
            } catch (const halvern::classifier::ClassifierException&) {
                continue;
            }
            util::Bytes expected;
            fromDisk->getTrainingData(expected);
            util::Bytes held;
            ReadAccess(table, name)->getTrainingData(held);
            PROMISE(held == expected);
        }
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Server server;
    const Server::Files before = server.stored();
    const int loads = server.files.loads();
    const std::string request = fuzz::textOf(data, size);
    const std::string answer = server.answerTo(request);
    const bool isDone = answer.find("<status success=\"true\" statusCode=\"2000\"/>") != std::string::npos;
    const bool isUntouched = server.files.loads() == loads && server.files.changeCount() == 0;
    const bool isUnchanged = server.stored() == before;
    PROMISE(isDone || isUnchanged);
    const std::string secondAnswer = server.answerTo(request);
    PROMISE(!isUnchanged || secondAnswer == answer);
    if (!isUntouched) {
        server.checkMemory();
    }
    return 0;
}
