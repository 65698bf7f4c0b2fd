#pragma once

#include "exceptions/Exception.h"

namespace windows::com::xml {

// Root of the failures of XML documents: not well-formed, not valid, not holding what was asked for.
class XMLException : public exceptions::Exception {};

class DocumentException final : public exceptions::WithMessage<XMLException> {
public:
    using WithMessage::WithMessage;
};

// A document breaks its schema.
class ValidateException final : public exceptions::WithMessage<XMLException> {
public:
    using WithMessage::WithMessage;
};

class ElementException final : public exceptions::WithMessage<XMLException> {
public:
    using WithMessage::WithMessage;
};

class NodeListException final : public exceptions::WithMessage<XMLException> {
public:
    using WithMessage::WithMessage;
};

class SchemaCacheException final : public exceptions::WithMessage<XMLException> {
public:
    using WithMessage::WithMessage;
};

}  // namespace windows::com::xml
