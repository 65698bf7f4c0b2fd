#include "server/systemtest/TestClient.h"

#include "debug/Assertion.h"
#include "io/IOException.h"
#include "net/socket/ClientSocketImpl.h"
#include "net/socket/SocketStreamImpl.h"
#include "windows/net/winsock/WinsockErrors.h"

namespace halvern::morvane {

namespace {

constexpr std::size_t READ_SIZE = 16384;
constexpr std::size_t USUAL_RESPONSE_SIZE = 65536;

}  // namespace

TestClient::TestClient(const platform::thread::ThreadFactory& threadFactory, const std::string& host,
                       std::uint16_t port, const std::string& request)
    : InheritableThreadImpl(threadFactory), _request(request), _host(host), _port(port) {}

void TestClient::run() {
    try {
        const windows::net::winsock::WinsockErrors errors;
        const net::socket::SocketStreamFactoryImpl streamFactory(errors);
        net::socket::ClientSocketImpl client(errors, streamFactory);
        net::socket::SocketStream& stream = client.connect(_host, _port);
        stream.write(_request.data(), _request.size());
        stream.shutdown(net::socket::SocketStream::SEND);

        _response.clear();
        _response.reserve(USUAL_RESPONSE_SIZE);
        char buffer[READ_SIZE];
        while (const std::size_t bytes = stream.read(buffer, sizeof(buffer))) {
            _response.append(buffer, bytes);
        }
        stream.shutdown(net::socket::SocketStream::RECEIVE);
    } catch (const io::IOException& e) {
        CHECK(!_assertOnIOException, e.what());
    } catch (const exceptions::Exception& e) {
        CHECK(false, e.what());
    } catch (...) {
        CHECK(false);
    }
}

}  // namespace halvern::morvane
