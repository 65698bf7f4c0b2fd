#pragma once

namespace halvern::morvane::client {

// What the program tells the shell. Documented in --help and docs/client.md; scripts decide by these numbers.
enum class ExitCode {
    DONE = 0,
    REFUSED = 1,      // the server answered with a status of 4xxx or 5xxx
    USAGE = 2,        // the command line or the settings make no sense
    UNREACHABLE = 3,  // no connection, or one that ended without an answer
    LOCAL_FILE = 4,   // a file of this machine can't be read, parsed or written
    DIFFERENT = 5,    // a verification or comparison failed
    INTERRUPTED = 130
};

}  // namespace halvern::morvane::client
