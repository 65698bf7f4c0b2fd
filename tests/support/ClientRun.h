#pragma once

#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "Program.h"
#include "server/Answer.h"  // with Failure.h, whose name another file here has
#include "server/Exchange.h"
#include "support/TempDir.h"

namespace support {

// What stands between the root's tags of a response.
inline std::string response(const std::string& content) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<morvane "
           "xmlns=\"http://morvane.example/1/server/ResponseSchema\" version=\"1.01\">\n" +
           content + "</morvane>\n";
}

inline std::string success(const std::string& content) {
    return response("<status success=\"true\" statusCode=\"2000\"/>\n" + content);
}

inline std::string refusal(int code, const std::string& text) {
    return response("<status success=\"false\" statusCode=\"" + std::to_string(code) + "\">" + text +
                    "\n\t</status>\n");
}

// Runs the client's program with a stand-in for everything around it. answer plays the server.
struct ClientRun {
    const TempDir folder;
    std::map<std::string, std::string> environment;
    std::string input;
    halvern::morvane::client::Terminal terminal;
    std::function<std::string(const std::string& request)> answer = [](const std::string&) {
        return success("<writeCalls><train id=\"1\"/></writeCalls>");
    };
    std::string programFolder;

    // What the run left behind.
    int exitCode = -1;
    std::string out;
    std::string err;
    std::vector<std::string> requests;
    std::vector<std::string> servers;  // one for each exchange that was made

    ClientRun& run(const std::vector<std::string>& arguments) {
        using namespace halvern::morvane::client;
        std::istringstream in(input);
        std::ostringstream outStream;
        std::ostringstream errStream;
        const Environment lookUp = [this](const std::string& name) -> std::optional<std::string> {
            const auto found = environment.find(name);
            return found == environment.end() ? std::nullopt : std::optional<std::string>(found->second);
        };
        const auto connect = [this](const Settings& settings) -> std::unique_ptr<Exchange> {
            servers.push_back(settings.address.text());
            return std::make_unique<StandIn>(*this);
        };
        exitCode = Program({in, outStream, errStream, terminal, terminal, lookUp, connect, programFolder})
                       .run(arguments);
        out = outStream.str();
        err = errStream.str();
        return *this;
    }

    // The same for the words of a line, where "@" in front of a word stands for the folder. What comes back
    // names its files without it.
    ClientRun& line(const std::string& words) {
        std::vector<std::string> arguments;
        std::istringstream split(words);
        for (std::string word; split >> word;) {
            arguments.push_back(word[0] == '@' ? folder.file(word.substr(1)) : word);
        }
        run(arguments);
        for (std::string* said : {&out, &err}) {
            for (std::size_t at = 0; (at = said->find(folder.file(""), at)) != std::string::npos;) {
                said->erase(at, folder.file("").size());
            }
        }
        return *this;
    }

    void write(const std::string& name, const std::string& content) const {
        writeFile(folder.file(name), content);
    }

private:
    struct StandIn final : halvern::morvane::client::Exchange {
        explicit StandIn(ClientRun& around) : run(around) {}
        std::string ask(const std::string& request) override {
            run.requests.push_back(request);
            return run.answer(request);
        }
        ClientRun& run;
    };
};

// The Failure that the operation ends in; one with DONE if it ends well.
template <class Operation>
halvern::morvane::client::Failure clientFailureOf(Operation&& operation) {
    try {
        operation();
    } catch (const halvern::morvane::client::Failure& failure) {
        return failure;
    }
    return {halvern::morvane::client::ExitCode::DONE, "no failure"};
}

}  // namespace support
