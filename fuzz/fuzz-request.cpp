// A whole request, from its bytes to the bytes of its answer.
#include "Server.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Server server;
    const fuzz::Server::Files before = server.stored();
    const int loads = server.files.loads();
    const std::string request = fuzz::textOf(data, size);
    const std::string answer = server.answerTo(request);
    const bool isUntouched = server.files.loads() == loads && server.files.changeCount() == 0;
    const bool isUnchanged = server.stored() == before;
    PROMISE(isUnchanged || fuzz::Server::isSuccess(answer));
    const std::string secondAnswer = server.answerTo(request);
    PROMISE(!isUnchanged || secondAnswer == answer);
    if (!isUntouched) {
        server.checkMemory();
    }
    return 0;
}
