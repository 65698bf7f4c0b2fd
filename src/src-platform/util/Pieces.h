#pragma once

#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

#include "util/Bytes.h"

namespace util {

// Bytes that belong together in this order but lie in many places, so that large ones among them need not be
// copied before they are written.
class Pieces {
public:
    Pieces() = default;
    Pieces(const Pieces&) = delete;
    Pieces& operator=(const Pieces&) = delete;

    // Takes bytes that nobody else has to keep.
    void add(Bytes&& bytes) {
        _own.push_back(std::move(bytes));
        addView({_own.back().data(), _own.back().size()});
    }
    // The bytes must stay as they are for as long as the pieces are used.
    void addView(std::string_view bytes) {
        _pieces.push_back(bytes);
        _size += bytes.size();
    }

    // Of all pieces together.
    std::size_t size() const { return _size; }
    auto begin() const { return _pieces.begin(); }
    auto end() const { return _pieces.end(); }

    void appendTo(Bytes& out) const {
        // Large pieces leave no memory for a buffer that grows by copying.
        out.reserve(out.size() + _size);
        for (const std::string_view piece : _pieces) {
            out.insert(out.end(), piece.begin(), piece.end());
        }
    }

private:
    std::vector<Bytes> _own;
    std::vector<std::string_view> _pieces;
    std::size_t _size = 0;
};

}  // namespace util
