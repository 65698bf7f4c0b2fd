// Sends the documents that hurt XML servers to the real one, and measures what they cost:
//
//     documents [--size MB] [--time]
//
// Each has the size given, 8 MB if not told otherwise. The server captures requests meanwhile, so the memory
// is all that a request can take: what is received, the copy on its way to the disk, the document, the
// answer. With --time the processor time for a byte must not be more than four times what it is for an eighth
// of the document. Then the same goes to a server whose system calls are traced: it may open nothing but its
// own files and connect to nobody. Ends with 77 where nothing can be traced.

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <vector>

#include "server/Memory.h"
#include "stress/Main.h"
#include "stress/Trace.h"
#include "stress/Wire.h"
#include "system/Program.h"

namespace {

using namespace systemtest;

// What a server needs once, whatever it is sent: threads, their stacks and heaps.
constexpr std::int64_t ONCE = 12'000'000;

struct Document {
    const char* name;
    std::function<std::string(std::size_t)> ofSize;
    int code = 4000;
};

std::string filled(std::size_t size, const std::function<std::string(std::size_t)>& part) {
    std::string all;
    for (std::size_t i = 0; all.size() < size; ++i) {
        all += part(i);
    }
    return all;
}

std::function<std::string(std::size_t)> inRoot(const std::string& begin, const std::string& part,
                                               const std::string& end) {
    return [=](std::size_t size) {
        return request(begin + filled(size, [&](std::size_t) { return part; }) + end);
    };
}

// Behind a declaration that names things outside.
std::function<std::string(std::size_t)> withDoctype(const std::string& subset) {
    return [=](std::size_t size) {
        return "<?xml version=\"1.0\"?><!DOCTYPE morvane " + subset +
               filled(size, [](std::size_t i) { return "<!-- " + std::to_string(i) + " -->"; }) +
               request(texts("<text id=\"t\">&e;%e;</text>") + readCalls(information("c"))).substr(39);
    };
}

std::vector<Document> documents(const std::string& file) {
    const std::string read = readCalls(information("c"));
    const std::string call = "<getInformation id=\"1\" classifierName=\"c\"/>";
    const auto numbered = [](const std::string& before, const std::string& after) {
        return [=](std::size_t i) { return before + std::to_string(i) + after; };
    };
    std::vector<Document> all = {
        {"DOCTYPE", withDoctype(">")},
        {"DOCTYPE that names a file", withDoctype("SYSTEM \"file://" + file + "\">")},
        {"DOCTYPE that names a server", withDoctype("PUBLIC \"x\" \"http://127.0.0.1:9/x.dtd\">")},
        {"entity that grows",
         [](std::size_t size) {
             std::string subset = "[<!ENTITY e0 \"ha\">";
             for (int i = 1; i < 30; ++i) {
                 const std::string below = "&e" + std::to_string(i - 1) + ";";
                 subset += "<!ENTITY e" + std::to_string(i) + " \"" + below + below + below + below + "\">";
             }
             return withDoctype(subset + "<!ENTITY e \"&e29;\">]>")(size);
         }},
        {"entity from a file", withDoctype("[<!ENTITY e SYSTEM \"file://" + file + "\">]>")},
        {"entity from a server", withDoctype("[<!ENTITY e SYSTEM \"http://127.0.0.1:9/e\">]>")},
        {"parameter entity from a file", withDoctype("[<!ENTITY % e SYSTEM \"file://" + file + "\"> %e;]>")},
        {"entity that nobody declared", inRoot("<texts><text id=\"t\">", "&e;", "</text></texts>" + read)},
        {"XInclude", inRoot("",
                            "<x:include xmlns:x=\"http://www.w3.org/2001/XInclude\" href=\"file://" + file +
                                "\" parse=\"text\"/>",
                            read)},
        {"schemaLocation", inRoot("<texts xmlns:s=\"http://www.w3.org/2001/XMLSchema-instance\" "
                                  "s:schemaLocation=\"http://morvane.example/1/server/RequestSchema file://" +
                                      file + "\">",
                                  "<text id=\"1\" xmlns:s=\"http://www.w3.org/2001/XMLSchema-instance\" "
                                  "s:noNamespaceSchemaLocation=\"http://127.0.0.1:9/x.xsd\"/>",
                                  "</texts>" + read)},
        {"stylesheets and catalogs",
         [file, read](std::size_t size) {
             return filled(size,
                           [&](std::size_t) {
                               return "<?xml-stylesheet href=\"file://" + file +
                                      "\"?><?oasis-xml-catalog catalog=\"file://" + file + "\"?>";
                           }) +
                    request(read).substr(39);
         },
         2000},
        {"processing instructions", inRoot("", "<?a?>", read), 2000},
        {"one processing instruction", inRoot("<?a ", "x", "?>" + read), 2000},
        {"comments", inRoot("", "<!---->", read), 2000},
        {"one comment", inRoot("<!--", "x", "-->" + read), 2000},
        {"nesting", inRoot("", "<a>", "")},
        {"nesting, in a text", inRoot("<texts><text id=\"t\">", "<a>", "")},
        {"attributes",
         [numbered, read](std::size_t size) {
             return request("<texts" + filled(size, numbered(" a", "=''")) + "/>" + read);
         }},
        {"namespaces",
         [numbered, read](std::size_t size) {
             return request("<texts" + filled(size, numbered(" xmlns:a", "='u'")) + "/>" + read);
         }},
        {"new names",
         [numbered, read](std::size_t size) { return request(filled(size, numbered("<a", "/>")) + read); }},
        {"new names of attributes",
         [numbered, read](std::size_t size) {
             return request(filled(size, numbered("<a b", "=''/>")) + read);
         }},
        {"new namespaces",
         [numbered, read](std::size_t size) {
             return request(filled(size, numbered("<a xmlns='", "'/>")) + read);
         }},
        {"tags with 64 attributes",
         [numbered, read](std::size_t size) {
             std::string tag = "<a";
             for (int i = 0; i < 64; ++i) {
                 tag += " a" + std::to_string(i) + "=''";
             }
             return request(filled(size, [&](std::size_t) { return tag + "/>"; }) + read);
         }},
        {"empty elements", inRoot("", "<a/>", read)},
        {"empty elements, an attribute each", inRoot("", "<a b=''/>", read)},
        {"empty elements, a namespace each", inRoot("", "<a xmlns='b'/>", read)},
        {"elements and blanks", inRoot("", "<a/> ", read)},
        {"elements and comments", inRoot("", "<a/><!---->", read)},
        {"empty calls", inRoot("<readCalls>", "<classify/>", "</readCalls>")},
        {"calls of one id", inRoot("<readCalls>", call, "</readCalls>")},
        {"texts without calls",
         [numbered, read](std::size_t size) {
             return request("<texts>" + filled(size, numbered("<text id=\"", "\"/>")) + "</texts>" + read);
         },
         0},
        {"calls, an id each",
         [numbered](std::size_t size) {
             return request("<readCalls>" +
                            filled(size, numbered("<getInformation classifierName=\"c\" id=\"", "\"/>")) +
                            "</readCalls>");
         },
         0},
        {"texts and calls that use them",
         [numbered](std::size_t size) {
             std::string texts = filled(size * 3 / 10, numbered("<text id=\"", "\"/>"));
             const auto use = [](std::size_t i) {
                 const std::string id = std::to_string(i % 1000);
                 return "<classify id=\"" + std::to_string(i) + "\" classifierName=\"c\" textId=\"" + id +
                        "\"/>";
             };
             return request("<texts>" + texts + "</texts><readCalls>" + filled(size * 7 / 10, use) +
                            "</readCalls>");
         },
         0},
        {"an id",
         [call](std::size_t size) { return request(readCalls(information("c", std::string(size, 'i')))); }},
        {"a name", [](std::size_t size) { return request(readCalls(information(std::string(size, 'n')))); }},
        {"a text", inRoot("<texts><text id=\"t\">", "x", "</text></texts>" + read), 2000},
        {"a text in Base64",
         inRoot("<texts><textBase64 id=\"t\">", "QUFB",
                "</textBase64></texts><readCalls><classify id=\"1\" classifierName=\"c\" "
                "textId=\"t\"/></readCalls>"),
         2000},
        {"a text of many words",
         [](std::size_t size) {
             return request("<texts><text id=\"t\">" +
                            filled(size, [](std::size_t i) { return std::to_string(i) + " "; }) +
                            "</text></texts><readCalls><classify id=\"1\" classifierName=\"c\" "
                            "textId=\"t\"/></readCalls>");
         },
         2000},
        {"training on many words",
         [](std::size_t size) {
             return request("<texts><text id=\"t\">" +
                            filled(size, [](std::size_t i) { return std::to_string(i) + " "; }) +
                            "</text></texts>" +
                            writeCalls("trained",
                                       "<create id=\"1\"/><addClass id=\"2\" className=\"x\"/><train "
                                       "id=\"3\" className=\"x\" textId=\"t\"/><remove id=\"4\"/>"));
         },
         2000},
        {"training on short words, and untraining",
         [](std::size_t size) {
             // With each word, and the pair with the one before, four bytes bring two new tokens.
             const auto word = [](std::size_t i) {
                 const auto letter = [](std::size_t j) { return static_cast<char>('\x80' + j % 128); };
                 return std::string{letter(i), letter(i / 128), letter(i / 128 / 128), ' '};
             };
             return request("<texts><text id=\"t\">" + filled(size, word) + "</text></texts>" +
                            writeCalls("trained",
                                       "<create id=\"1\"/><addClass id=\"2\" className=\"x\"/><train "
                                       "id=\"3\" className=\"x\" textId=\"t\"/><untrain id=\"4\" "
                                       "className=\"x\" textId=\"t\"/><train id=\"5\" className=\"x\" "
                                       "textId=\"t\"/><remove id=\"6\"/>"));
         },
         2000},
        {"CDATA sections", inRoot("<texts><text id=\"t\">", "<![CDATA[]]>", "</text></texts>" + read), 2000},
        {"references", inRoot("<texts><text id=\"t\">", "&#65;", "</text></texts>" + read), 2000},
        {"references beyond Latin-1",
         inRoot("<texts><text id=\"t\">", "&#x10FFFF;", "</text></texts>" + read), 2000},
        {"references to surrogates", inRoot("<texts><text id=\"t\">", "&#xD800;", "</text></texts>" + read)},
        {"lines", inRoot("", "\n", read), 2000},
        {"NULs", [](std::size_t size) { return std::string(size, '\0'); }},
        {"NUL in a text",
         [](std::size_t size) {
             return request(texts("<text id=\"t\">" + std::string(1, '\0') + std::string(size, 'x')));
         }},
        {"overlong UTF-8",
         inRoot("<texts><text id=\"t\">", "\xC0\x80\xE0\x80\x80\xF8\x88\x80\x80\x80",
                "</text></texts>" + read),
         2000},
        {"surrogates in UTF-8", inRoot("<texts><text id=\"t\">", "\xED\xA0\x80", "</text></texts>" + read),
         2000},
        {"noise",
         [](std::size_t size) {
             unsigned value = 1;
             return filled(size, [&](std::size_t) {
                 value = value * 1103515245U + 12345U;
                 return std::string(1, static_cast<char>(value >> 16U));
             });
         }},
        {"quotes without end", inRoot("<a b='", "x", "")},
        {"less-than signs", [](std::size_t size) { return std::string(size, '<'); }},
    };
    return all;
}

// Every declaration behind every mark. No byte of the body is changed, so only UTF-8's mark may stand.
std::vector<std::string> encodings() {
    std::vector<std::string> all;
    for (const char* mark : {"", "\xEF\xBB\xBF", "\xFE\xFF", "\xFF\xFE"}) {
        for (const char* name :
             {"utf-8",       "UTF-16",   "UTF-16LE",     "UTF-16BE",  "UTF-32", "UCS-4",       "ISO-8859-1",
              "ISO-8859-15", "US-ASCII", "windows-1252", "Shift_JIS", "EUC-JP", "ISO-2022-JP", "GB18030",
              "Big5",        "KOI8-R",   "UTF-7",        "IBM037",    "HTML",   "nonsense"}) {
            all.push_back(std::string(mark) + "<?xml version=\"1.0\" encoding=\"" + name + "\"?>" +
                          request(readCalls(information("c"))).substr(39));
        }
    }
    return all;
}

class Patient {
public:
    explicit Patient(const Installation& installation) : _server(installation, settings(), {"-quiet"}) {
        const Answer made =
            ask(_server.port(),
                request(writeCalls("c", "<create id=\"1\"/><addClass id=\"2\" className=\"x\"/>")));
        if (!made.isSuccess() && made.message().find("already exists") == std::string::npos) {
            throw std::runtime_error("The classifier can't be made.");
        }
    }

    struct Cost {
        int code;
        std::int64_t bytes;   // of the request
        std::int64_t memory;  // bytes
        double seconds;       // of the processor
    };
    Cost costOf(const std::string& document) {
        // The kernel forgets the peak.
        std::ofstream(proc("clear_refs")) << "5";
        const std::int64_t memoryBefore = status("VmRSS:");
        const double secondsBefore = seconds();
        const Answer answer = ask(_server.port(), document);
        // It gives everything back before its client is counted as gone.
        eventually([&] { return threads() <= _threads; });
        return {answer.statusCode(), static_cast<std::int64_t>(document.size()),
                status("VmHWM:") - memoryBefore, seconds() - secondsBefore};
    }
    Server& server() { return _server; }

private:
    static Settings settings() {
        Settings settings;
        settings.maxInput = "1000000000";
        settings.saveRequests = "true";
        return settings;
    }
    std::string proc(const std::string& name) {
        return "/proc/" + std::to_string(_server.process().id()) + "/" + name;
    }
    std::int64_t status(const std::string& key) {
        std::ifstream in(proc("status"));
        for (std::string line; std::getline(in, line);) {
            if (line.starts_with(key)) {
                return std::stoll(line.substr(key.size())) * 1024;
            }
        }
        throw std::runtime_error("The server has ended.");
    }
    std::int64_t threads() { return status("Threads:") / 1024; }
    double seconds() {
        const std::string stat = support::readFile(proc("stat"));
        std::istringstream in(stat.substr(stat.rfind(')') + 1));
        std::string skipped;
        for (int i = 0; i < 11; ++i) {
            in >> skipped;
        }
        double user = 0;
        double system = 0;
        in >> user >> system;
        return (user + system) / static_cast<double>(::sysconf(_SC_CLK_TCK));
    }

    Server _server;
    const std::int64_t _threads = threads();
};

bool measure(std::int64_t size, bool judgesTime) {
    const Installation installation;
    Patient patient(installation);
    bool good = true;
    std::printf("%-36s %5s %11s %8s %9s %9s\n", "document", "code", "bytes", "memory", "ns/byte", "of 1/8");
    for (const Document& document : documents(installation.file("xml/schemas/server/RequestSchema.xsd"))) {
        const auto small = patient.costOf(document.ofSize(static_cast<std::size_t>(size / 8)));
        const auto large = patient.costOf(document.ofSize(static_cast<std::size_t>(size)));
        const auto perByte = [](const auto& cost) {
            return cost.seconds * 1e9 / static_cast<double>(cost.bytes);
        };
        const bool codeGood = document.code == 0 || large.code == document.code;
        const bool memoryGood =
            large.memory <= halvern::morvane::MEMORY_OF_A_REQUEST_BYTE * large.bytes + ONCE;
        const bool timeGood = !judgesTime || perByte(large) <= 4 * perByte(small) + 100;
        std::printf("%-36s %5d %11lld %8.1f %9.0f %9.0f%s%s%s\n", document.name, large.code,
                    static_cast<long long>(large.bytes),
                    static_cast<double>(large.memory) / static_cast<double>(large.bytes), perByte(large),
                    perByte(small), codeGood ? "" : " WRONG ANSWER", memoryGood ? "" : " TOO MUCH MEMORY",
                    timeGood ? "" : " NOT LINEAR");
        std::fflush(stdout);
        good = good && codeGood && memoryGood && timeGood;
    }
    for (const std::string& document : encodings()) {
        const bool taken = document.starts_with("<?xml") || document.starts_with("\xEF\xBB\xBF");
        if (ask(patient.server().port(), document).statusCode() != (taken ? 2000 : 4000)) {
            std::printf("WRONG ANSWER: %s\n", document.substr(0, 60).c_str());
            good = false;
        }
    }
    return patient.server().stop() == 0 && good;
}

int trace() {
    const Installation installation;
    Patient patient(installation);
    stress::Trace trace(patient.server().process().id(), "%file,socket,connect", installation.file("logs"));
    if (!trace.works()) {
        std::printf("Not traced: %s\n", trace.problem().c_str());
        return stress::SKIPPED;
    }
    for (const Document& document : documents(installation.file("xml/schemas/server/RequestSchema.xsd"))) {
        patient.costOf(document.ofSize(2000));
    }
    for (const std::string& document : encodings()) {
        patient.costOf(document);
    }
    int calls = 0;
    int wrong = 0;
    std::istringstream in(trace.end());
    for (std::string line; std::getline(in, line); ++calls) {
        if (line.find(" socket(") != std::string::npos || line.find(" connect(") != std::string::npos ||
            !stress::isAllowed(stress::quoted(line))) {
            std::printf("Not its own: %s\n", line.c_str());
            ++wrong;
        }
    }
    std::printf("%d system calls with a path, %d of them for what isn't the server's own.\n", calls, wrong);
    return wrong == 0 && calls > 0 && patient.server().stop() == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    int size = 8;
    bool judgesTime = false;
    return stress::runMain(
        argc, argv, {stress::number("--size", "MB", size, 1, 500), stress::toggle("--time", judgesTime)},
        [&] { return measure(size * std::int64_t(1'000'000), judgesTime) ? trace() : 1; });
}
