#include "net/server/Connection.h"

#include <utility>

#include "debug/Assertion.h"

namespace net::server {

Connection::Connection(const platform::thread::ThreadFactory& threadFactory, std::uint32_t id)
    : InheritableThreadImpl(threadFactory), _id(id) {
    InheritableThreadImpl::setName("ConnnectionThread");
}

void Connection::attach(std::unique_ptr<net::socket::SocketStream> socketStream,
                        std::vector<ClientTable::iterator>& deletableClients,
                        platform::mutex::BoundedBufferLock& boundedBuffer, ClientTable::iterator iterator) {
    _socketStream = std::move(socketStream);
    _deletableClients = &deletableClients;
    _boundedBuffer = &boundedBuffer;
    _iterator = iterator;
}

void Connection::quit() {
    try {
        CHECK(!_hasQuit);
        _hasQuit = true;
        _boundedBuffer->lockProducer();
        // A push that had to allocate could fail, and a client that can't be entered is never reaped.
        CHECK(_deletableClients->capacity() > _deletableClients->size());
        const std::size_t beforeSize = _deletableClients->size();
        _deletableClients->push_back(_iterator);
        CHECK(beforeSize + 1 == _deletableClients->size());
        _boundedBuffer->unlockProducer(true);
    } catch (...) {
        CHECK(false);
    }
}

}  // namespace net::server
