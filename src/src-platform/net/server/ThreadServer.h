#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "net/server/Connection.h"
#include "net/server/ThreadServerLog.h"
#include "net/socket/ServerSocketImpl.h"
#include "net/socket/SocketStreamImpl.h"
#include "platform/Semaphore.h"
#include "platform/mutex/BoundedBufferLock.h"
#include "platform/thread/Runnable.h"
#include "platform/thread/Thread.h"
#include "platform/thread/ThreadFactory.h"
#include "windows/net/winsock/WinsockErrors.h"

namespace net::server {

// How long a stopping server lets its clients take their answers before it cuts them off.
inline constexpr std::chrono::seconds STOP_GRACE{2};

// How long the server waits before it accepts again when it could not serve a client for lack of descriptors,
// memory or threads: it must not spin, and these come back by themselves.
inline constexpr std::chrono::milliseconds ACCEPT_PAUSE{500};

// How long a client must have been silent before its place may go to another one that waits. A server that is
// a little too small for its clients has patience with slow ones. One whose queue fills is under siege:
// whoever connects has a request to send and wants the answer, so who has said nothing at all, or has no room
// for the answer because it doesn't read, then gets less time than who may be slow.
struct BearableSilence {
    std::chrono::milliseconds usual{1000};
    std::chrono::milliseconds underSiege{500};
    std::chrono::milliseconds refusalUnderSiege{100};
    std::chrono::milliseconds fromTheStartUnderSiege{50};
};
// How long a siege lasts after the last sign of it.
inline constexpr std::chrono::seconds SIEGE{10};

// How often the server looks again for clients that may give way, while others wait; and how long those that
// give way may take for it before more are looked for.
inline constexpr std::chrono::milliseconds PLACE_PATIENCE{20};
inline constexpr std::chrono::milliseconds LEAVE_PATIENCE{500};

// All of a ThreadServer that does not depend on the kind of its clients.
//
// Built, started, stopped, joined and destroyed by one thread; a server is not restarted. No thread holds the
// lock of the buffer and that of the client table at once.
class ThreadServerBase : public platform::thread::Runnable {
public:
    ThreadServerBase(const ThreadServerBase&) = delete;
    ThreadServerBase& operator=(const ThreadServerBase&) = delete;

    // Starts serving. Throws ThreadException, and then the server has been stopped.
    void start();

    // Ends the two threads and all clients, and returns when they have ended. Clients that are being answered
    // get STOP_GRACE to take their answers. A second call does nothing.
    void stop();

    // Waits for the two threads.
    void join();

    // The port that the server listens on.
    std::uint16_t port() const { return _serverSocket->port(); }

    // The body of both threads.
    void run() override;

protected:
    ThreadServerBase(const platform::thread::ThreadFactory& threadFactory, std::uint16_t port,
                     std::int32_t maxClients, std::uint32_t queueSize, ThreadServerLog* log,
                     const net::socket::IdleBounds& bounds, const BearableSilence& bearableSilence);
    // Stops nothing: stop must have come before, if start has.
    ~ThreadServerBase() override = default;

    virtual std::unique_ptr<Connection> createClient(const platform::thread::ThreadFactory& threadFactory,
                                                     std::uint32_t id) = 0;

private:
    void testPort() const;
    void _create_clients();
    void acceptClient();
    ClientTable::iterator enter(const ClientTable::value_type& client);
    void leave(ClientTable::iterator entry);
    void takePlace();
    bool isBesieged();
    bool isBearable(const net::socket::Silence& silence, bool besieged) const;
    bool takePlaceWithin(std::chrono::milliseconds time);
    std::size_t letSilentClientsGiveWay();
    void _delete_clients();
    bool reapClient();
    ClientTable::iterator takeFinished();
    void stopClients();
    void shutdown(net::socket::SocketStream& stream, net::socket::SocketStream::End end);
    void log(const char* text);

    const platform::thread::ThreadFactory& _threadFactory;
    const std::uint16_t _port;
    const std::uint32_t _queueSize;
    const BearableSilence _bearableSilence;
    const windows::net::winsock::WinsockErrors _winsockErrors;
    const net::socket::SocketStreamFactoryImpl _socketStreamFactory;
    const net::socket::ServerSocketFactoryImpl _serverSocketFactory;
    ThreadServerLog* const _log;           // may be null
    platform::Semaphore _freePlaces;       // one unit for each client that may still exist
    ClientTable _clients;                  // guarded by its own mutex
    std::condition_variable_any _reaped;   // with _clients: an entry has gone
    std::uint32_t _connectionCounter = 0;  // of the accepting thread, as are the next three
    std::chrono::steady_clock::time_point _besiegedUntil;
    std::size_t _leaving = 0;  // clients that were told to give way, less the places taken since
    // Used in one operation only, but with room for all, so that they can give way when there is no memory.
    std::vector<std::pair<std::chrono::nanoseconds, ClientTable::iterator>> _silent;
    // Guarded by _boundedBuffer. _clients.end(), which no client can have, is the mark that ends the reaping.
    std::vector<ClientTable::iterator> _deletableClients;
    platform::mutex::BoundedBufferLockImpl _boundedBuffer;
    std::unique_ptr<net::socket::ServerSocket> _serverSocket;
    std::unique_ptr<platform::thread::Thread> _createClientsThread;
    std::unique_ptr<platform::thread::Thread> _deleteClientsThread;
    bool _reaps = false;  // _deleteClientsThread has been started
    std::uint32_t _create_clients_counter = 0;
    std::uint32_t _delete_clients_counter = 0;
    std::atomic<bool> _stop = false;
};

// A TCP server with a thread for each client and a fixed number of clients at a time.
//
// One thread accepts and starts clients, one joins and deletes those that have finished. While all places are
// taken, nothing is accepted: further clients wait in the backlog, and beyond that the system keeps them
// waiting. While some wait, as many of the clients whose peers have been silent longest give way to them, so
// that peers that only hold places can't keep others out. Client derives from Connection and is built from
// (ThreadFactory&, std::uint32_t id, Params); a client that can't be built or started costs its connection
// and nothing else.
template <class Client, class Params>
class ThreadServer final : public ThreadServerBase {
public:
    // Listens when it returns; nothing is accepted before start. Port 0 takes a free one. log may be null;
    // log and factory must outlive the server. Throws PortAlreadyInUseException and other SocketExceptions,
    // util::ConverterException for a negative maxClients, and what the thread factory throws.
    ThreadServer(const platform::thread::ThreadFactory& threadFactory, std::uint16_t port,
                 std::int32_t maxClients, std::uint32_t queueSize, Params params, ThreadServerLog* log,
                 const net::socket::IdleBounds& bounds = {}, const BearableSilence& bearableSilence = {})
        : ThreadServerBase(threadFactory, port, maxClients, queueSize, log, bounds, bearableSilence),
          _params(std::move(params)) {}

private:
    std::unique_ptr<Connection> createClient(const platform::thread::ThreadFactory& threadFactory,
                                             std::uint32_t id) override {
        return std::make_unique<Client>(threadFactory, id, _params);
    }

    const Params _params;
};

}  // namespace net::server
