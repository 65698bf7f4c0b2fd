#include "verbs/RequestVerb.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <ostream>

#include "Failure.h"
#include "server/Answer.h"
#include "verbs/TextOptions.h"
#include "verbs/Verb.h"

namespace halvern::morvane::client {

void addRequestVerb(CLI::App& app, Context& context) {
    CLI::App& verb = addVerb(app, "request", "Send a request as it stands, and show the answer as it comes",
                             "morvane request examples/requests/classify.xml");
    const auto file = std::make_shared<std::string>();
    verb.add_option("FILE", *file, "File with the request; - is standard input")->required()->type_name("");
    verb.callback([&context, file] {
        const std::string answer = context.exchange().ask(readInput(*file, context));
        context.out() << answer << (answer.ends_with('\n') ? "" : "\n");
        // The answer says all; the exit code is for scripts.
        if (!Answer::parse(answer).isSuccess()) {
            context.exitCode = ExitCode::REFUSED;
        }
    });
}

}  // namespace halvern::morvane::client
