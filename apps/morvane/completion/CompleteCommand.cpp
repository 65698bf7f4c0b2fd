#include "completion/CompleteCommand.h"

#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <ostream>

#include "Failure.h"
#include "completion/Completion.h"
#include "completion/KnownClassifiers.h"
#include "completion/ShellWords.h"
#include "exceptions/Exception.h"
#include "server/Answer.h"
#include "server/RequestWriter.h"

namespace halvern::morvane::client {
namespace {

// Somebody sits there and has pressed a key.
constexpr double PATIENCE_SECONDS = 0.5;

// Ends the process, in silence, when the time is over: the lookup of a host's name has no limit of its own.
class Deadline {
public:
    explicit Deadline(double seconds) {
        struct sigaction action = {};
        action.sa_handler = [](int) { _exit(0); };
        sigaction(SIGALRM, &action, &_before);
        set(seconds);
    }
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;
    ~Deadline() {
        set(0);
        sigaction(SIGALRM, &_before, nullptr);
    }

private:
    static void set(double seconds) {
        itimerval timer = {};
        timer.it_value.tv_usec = static_cast<suseconds_t>(seconds * 1e6);
        setitimer(ITIMER_REAL, &timer, nullptr);
    }

    struct sigaction _before = {};
};

class LiveNamesImpl final : public LiveNames {
public:
    explicit LiveNamesImpl(Context& context) : _context(context) {}

    std::vector<std::string> classifiers(const std::string& server) override {
        return quietly([&] {
            useServer(server);
            return KnownClassifiers(_context.environment()).of(_context.settings().address.text());
        });
    }

    std::vector<std::string> classes(const std::string& server, const std::string& classifier) override {
        return quietly([&] {
            useServer(server);
            const Deadline deadline(PATIENCE_SECONDS);
            RequestWriter request;
            const std::string call = request.getInformation(classifier);
            const Answer answer = ask(_context.exchange(), request);
            std::vector<std::string> names;
            for (const ClassCounts& each : answer.information(call)) {
                names.push_back(each.className);
            }
            return names;
        });
    }

private:
    template <class Work>
    static std::vector<std::string> quietly(const Work& work) {
        try {
            return work();
        } catch (const Failure&) {
        } catch (const exceptions::Exception&) {
        }
        return {};
    }

    void useServer(const std::string& server) {
        if (!server.empty()) {
            _context.options().server = server;
        }
        _context.options().timeoutSeconds = PATIENCE_SECONDS;
    }

    Context& _context;
};

void writeLines(std::ostream& out, const Suggestions& suggestions) {
    out << (suggestions.files ? "files\n" : "words\n");
    for (const Suggestions::Word& word : suggestions.words) {
        out << word.text << (word.description.empty() ? "" : "\t") << word.description << "\n";
    }
}

// bash takes words as they are to stand in the line, filters nothing, and replaces only what is behind the
// last ':' or '='.
void completeBash(const CLI::App& app, LiveNames& names, const std::string& line, std::string replaced,
                  std::ostream& out) {
    ShellWords typed = readShellWords(line);
    typed.words.erase(typed.words.begin());  // the program's name
    Suggestions suggestions = complete(app, typed.words, names);
    out << (suggestions.files ? "files\n" : "words\n");
    if (replaced == ":" || replaced == "=") {
        replaced.clear();
    }
    const std::string& last = typed.words.back();
    std::size_t kept = 0;
    if (typed.rawLast.size() > replaced.size() && typed.rawLast.ends_with(replaced)) {
        kept = typed.rawLast.size() - replaced.size();
    }
    for (const Suggestions::Word& word : suggestions.words) {
        if (word.text.compare(0, last.size(), last) == 0) {
            out << (typed.endsInQuotes ? word.text : shellQuoted(word.text).substr(kept)) << "\n";
        }
    }
}

}  // namespace

void runComplete(const CLI::App& app, Context& context, const std::vector<std::string>& arguments) {
    LiveNamesImpl names(context);
    const std::string shell = arguments.empty() ? "" : arguments.front();
    if (shell == "bash" && arguments.size() == 3) {
        completeBash(app, names, arguments[1], arguments[2], context.out());
    } else if ((shell == "zsh" || shell == "fish") && arguments.size() > 1) {
        writeLines(context.out(), complete(app, {arguments.begin() + 1, arguments.end()}, names));
    }
    context.out().flush();
}

void rememberNames(const CLI::App& app, Context& context) {
    const CLI::App* verb = &app;
    while (!verb->get_subcommands().empty()) {
        verb = verb->get_subcommands().front();
    }
    const CLI::Option* option = verb->get_option_no_throw("CLASSIFIER");
    if (option == nullptr || !context.wantsServer()) {
        return;
    }
    const KnownClassifiers known(context.environment());
    const std::string server = context.settings().address.text();
    for (const std::string& name : option->results()) {
        if (verb->get_name() == "remove") {
            known.forget(server, name);
        } else {
            known.remember(server, name);
        }
    }
}

}  // namespace halvern::morvane::client
