#include "verbs/BenchVerb.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <memory>
#include <nlohmann/json.hpp>
#include <ostream>

#include "Failure.h"
#include "load/Echo.h"
#include "load/Load.h"
#include "server/Answer.h"
#include "server/RequestWriter.h"
#include "server/SocketExchange.h"
#include "terminal/Json.h"
#include "terminal/Table.h"
#include "verbs/TextOptions.h"
#include "verbs/Verb.h"

namespace halvern::morvane::client {

namespace {

struct BenchOptions {
    std::string classifier;
    TextOptions texts;
    std::string requestFile;
    bool echo = false;
    std::uint32_t clients = 4;
    double seconds = 10;
    std::uint64_t requests = 0;
};

std::vector<LoadRequest> requestsOf(const BenchOptions& options, Context& context) {
    if (!options.requestFile.empty()) {
        return {{readInput(options.requestFile, context)}};
    }
    if (options.classifier.empty()) {
        throw Failure{ExitCode::USAGE, "There is nothing to send.",
                      "Name a classifier and texts to classify, or --request FILE, or --echo."};
    }
    std::vector<LoadRequest> requests;
    for (const NamedText& text : options.texts.read(context)) {
        RequestWriter request;
        const std::string call = request.classify(options.classifier, request.addText(text.bytes), text.name);
        requests.push_back({request.document(), request.describe(call)});
    }
    return requests;
}

double milliseconds(std::chrono::nanoseconds time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

std::string fixed(double number, int digits) {
    char text[64];
    std::snprintf(text, sizeof(text), "%.*f", digits, number);
    return text;
}

void report(const LoadPlan& plan, const LoadResult& result, Context& context) {
    const double seconds = std::chrono::duration<double>(result.time).count();
    const std::pair<const char*, double> latencies[] = {
        {"p50", 0.5}, {"p90", 0.9}, {"p99", 0.99}, {"p999", 0.999}, {"longest", 1.0}};
    if (context.json()) {
        nlohmann::ordered_json document{{"clients", plan.clients},
                                        {"seconds", seconds},
                                        {"answers", result.latencies.size()},
                                        {"perSecond", result.perSecond()}};
        for (const auto& [name, part] : latencies) {
            document["latencyMilliseconds"][name] = milliseconds(result.quantile(part));
        }
        document["errors"] = result.errors;
        if (result.firstError) {
            document["firstError"] = result.firstError->message;
        }
        writeJson(context.out(), document);
        return;
    }
    std::string line;
    for (const auto& [name, part] : latencies) {
        line += (line.empty() ? "" : ", ") + std::string(name) + " " +
                fixed(milliseconds(result.quantile(part)), 3);
    }
    context.out() << "clients       " << plan.clients << "\n"
                  << "answers       " << countText(result.latencies.size()) << " in " << fixed(seconds, 2)
                  << " s\n"
                  << "per second    " << fixed(result.perSecond(), 1) << "\n"
                  << "latency in ms " << line << "\n"
                  << "errors        " << countText(result.errors) << "\n";
    if (result.firstError) {
        context.out() << "first error   " << printable(result.firstError->message, true) << "\n";
        if (!result.firstError->hint.empty()) {
            context.out() << printable(result.firstError->hint, true) << "\n";
        }
    }
}

void bench(Context& context, const BenchOptions& options) {
    LoadPlan plan;
    plan.clients = options.clients;
    plan.count = options.requests;
    plan.time = std::chrono::nanoseconds(static_cast<std::int64_t>(options.seconds * 1e9));
    std::unique_ptr<Echo> echo;
    std::function<std::unique_ptr<Exchange>()> connect = [&context] { return context.newExchange(); };
    if (options.echo) {
        echo = std::make_unique<Echo>();
        Settings settings;
        settings.address.port = echo->port();
        plan.requests = {{std::string(Echo::SIZE, 'x')}};
        connect = [settings] { return std::make_unique<SocketExchange>(settings); };
    } else {
        plan.requests = requestsOf(options, context);
        // A load of nothing but errors tells nobody anything. This one isn't counted.
        const Answer first = Answer::parse(context.exchange().ask(plan.requests.front().bytes));
        if (!first.isSuccess()) {
            throw refusal(first, plan.requests.front().call);
        }
    }
    const LoadResult result = runLoad(plan, connect);
    report(plan, result, context);
    if (result.isInterrupted) {
        context.exitCode = ExitCode::INTERRUPTED;
    } else if (result.firstError) {
        context.exitCode = result.firstError->code;
    }
}

}  // namespace

void addBenchVerb(CLI::App& app, Context& context) {
    CLI::App& verb = addVerb(app, "bench", "Put load on a server, and tell rate and latency",
                             "morvane bench languages --lines sentences.txt --clients 8 --duration 30\n"
                             "morvane bench --request request.xml\n"
                             "morvane bench --echo");
    const auto options = std::make_shared<BenchOptions>();
    verb.add_option("CLASSIFIER", options->classifier, "Classify with it; each text is a request of its own")
        ->type_name("");
    options->texts.declare(verb);
    verb.add_option("-r,--request", options->requestFile,
                    "Send this request instead; beware of what it writes")
        ->type_name("FILE");
    verb.add_flag("--echo", options->echo, "Without a server: what a bare echo gets out of this machine");
    verb.add_option("-c,--clients", options->clients, "Clients at the same time, 4 if not given")
        ->type_name("N")
        ->check(CLI::Range(1, 10000).description(""));
    CLI::Option* const duration =
        verb.add_option("-d,--duration", options->seconds, "For how long, 10 if not given")
            ->type_name("SECONDS")
            ->check(CLI::Range(0.001, 86400.0).description(""));
    verb.add_option("-n,--requests", options->requests, "How many requests altogether, instead of a duration")
        ->type_name("N")
        ->check(CLI::Range(1, INT32_MAX).description(""))
        ->excludes(duration);
    verb.callback([&context, options] { bench(context, *options); });
}

}  // namespace halvern::morvane::client
