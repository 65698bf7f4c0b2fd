#include "net/server/ThreadServer.h"

#include <algorithm>
#include <new>
#include <thread>

#include "debug/Assertion.h"
#include "io/IOException.h"
#include "net/socket/ClientSocketImpl.h"
#include "net/socket/SocketException.h"
#include "platform/mutex/AutoLock.h"
#include "platform/thread/ThreadException.h"
#include "util/FixedStream.h"
#include "util/MethodCaller.h"

namespace net::server {

namespace {

using net::socket::SocketException;
using net::socket::SocketStream;

// A listener whose backlog is full says nothing at all; the bind will then tell that the port is taken.
constexpr std::chrono::seconds PORT_TEST_BOUND{5};

}  // namespace

ThreadServerBase::ThreadServerBase(const platform::thread::ThreadFactory& threadFactory, std::uint16_t port,
                                   std::int32_t maxClients, std::uint32_t queueSize, ThreadServerLog* log,
                                   const net::socket::IdleBounds& bounds,
                                   const BearableSilence& bearableSilence)
    : _threadFactory(threadFactory),
      _port(port),
      _queueSize(queueSize),
      _bearableSilence(bearableSilence),
      _socketStreamFactory(_winsockErrors, bounds),
      _serverSocketFactory(_winsockErrors, _socketStreamFactory),
      _log(log),
      // A negative number becomes one that no semaphore takes.
      _freePlaces(static_cast<std::uint64_t>(maxClients)),
      _boundedBuffer(static_cast<std::uint64_t>(maxClients)) {
    _deletableClients.reserve(static_cast<std::size_t>(maxClients));
    _silent.reserve(static_cast<std::size_t>(maxClients));
    testPort();
    _serverSocket = _serverSocketFactory.create(_port, _queueSize);
    _createClientsThread = _threadFactory.create(*this);
    _createClientsThread->setName("CreateClientsThread");
    _deleteClientsThread = _threadFactory.create(*this);
    _deleteClientsThread->setName("DeleteClientsThread");
}

// A listener of another address of the same port would not get in the way of our bind, and clients on this
// machine would go on talking to it. So the port counts as free only if nobody answers.
void ThreadServerBase::testPort() const {
    try {
        net::socket::ClientSocketImpl client(_winsockErrors, _socketStreamFactory, PORT_TEST_BOUND);
        client.connect("127.0.0.1", _port);
    } catch (const SocketException&) {
        return;
    }
    util::FixedStream<4096> text;
    text << "The port, " << _port << ", is already in use.";
    throw net::socket::PortAlreadyInUseException(text.str());
}

void ThreadServerBase::start() {
    try {
        _createClientsThread->start();
        _deleteClientsThread->start();
        _reaps = true;
    } catch (...) {
        stop();
        throw;
    }
}

void ThreadServerBase::run() {
    if (_createClientsThread->isCurrent()) {
        _create_clients();
    } else if (_deleteClientsThread->isCurrent()) {
        _delete_clients();
    }
}

void ThreadServerBase::_create_clients() {
    CHECK(_create_clients_counter++ == 0);
    while (!_stop) {
        try {
            acceptClient();
            continue;
        } catch (const platform::thread::ThreadException& e) {
            log(e.what());
        } catch (const std::bad_alloc&) {
            log("bad alloc in ThreadServer::_create_clients");
        } catch (const io::IOException& e) {
            log(e.what());
        }
        if (!_stop) {
            std::this_thread::sleep_for(ACCEPT_PAUSE);
        }
    }
}

// Waits for a place and for a client, and starts that client.
void ThreadServerBase::acceptClient() {
    takePlace();
    const std::uint64_t onePlace = 1;
    util::MethodCaller1 giveBackPlace(_freePlaces, &platform::Semaphore::release, onePlace);
    std::unique_ptr<SocketStream> stream = _serverSocket->accept();
    ++_connectionCounter;
    std::unique_ptr<Connection> client = createClient(_threadFactory, _connectionCounter);

    const ClientTable::iterator entry = enter({stream.get(), client.get()});
    client->attach(std::move(stream), _deletableClients, _boundedBuffer, entry);
    try {
        // Not under the table's lock, which the thread that reaps would wait for meanwhile.
        client->start();
    } catch (...) {
        leave(entry);
        throw;
    }
    // From here on the client belongs to the table.
    (void)client.release();
    giveBackPlace.dismiss();
}

ClientTable::iterator ThreadServerBase::enter(const ClientTable::value_type& client) {
    platform::mutex::AutoLock lock(_clients);
    lock.lock();
    return _clients.insert(client);
}

void ThreadServerBase::leave(ClientTable::iterator entry) {
    platform::mutex::AutoLock lock(_clients);
    lock.lock();
    const std::size_t clientSize = _clients.size();
    _clients.erase(entry);
    CHECK(clientSize - 1 == _clients.size());
    _reaped.notify_all();
}

void ThreadServerBase::takePlace() {
    constexpr std::chrono::milliseconds AT_ONCE{0};
    if (takePlaceWithin(AT_ONCE)) {
        return;
    }
    _serverSocket->waitForClient();
    while (true) {
        if (_leaving == 0) {
            _leaving = letSilentClientsGiveWay();
        }
        if (takePlaceWithin(_leaving != 0 ? LEAVE_PATIENCE : PLACE_PATIENCE)) {
            return;
        }
        _leaving = 0;
    }
}

bool ThreadServerBase::takePlaceWithin(std::chrono::milliseconds time) {
    if (!_freePlaces.waitFor(time)) {
        return false;
    }
    _leaving -= _leaving != 0 ? 1 : 0;
    return true;
}

// True if the queue has been on its way to being full of late; a full one would keep further clients out.
bool ThreadServerBase::isBesieged() {
    const auto now = std::chrono::steady_clock::now();
    if (_serverSocket->waitingClients() > _queueSize / 3) {
        _besiegedUntil = now + SIEGE;
    }
    return now < _besiegedUntil;
}

bool ThreadServerBase::isBearable(const net::socket::Silence& silence, bool besieged) const {
    return silence.time < (!besieged              ? _bearableSilence.usual
                           : silence.fromTheStart ? _bearableSilence.fromTheStartUnderSiege
                           : silence.refuses      ? _bearableSilence.refusalUnderSiege
                                                  : _bearableSilence.underSiege);
}

// One for each that waits and will not get the place of one that has ended, if so many may. Each handover
// takes the turns of three threads, which a busy machine makes long; one at a time, they would be all that
// limits how many clients get in. Returns how many give way.
std::size_t ThreadServerBase::letSilentClientsGiveWay() {
    platform::mutex::AutoLock lock(_clients);
    lock.lock();
    const bool besieged = isBesieged();
    std::size_t ended = 0;
    _silent.clear();
    for (auto entry = _clients.begin(); entry != _clients.end(); ++entry) {
        const net::socket::Silence silence = entry->first->silence();
        if (silence.hasEnded) {
            ++ended;
        } else if (!entry->second->isAtWork() && !isBearable(silence, besieged)) {
            _silent.emplace_back(silence.time, entry);
        }
    }
    const std::size_t waiting = _serverSocket->waitingClients();
    const std::size_t number = std::min(_silent.size(), waiting - std::min(waiting, ended));
    std::partial_sort(_silent.begin(), _silent.begin() + static_cast<std::ptrdiff_t>(number), _silent.end(),
                      [](const auto& one, const auto& other) { return one.first > other.first; });
    std::size_t leaving = 0;
    for (std::size_t i = 0; i < number; ++i) {
        const auto& [time, entry] = _silent[i];
        if (entry->second->isAtWork() || isBearable(entry->first->silence(), besieged)) {
            continue;  // its request has come in whole meanwhile
        }
        entry->second->giveWay(std::chrono::duration_cast<std::chrono::milliseconds>(time));
        shutdown(*entry->first, SocketStream::BOTHENDS);
        ++leaving;
    }
    return leaving;
}

void ThreadServerBase::_delete_clients() {
    CHECK(_delete_clients_counter++ == 0);
    while (reapClient()) {
    }
}

// Waits for a client that has finished and reaps it. False for the mark that stop has set.
bool ThreadServerBase::reapClient() {
    const ClientTable::iterator entry = takeFinished();
    if (entry == _clients.end()) {
        CHECK(_stop);
        return false;
    }
    // No lock is held meanwhile: a client that ends must not wait for the end of the one before.
    std::unique_ptr<Connection> client(entry->second);
    client->join();
    leave(entry);
    client.reset();
    _freePlaces.release(1);
    return true;
}

ClientTable::iterator ThreadServerBase::takeFinished() {
    _boundedBuffer.lockConsumer();
    const bool taken = true;
    util::MethodCaller1 unlockBuffer(_boundedBuffer, &platform::mutex::BoundedBufferLockImpl::unlockConsumer,
                                     taken);
    CHECK(_deletableClients.size() != 0);
    const ClientTable::iterator entry = _deletableClients.back();
    _deletableClients.pop_back();
    return entry;
}

void ThreadServerBase::stop() {
    if (_stop.exchange(true)) {
        return;
    }
    // The accepting thread waits in accept, which fails once the socket is shut down, or for a place.
    _serverSocket->shutdown();
    _freePlaces.release(1);
    _createClientsThread->join();
    _serverSocket->close();
    stopClients();

    // Where nobody takes from the buffer, a mark would take the place of a client that has yet to quit.
    if (_reaps) {
        // At the front, so that every client that is in the buffer is reaped before the mark is reached.
        _boundedBuffer.lockProducer();
        const std::size_t beforeSize = _deletableClients.size();
        _deletableClients.insert(_deletableClients.begin(), _clients.end());
        CHECK(beforeSize + 1 == _deletableClients.size());
        _boundedBuffer.unlockProducer(true);
        _deleteClientsThread->join();
    }

    platform::mutex::AutoLock lock(_clients);
    lock.lock();
    for (const auto& [stream, client] : _clients) {
        client->join();
        delete client;
    }
    _clients.clear();
}

// A request that has come in whole may have changed a classifier, so its client should learn of it: at first
// only the receiving is ended. What is left after the grace is a client that doesn't read, or one whose
// request takes its time; none of them will wait for the network again.
void ThreadServerBase::stopClients() {
    platform::mutex::AutoLock lock(_clients);
    lock.lock();
    for (const auto& [stream, client] : _clients) {
        client->stop();
        shutdown(*stream, SocketStream::RECEIVE);
    }
    _reaped.wait_for(_clients, STOP_GRACE, [this] { return _clients.empty(); });
    for (const auto& [stream, client] : _clients) {
        shutdown(*stream, SocketStream::BOTHENDS);
    }
}

void ThreadServerBase::shutdown(SocketStream& stream, SocketStream::End end) {
    try {
        stream.shutdown(end);
    } catch (const SocketException& e) {
        log(e.what());
    }
}

void ThreadServerBase::join() {
    _createClientsThread->join();
    _deleteClientsThread->join();
}

void ThreadServerBase::log(const char* text) {
    if (_log != nullptr) {
        _log->log(text);
    }
}

}  // namespace net::server
