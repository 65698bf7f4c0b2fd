// Tries every trick that we know as the name of a classifier, on the real server with its system calls
// traced:
//
//     names
//
// Whatever the answer is, no call may touch a file outside of the root directory and of the logs, and nothing
// may be made, changed or removed outside of the two. Ends with 77 where nothing can be traced.

#include <cstdio>
#include <filesystem>
#include <map>
#include <vector>

#include "stress/Main.h"
#include "stress/Trace.h"
#include "stress/Wire.h"
#include "system/Program.h"

namespace {

using namespace systemtest;

// Names as bytes; each goes into an attribute both as it is and with every character as a reference.
std::vector<std::string> tricks(const std::string& outside) {
    std::vector<std::string> all = {"",
                                    ".",
                                    "..",
                                    "...",
                                    "/",
                                    "//",
                                    "\\",
                                    "..\\",
                                    "../victim",
                                    "..\\victim",
                                    "./victim",
                                    "a/../../victim",
                                    "../../../../../../../../../../etc/passwd",
                                    "/etc/passwd",
                                    "//etc/passwd",
                                    "/../victim",
                                    "....//victim",
                                    "..;/victim",
                                    "..%2fvictim",
                                    "%2e%2e%2fvictim",
                                    "..%252fvictim",
                                    "..%c0%afvictim",
                                    "..%00/victim",
                                    "..\xC0\xAFvictim",
                                    "..\xE0\x80\xAFvictim",
                                    "..\xF0\x80\x80\xAFvictim",
                                    "..\xC1\x9Cvictim",
                                    "\xC0\xAE\xC0\xAE/victim",
                                    "..\xEF\xBC\x8Fvictim",
                                    "..\xE2\x88\x95victim",
                                    "\xEF\xBC\x8E\xEF\xBC\x8E/victim",
                                    "..\xE2\x81\x84victim",
                                    "..\xC0\x80/victim",
                                    "../victim\xC0\x80",
                                    "~",
                                    "~root/victim",
                                    "$HOME/victim",
                                    "${HOME}",
                                    "`id`",
                                    "$(id)",
                                    "|id",
                                    ";id",
                                    "&id",
                                    "*",
                                    "?",
                                    "[a-z]",
                                    "{a,b}",
                                    "a:b",
                                    "C:\\victim",
                                    "C:/victim",
                                    "\\\\host\\share\\victim",
                                    "file:///etc/passwd",
                                    "http://127.0.0.1/victim",
                                    "con",
                                    "nul",
                                    "com1",
                                    "aux.txt",
                                    "victim.dat",
                                    "victim ",
                                    " victim",
                                    " ",
                                    "victim.",
                                    ".victim",
                                    ".victim.dat.AbC123.tmp",
                                    "victim::$DATA",
                                    "victim\t",
                                    "victim\n",
                                    "vic\rtim",
                                    "\x01",
                                    "\x1F",
                                    "\x7F",
                                    "\x80",
                                    "\xFF",
                                    "\xFE\xFF",
                                    "vic\x1Btim",
                                    "link",
                                    "link/victim",
                                    "linkfile",
                                    "folder",
                                    "folder/victim",
                                    "proc/self/root",
                                    "/proc/self/root/etc/passwd",
                                    "/dev/stdin",
                                    "-",
                                    "--",
                                    "-rf",
                                    "%s%n%n",
                                    "%n",
                                    "a\"b",
                                    "a'b",
                                    "a<b",
                                    "a>b",
                                    "a&b",
                                    "victim.dat/../../victim",
                                    "AUX/..",
                                    "..//..",
                                    ". .",
                                    ".. ",
                                    " ..",
                                    "..\xA0",
                                    "\xC2\xA0..",
                                    std::string(128, 'a'),
                                    std::string(129, 'a'),
                                    std::string(127, 'a') + "/",
                                    std::string(255, 'a'),
                                    std::string(4096, 'a'),
                                    std::string(70'000, 'a'),
                                    std::string(5000, '/'),
                                    "../" + std::string(120, 'a')};
    std::string deep;
    for (int i = 0; i < 40; ++i) {
        deep += "../";
        all.push_back(deep + "victim");
        all.push_back(deep.substr(0, deep.size() - 1));
    }
    all.push_back(outside + "/victim");
    all.push_back(deep + outside.substr(1) + "/victim");
    // Every byte in the middle, in front and behind.
    for (int byte = 1; byte < 256; ++byte) {
        const std::string one(1, static_cast<char>(byte));
        all.push_back(".." + one + "victim");
        all.push_back(one + "..");
        all.push_back("b" + std::to_string(byte) + one);
    }
    return all;
}

std::string references(const std::string& name) {
    std::string all;
    for (const char each : name) {
        all += "&#" + std::to_string(static_cast<unsigned char>(each)) + ";";
    }
    return all;
}

// What lies below a folder, but for the folder of the server itself: names, sizes and times of all that the
// server has no business with.
std::map<std::string, std::string> contents(const std::string& folder, const std::string& app) {
    namespace fs = std::filesystem;
    std::map<std::string, std::string> all;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        const std::string name = entry.path().string();
        if (!name.starts_with(app + "/classifiers") && !name.starts_with(app + "/logs")) {
            all[name] = entry.is_regular_file() ? support::readFile(name) : "";
        }
    }
    return all;
}

int run() {
    const Installation installation;
    support::writeFile(installation.outside() + "/victim", "victim");
    support::writeFile(installation.outside() + "/victim.dat", "victim");
    support::writeFile(installation.file("victim.dat"), "victim");
    std::filesystem::create_directories(installation.file("classifiers/folder"));
    Server server(installation, {}, {"-quiet"});
    const auto before = contents(installation.outside(), installation.path());

    stress::Trace trace(server.process().id(), "%file", installation.file("logs"));
    if (!trace.works()) {
        std::printf("Not tested: the system calls can't be traced here. %s\n", trace.problem().c_str());
        return stress::SKIPPED;
    }
    int refused = 0;
    int taken = 0;
    for (const std::string& name : tricks(installation.outside())) {
        std::string escaped;
        for (const char each : name) {
            escaped += each == '"'   ? "&quot;"
                       : each == '<' ? "&lt;"
                       : each == '&' ? "&amp;"
                                     : std::string(1, each);
        }
        for (const std::string& form : {escaped, references(name)}) {
            const std::string train =
                "<create id=\"1\"/><addClass id=\"2\" className=\"x\"/><train id=\"3\" className=\"x\" "
                "textId=\"t\"/>";
            for (const std::string& attempt :
                 {request(readCalls(information(form))),
                  request(texts(text("t", "word")) + writeCalls(form, train)),
                  request(readCalls(information(form))), request(writeCalls(form, "<remove id=\"1\"/>"))}) {
                const Answer answer = ask(server.port(), attempt);
                if (answer.statusCode() != 2000 && answer.statusCode() != 4000) {
                    std::printf("'%s' was answered with %d: %s\n", form.c_str(), answer.statusCode(),
                                answer.message().c_str());
                    return 1;
                }
                ++(answer.isSuccess() ? taken : refused);
            }
        }
    }
    if (server.process().hasEnded()) {
        std::printf("The server has ended.\n");
        return 1;
    }
    const std::string lines = trace.end();
    int calls = 0;
    int wrong = 0;
    std::istringstream in(lines);
    for (std::string line; std::getline(in, line);) {
        const std::string path = stress::quoted(line);
        ++calls;
        if (!stress::isAllowed(path)) {
            std::printf("Outside of the root: %s\n", line.substr(0, 300).c_str());
            ++wrong;
        }
    }
    if (contents(installation.outside(), installation.path()) != before) {
        std::printf("Something has changed outside of the root.\n");
        ++wrong;
    }
    if (taken == 0 || calls < taken) {
        std::printf("The trace has missed what the server did: %d requests, %d calls.\n", taken, calls);
        ++wrong;
    }
    std::printf(
        "%d requests refused, %d taken; %d system calls with a path, %d of them outside of the root.\n",
        refused, taken, calls, wrong);
    return wrong == 0 && server.stop() == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) { return stress::runMain(argc, argv, {}, run); }
