#pragma once

#include <libxml/parser.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "util/Bytes.h"

// What all targets share. A target promises more than not to crash: what must hold of every input stands in
// it as a PROMISE, and an input that breaks one is a find like any other.
namespace fuzz {

[[noreturn]] inline void breakPromise(const char* condition, const char* file, int line) {
    std::fprintf(stderr, "Broken promise: %s (%s:%d)\n", condition, file, line);
    std::abort();
}

inline util::Bytes bytesOf(const std::uint8_t* data, std::size_t size) { return {data, data + size}; }
inline std::string textOf(const std::uint8_t* data, std::size_t size) { return {data, data + size}; }

// Whether a client with a strict parser of its own takes the document: well-formed, in the encoding it
// declares.
inline bool isReadableXml(const std::string& text) {
    xmlDoc* const document =
        xmlReadMemory(text.data(), static_cast<int>(text.size()), "answer", nullptr,
                      XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_HUGE);
    xmlFreeDoc(document);
    return document != nullptr;
}

}  // namespace fuzz

#define PROMISE(condition)                                      \
    do {                                                        \
        if (!(condition)) {                                     \
            fuzz::breakPromise(#condition, __FILE__, __LINE__); \
        }                                                       \
    } while (false)

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
