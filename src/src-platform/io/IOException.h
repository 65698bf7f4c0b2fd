#pragma once

#include "exceptions/Exception.h"

namespace io {

// Failures of files and of the network.
class IOException : public exceptions::Exception {};

}  // namespace io
