#pragma once

#include "exceptions/Exception.h"
#include "io/IOException.h"

namespace net::socket {

// Everything that can go wrong with a connection. All of it is caused by the peer, the network or the system.
class SocketException : public io::IOException {};

// A socket could not be made, bound or set listening.
class InitException final : public exceptions::WithMessage<SocketException> {
public:
    using WithMessage::WithMessage;
};

class ConnectException final : public exceptions::WithMessage<SocketException> {
public:
    using WithMessage::WithMessage;
};

// An option of a socket could not be set.
class ChangeStateException final : public exceptions::WithMessage<SocketException> {
public:
    using WithMessage::WithMessage;
};

class AcceptException final : public exceptions::WithMessage<SocketException> {
public:
    using WithMessage::WithMessage;
};

// The caller asked for something that no socket can do; nothing was tried.
class PreconditionException final : public exceptions::WithMessage<SocketException> {
public:
    using WithMessage::WithMessage;
};

// A socket, or one direction of it, could not be closed.
class CloseException final : public exceptions::WithMessage<SocketException> {
public:
    using WithMessage::WithMessage;
};

class ReadException final : public exceptions::WithMessage<SocketException> {
public:
    using WithMessage::WithMessage;
};

class WriteException final : public exceptions::WithMessage<SocketException> {
public:
    using WithMessage::WithMessage;
};

// The peer ended its sending before the bytes that were asked for had come.
class UnexpectedEofException final : public exceptions::WithMessage<SocketException> {
public:
    using WithMessage::WithMessage;
};

// An address could not be told.
class GeneralException final : public exceptions::WithMessage<SocketException> {
public:
    using WithMessage::WithMessage;
};

class PortAlreadyInUseException final : public exceptions::WithMessage<SocketException> {
public:
    using WithMessage::WithMessage;
};

}  // namespace net::socket
