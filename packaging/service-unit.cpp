// Writes the unit of a packaged server to standard output: what -install would write for it, once it is where
// the package puts it.
//   service-unit PROGRAM CONFIGURATION ACCOUNT LOG_FOLDER PACKAGED_CONFIGURATION CONFIGURATION_SCHEMA
// The first four stand in the unit as they are. The last two are files of the machine that builds, and tell
// the rest.
#include <exception>
#include <iostream>

#include "exceptions/Exception.h"
#include "server/Configuration.h"
#include "server/ServiceControl.h"
#include "windows/com/xml/Library.h"
#include "windows/services/UnitFile.h"

namespace {

void writeUnit(char** words) {
    using namespace halvern::morvane;
    using windows::services::UnitFile;
    const windows::com::xml::Library xmlLibrary;
    const Configuration configuration =
        ConfigurationReader(words[6]).read(words[5], [](std::uint32_t, bool) {});
    const std::string unit = UnitFile::textOf(serviceDefinition(
        SERVICE_NAME, words[1], words[2], words[3], words[4], configuration.rootPath(), configuration.port));
    std::cout << UnitFile::withDescription(unit, SERVICE_DESCRIPTION);
}

}  // namespace

int main(int argc, char* argv[]) {
    if (argc != 7) {
        std::cerr << "usage: service-unit PROGRAM CONFIGURATION ACCOUNT LOG_FOLDER "
                     "PACKAGED_CONFIGURATION CONFIGURATION_SCHEMA\n";
        return 2;
    }
    try {
        writeUnit(argv);
        return std::cout.flush() ? 0 : 1;
    } catch (const exceptions::Exception& e) {
        std::cerr << e.what() << "\n";
    } catch (const std::exception& e) {
        std::cerr << e.what() << "\n";
    }
    return 1;
}
