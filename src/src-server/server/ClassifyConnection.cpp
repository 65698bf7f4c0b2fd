#include "server/ClassifyConnection.h"

#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <new>

#include "debug/Assertion.h"
#include "net/socket/SocketException.h"
#include "server/StatusCode.h"
#include "util/FixedStream.h"
#include "util/MethodCaller.h"

namespace halvern::morvane {

namespace {

using net::server::Connection;
using net::socket::SocketException;
using net::socket::SocketStream;

constexpr std::size_t READ_SIZE = 16384;
constexpr std::size_t USUAL_REQUEST_SIZE = 65536;
constexpr std::size_t LARGE_REQUEST_SIZE = 1024UL * 1024;
constexpr std::size_t BUFFERED_RESPONSE_SIZE = 32768;  // what the socket itself takes at once

// Log lines of a connection are short; where they quote a failure, its beginning is enough.
using Text = util::FixedStream<128>;

class ScopedSocketCloser {
public:
    ScopedSocketCloser(SocketStream& stream, Log& log) : _stream(stream), _log(log) {}
    ScopedSocketCloser(const ScopedSocketCloser&) = delete;
    ScopedSocketCloser& operator=(const ScopedSocketCloser&) = delete;
    ~ScopedSocketCloser() {
        try {
            _stream.close();
        } catch (const SocketException& e) {
            Text text;
            text << "Error closing socket stream in ScopedSocketCloser. " << e.what();
            _log.error(text.str());
        }
    }

private:
    SocketStream& _stream;
    Log& _log;
};

// Its end, also by a failure, leaves only the writing of an answer, which has to wait for the peer.
class ScopedWork {
public:
    explicit ScopedWork(std::atomic<bool>& isAtWork) : _isAtWork(isAtWork) { _isAtWork = true; }
    ScopedWork(const ScopedWork&) = delete;
    ScopedWork& operator=(const ScopedWork&) = delete;
    ~ScopedWork() { _isAtWork = false; }

private:
    std::atomic<bool>& _isAtWork;
};

// A large request leaves its thread's heap large, in blocks too small to go back by themselves. What stays
// there would be missing where free memory decides which classifiers stay loaded.
class ScopedTrim {
public:
    explicit ScopedTrim(const std::string& request) : _request(request) {}
    ScopedTrim(const ScopedTrim&) = delete;
    ScopedTrim& operator=(const ScopedTrim&) = delete;
    ~ScopedTrim() {
        if (_request.size() > LARGE_REQUEST_SIZE) {
            malloc_trim(0);
        }
    }

private:
    const std::string& _request;
};

}  // namespace

ClassifyConnection::ClassifyConnection(const platform::thread::ThreadFactory& threadFactory, std::uint32_t id,
                                       const ConnectionParams* params)
    : Connection(threadFactory, id),
      _params(params),
      _idString(std::to_string(id)),
      _errorResponse(params->errorResponseFactory.create()) {
    Text text;
    text << "Creating connection with id " << _idString.c_str();
    _params->log.log(text.str());
}

ClassifyConnection::~ClassifyConnection() {
    Text text;
    text << "Finished connection with id " << _idString.c_str();
    _params->log.log(text.str());
}

void ClassifyConnection::giveWay(std::chrono::milliseconds silence) {
    Text text;
    text << "Connection " << _idString.c_str() << " gives way to a client that waits, after a silence of "
         << silence.count() << " ms.";
    _params->log.log(text.str());
    _gaveWay = true;
    stop();
}

void ClassifyConnection::run() {
    // On every way out the socket is closed first and the place is given up last.
    const util::MethodCaller0<Connection, void (Connection::*)()> quitter(*this, &Connection::quit);
    const ScopedSocketCloser closer(*_socketStream, _params->log);
    Text text;
    text << "Running connection " << _idString.c_str() << ".";
    _params->log.log(text.str());
    text.setPosition(0);
    try {
        _params->terminateHandler.install();
        _serve();
    } catch (const SocketException& e) {
        text << "An SocketException when running a connection with id " << _idString.c_str() << ". "
             << e.what();
        // That a connection breaks which this server has cut is no failure.
        if (_gaveWay) {
            _params->log.log(text.str());
        } else {
            _params->log.error(text.str());
        }
        return;
    } catch (const exceptions::Exception& e) {
        text << "An Exception when running a connection with id " << _idString.c_str() << "." << e.what();
        _params->log.error(text.str());
        _respond(statusCode::INTERNAL_ERROR, text.str());
    } catch (const std::bad_alloc&) {
        _params->log.error("Out of memory.");
        _respond(statusCode::OUT_OF_MEMORY, "");
    }
    _linger();
}

void ClassifyConnection::_serve() {
    std::string request;
    const ScopedTrim trim(request);
    std::unique_ptr<StringClassifier> classifier = _params->classifierFactory.create();
    CHECK(classifier.get());
    switch (_receive(request)) {
        case Received::STOPPED:
            return;
        case Received::TOO_LARGE:
            // The rest of the request may take minutes; what there is of it is of no use to anybody.
            classifier.reset();
            std::string().swap(request);
            _refuseTooLarge();
            return;
        case Received::WHOLE:
            break;
    }
    Text text;
    text << "Received a request from client with id " << _idString.c_str() << " with the size of "
         << request.size() << ".";
    _params->log.log(text.str());
    std::string response;
    {
        const ScopedWork work(_isAtWork);
        classifier->handle(response, request);
    }
    // What is left of the request goes when the answer has been sent, so that the client needn't wait for
    // that. But a large answer may have to wait for the client.
    if (response.size() > BUFFERED_RESPONSE_SIZE) {
        classifier.reset();
    }
    _socketStream->write(response.data(), response.size());
    _socketStream->shutdown(SocketStream::SEND);
}

ClassifyConnection::Received ClassifyConnection::_receive(std::string& request) {
    request.reserve(USUAL_REQUEST_SIZE);
    char buffer[READ_SIZE];
    while (!_stop) {
        const std::size_t bytes = _socketStream->read(buffer, sizeof(buffer));
        if (bytes == 0) {
            // A stopping server ends the stream as well; what has come until then is not the whole request.
            _inputEnded = !_stop;
            return _inputEnded ? Received::WHOLE : Received::STOPPED;
        }
        request.append(buffer, bytes);
        if (request.size() > _params->maxInput) {
            return Received::TOO_LARGE;
        }
    }
    return Received::STOPPED;
}

// Many clients read only when they have sent everything, so the answer waits until then.
void ClassifyConnection::_refuseTooLarge() {
    Text message;
    message << "Client with id " << _idString.c_str() << " exceeded maximum input size " << _params->maxInput
            << ".";
    _params->log.log(message.str());
    _discard(_params->discardBounds);
    if (!_stop) {
        _respond(statusCode::REQUEST_TOO_LARGE, message.str());
    }
}

void ClassifyConnection::_respond(std::int32_t statusCode, const char* message) {
    try {
        std::string response;
        _errorResponse->render(response, statusCode, message);
        _socketStream->write(response.data(), response.size());
        _socketStream->shutdown(SocketStream::SEND);
    } catch (const SocketException& e) {
        Text text;
        text << "Failed to send status code to client. " << e.what();
        _params->log.log(text.str());
    } catch (const std::bad_alloc&) {
        _params->log.error("Out of memory in ClassifyConnection::_respond.");
    }
}

// Lets a client that is still sending read its answer, or the end of the stream, before the socket is closed.
void ClassifyConnection::_linger() {
    if (_inputEnded) {
        return;
    }
    try {
        _socketStream->shutdown(SocketStream::SEND);
        _discard(_params->lingerBounds);
    } catch (const SocketException&) {
        // The client has gone, and nothing is left to be done for it.
    }
}

// Reads on without using it until the input ends or a bound is reached. Needs no look at _stop: the server
// ends the input of all its clients when it stops.
void ClassifyConnection::_discard(const DrainBounds& bounds) {
    using std::chrono::milliseconds;
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + bounds.time;
    char buffer[READ_SIZE];
    for (std::uint64_t discarded = 0; !_inputEnded && discarded < bounds.bytes;) {
        const auto left = std::chrono::duration_cast<milliseconds>(end - Clock::now());
        if (left <= milliseconds(0) || !_socketStream->waitForInput(std::min(left, bounds.silence))) {
            return;
        }
        const std::size_t bytes = _socketStream->read(buffer, sizeof(buffer));
        _inputEnded = bytes == 0;
        discarded += bytes;
    }
}

}  // namespace halvern::morvane
