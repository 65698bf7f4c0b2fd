#pragma once

#include "exceptions/Exception.h"
#include "util/Bytes.h"

namespace halvern::classifier::storage {

// The data is of no version that can be brought forward.
class MigrationException final : public exceptions::WithMessage<exceptions::Exception> {
public:
    using WithMessage::WithMessage;
};

// Turns stored data of version 3 or 4 into data of version 5, appended to out; version 5 is copied. The old
// version becomes the extractor version, because the stored tokens were made by that extractor and new texts
// must be cut alike.
//
// Throws MigrationException for another version; DatabaseReaderException for data that is cut off, has lanes
// of broken tokens, or tokens longer than can be stored; ClassifierException for class names that are empty
// or not unique and for more classes or counts than fit; std::bad_alloc.
void migrate(const util::Bytes& data, util::Bytes& out);

}  // namespace halvern::classifier::storage
