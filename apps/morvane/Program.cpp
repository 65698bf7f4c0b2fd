#include "Program.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <nlohmann/json.hpp>
#include <ostream>
#include <sstream>

#include "Failure.h"
#include "completion/CompleteCommand.h"
#include "exceptions/Exception.h"
#include "terminal/Json.h"
#include "verbs/BenchVerb.h"
#include "verbs/ConfigVerbs.h"
#include "verbs/EvaluateVerb.h"
#include "verbs/FileVerbs.h"
#include "verbs/ImportVerb.h"
#include "verbs/ReadVerbs.h"
#include "verbs/RequestVerb.h"
#include "verbs/WriteVerbs.h"
#include "windows/com/xml/Library.h"

namespace halvern::morvane::client {

namespace {

constexpr const char* VERSION = "morvane 2.40";

constexpr const char* FOOTER =
    "First steps:\n"
    "  morvane create languages english swedish\n"
    "  morvane train languages english --text \"the house on the hill\"\n"
    "  morvane train languages swedish --text \"huset vid sjön\"\n"
    "  morvane classify languages --text \"a small house\"\n"
    "\n"
    "Where the server is: --server, else MORVANE_SERVER, else 'server = HOST:PORT' in\n"
    "~/.config/morvane/config, else 127.0.0.1:9400.\n"
    "\n"
    "Exit codes: 0 done; 1 the server refused; 2 wrong usage; 3 no server, or it broke\n"
    "off; 4 a local file can't be read, understood or written; 5 a check or comparison\n"
    "failed; 130 interrupted.";

void showFailure(const Failure& failure, Context& context) {
    if (context.json()) {
        nlohmann::ordered_json error;
        error["exitCode"] = static_cast<int>(failure.code);
        if (failure.status != 0) {
            error["statusCode"] = failure.status;
        }
        if (!failure.call.empty()) {
            error["call"] = failure.call;
        }
        error["message"] = failure.message;
        if (!failure.hint.empty()) {
            error["hint"] = failure.hint;
        }
        writeJson(context.err(), nlohmann::ordered_json{{"error", error}});
        return;
    }
    context.err() << context.errTerminal().paint(Colour::RED, "morvane:") << " "
                  << printable(failure.message, true) << "\n";
    if (!failure.hint.empty()) {
        context.err() << printable(failure.hint, true) << "\n";
    }
}

// The verb that was used wrongly, as "morvane file info".
std::string pathOf(const CLI::App& app) {
    const std::vector<CLI::App*> verbs = app.get_subcommands();
    return app.get_name() + (verbs.empty() ? "" : " " + pathOf(*verbs.front()));
}

std::string wordsOf(const CLI::ParseError& error, const CLI::App& app) {
    const CLI::App* verb = &app;
    while (!verb->get_subcommands().empty()) {
        verb = verb->get_subcommands().front();
    }
    const bool lacksVerb = verb->get_require_subcommand_min() > 0;
    const std::vector<std::string> rest = app.remaining(true);
    if (!lacksVerb) {
        return error.what();
    }
    return rest.empty() ? "What is to be done? A verb is missing."
                        : "There is no verb '" + rest.front() + "'.";
}

// The words of a description in lines that fit beside the names of options into 80 columns.
std::string wrapped(const std::string& description) {
    constexpr std::size_t WIDTH = 50;
    std::istringstream words(description);
    std::string text;
    std::size_t column = 0;
    for (std::string word; words >> word;) {
        const bool isFirst = text.empty();
        const bool fits = column + 1 + word.size() <= WIDTH;
        text += isFirst ? "" : fits ? " " : "\n";
        column = (fits && !isFirst ? column + 1 : 0) + word.size();
        text += word;
    }
    return text;
}

// The library would show the kind of each value and the words of each check, which say less than descriptions
// do.
class PlainFormatter final : public CLI::Formatter {
public:
    std::string make_option_desc(const CLI::Option* option) const override {
        return wrapped(option->get_description());
    }

    std::string make_option_opts(const CLI::Option* option) const override {
        const std::string type = option->get_type_name();
        if (option->get_positional() || type.empty() || option->get_type_size() == 0) {
            return "";
        }
        const std::string kind = type.substr(0, type.find(':'));
        const bool isNumber = kind == "INT" || kind == "UINT" || kind == "FLOAT";
        const std::string standard = option->get_default_str();
        return " " +
               (isNumber         ? "N"
                : kind == "TEXT" ? kind
                                 : type) +
               (standard.empty() ? "" : " (" + standard + ")");
    }
};

}  // namespace

void declareCommandLine(CLI::App& app, Context& context) {
    app.formatter(std::make_shared<PlainFormatter>());
    app.name("morvane");
    app.description("Tells texts apart, with the help of a Morvane server.");
    app.footer(FOOTER);
    app.set_help_flag("-h,--help", "Show help; behind a verb, help on that verb");
    app.set_version_flag("--version", VERSION, "Show the version");
    app.add_option("--server", context.options().server, "Where the server listens; IPv6 as [::1]:9400")
        ->type_name("HOST:PORT");
    app.add_option("--timeout", context.options().timeoutSeconds,
                   "Longest silence of the server, 300 if not given; 0: wait for ever")
        ->type_name("SECONDS");
    app.add_flag("--json", context.options().json, "Answers and errors in JSON (docs/client.md)");
    app.require_subcommand(1);
    // So that the options above may stand behind the verb too; verbs inherit it.
    app.fallthrough();
    addWriteVerbs(app, context);
    addReadVerbs(app, context);
    addRequestVerb(app, context);
    addBenchVerb(app, context);
    addConfigVerbs(app, context);
    addFileVerbs(app, context);
    addImportVerb(app, context);
    addEvaluateVerb(app, context);
}

int Program::run(const std::vector<std::string>& arguments) {
    const windows::com::xml::Library library;
    CLI::App app;
    declareCommandLine(app, _context);
    // No verb among the others: what it is given are the words of a command line that isn't finished.
    if (!arguments.empty() && arguments.front() == "complete") {
        runComplete(app, _context, {arguments.begin() + 1, arguments.end()});
        return static_cast<int>(ExitCode::DONE);
    }
    try {
        // CLI11 takes them from the back.
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
        _context.out().flush();
        if (!_context.out()) {
            throw Failure{
                ExitCode::LOCAL_FILE, "The output can't be written.",
                _context.wantsServer()
                    ? "Is the disk full? What the server was asked to change is changed all the same."
                    : "Is the disk full?"};
        }
        if (_context.exitCode == ExitCode::DONE) {
            rememberNames(app, _context);
        }
        return static_cast<int>(_context.exitCode);
    } catch (const CLI::Success& e) {
        // Help or the version was asked for.
        app.exit(e, _context.out(), _context.err());
        _context.out().flush();
        return static_cast<int>(_context.out() ? ExitCode::DONE : ExitCode::LOCAL_FILE);
    } catch (const CLI::ParseError& e) {
        // It is set only once the whole line has been understood.
        _context.options().json = std::count(arguments.begin(), arguments.end(), "--json") != 0;
        showFailure({ExitCode::USAGE, wordsOf(e, app), "'" + pathOf(app) + " --help' shows how it is meant."},
                    _context);
        return static_cast<int>(ExitCode::USAGE);
    } catch (const Failure& failure) {
        _context.out().flush();
        showFailure(failure, _context);
        return static_cast<int>(failure.code);
    } catch (const exceptions::Exception& e) {
        showFailure({ExitCode::LOCAL_FILE, e.what()}, _context);
        return static_cast<int>(ExitCode::LOCAL_FILE);
    } catch (const std::bad_alloc&) {
        showFailure({ExitCode::LOCAL_FILE, "The memory of this machine is used up.", "Do less at once."},
                    _context);
        return static_cast<int>(ExitCode::LOCAL_FILE);
    } catch (const std::exception& e) {
        showFailure({ExitCode::LOCAL_FILE, e.what()}, _context);
        return static_cast<int>(ExitCode::LOCAL_FILE);
    }
}

}  // namespace halvern::morvane::client
