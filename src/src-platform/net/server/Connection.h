#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "net/socket/SocketStream.h"
#include "platform/mutex/BoundedBufferLock.h"
#include "platform/thread/InheritableThreadImpl.h"
#include "util/ThreadSafeMultiMap.h"

namespace net::server {

class Connection;

// The clients that a server has at present, finished ones that have not been reaped yet included.
using ClientTable =
    util::ThreadSafeMultiMap<net::socket::SocketStream*, Connection*, std::less<net::socket::SocketStream*>>;

// One client of a ThreadServer, with its stream and the thread that serves it.
//
// A client keeps its place in the server until the server has joined its thread. It does not delete itself:
// its run hands it over by calling quit, last thing, on every way out.
class Connection : public platform::thread::InheritableThreadImpl {
public:
    Connection(const platform::thread::ThreadFactory& threadFactory, std::uint32_t id);

    // What the server gives each client before it starts it: the stream, which the client then owns, and the
    // way back. The rest must outlive the client.
    void attach(std::unique_ptr<net::socket::SocketStream> socketStream,
                std::vector<ClientTable::iterator>& deletableClients,
                platform::mutex::BoundedBufferLock& boundedBuffer, ClientTable::iterator iterator);

    // Asks the client to end soon. Called from another thread; must not block.
    virtual void stop() = 0;

    // False while all that the client does is to wait for its peer, so that nothing is lost if it ends. A
    // kind of client that doesn't tell never has to give way. Called from another thread.
    virtual bool isAtWork() const { return true; }

    // As stop, but since another client needs the place of this one, whose peer has been silent for that
    // time.
    virtual void giveWay(std::chrono::milliseconds) { stop(); }

    // Enters this client as finished. Only once, on its own thread; nothing of the client may be touched by
    // that thread afterwards but what it takes to return.
    void quit();

protected:
    const std::uint32_t _id;  // the first client of a server is 1, and no number is given twice
    std::unique_ptr<net::socket::SocketStream> _socketStream;

private:
    std::vector<ClientTable::iterator>* _deletableClients = nullptr;
    platform::mutex::BoundedBufferLock* _boundedBuffer = nullptr;
    ClientTable::iterator _iterator;
    bool _hasQuit = false;
};

}  // namespace net::server
