#pragma once

#include <string>
#include <vector>

namespace windows::services {

// The tool through which systemd takes orders.
class Systemctl {
public:
    struct Result {
        int exitCode;         // 0 when done; 4 for missing rights and 5 for an unknown unit are usual (LSB)
        std::string message;  // what it wrote on both outputs, as one line, cut off after some thousand bytes
    };

    virtual ~Systemctl() = default;

    // Runs the tool and waits for its end. A tool that cannot be run gives the system's error as exit code
    // and its words as message. Throws std::bad_alloc.
    virtual Result run(const std::vector<std::string>& arguments) const = 0;
};

// Runs a program by its path with exactly these arguments: no shell reads them, and no search path decides
// what a superuser runs.
class SystemctlImpl final : public Systemctl {
public:
    explicit SystemctlImpl(std::string program = "/usr/bin/systemctl");
    Result run(const std::vector<std::string>& arguments) const override;

private:
    const std::string _program;
};

// What went wrong, in the frame of a system error: the tool's own words and its exit code.
std::string errorText(const Systemctl::Result& result);

}  // namespace windows::services
