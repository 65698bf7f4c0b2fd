// A whole request, from its bytes to the bytes of its answer.
#include "Server.h"
#include "server/DocumentRequest.h"
#include "server/PlainRequest.h"
#include "support/RequestContent.h"

namespace {

// What is read in plain form is what the document and the schema admit, with the same content.
void checkPlainForm(const std::string& request) {
    static const support::LoadedSchema schema(MORVANE_SCHEMAS "/server/RequestSchema.xsd");
    const auto plain = halvern::morvane::PlainRequest::read(request, schema.targetNamespace());
    if (plain) {
        const halvern::morvane::DocumentRequest document(request, schema.cache(), schema.targetNamespace());
        PROMISE(support::contentOf(*plain) == support::contentOf(document));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Server server;
    const fuzz::Server::Files before = server.allStored();
    const int loads = server.files.loads();
    const std::string request = fuzz::textOf(data, size);
    checkPlainForm(request);
    const std::string answer = server.answerTo(request);
    const bool isUntouched = server.files.loads() == loads && server.files.changeCount() == 0;
    const bool isUnchanged = server.allStored() == before;
    PROMISE(isUnchanged || fuzz::Server::isSuccess(answer));
    const std::string secondAnswer = server.answerTo(request);
    PROMISE(!isUnchanged || secondAnswer == answer);
    if (!isUntouched) {
        server.checkMemory();
    }
    return 0;
}
