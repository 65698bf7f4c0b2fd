#pragma once

#include "util/parser/ArgumentParser.h"

namespace halvern::morvane {

class Log;

// What the program was asked to do.
enum class Mode { SERVE, SERVE_AS_SERVICE, INSTALL, UNINSTALL, START, STOP, TEST };

// The mode that the first flag of the list below fixes, wherever it stands among the words: -scm, -install,
// -uninstall, -start, -stop, -test. With none of them the program serves on the console.
Mode modeOf(int argc, const char* const* argv);

// Declares to the parser the flags that the mode allows; "-quiet" always may stand there.
void declareFlags(Mode mode, util::parser::ArgumentParser& parser);

// Writes the usage text to the log, as one entry.
void printUsage(Log& log);

}  // namespace halvern::morvane
