#include "verbs/ConfigVerbs.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <nlohmann/json.hpp>
#include <ostream>

#include "Failure.h"
#include "config/ConfigCheck.h"
#include "io/filesystem/ExistsFile.h"
#include "io/filesystem/SaveFile.h"
#include "terminal/Json.h"
#include "verbs/TextOptions.h"
#include "verbs/Verb.h"

namespace halvern::morvane::client {

namespace {

void check(const std::string& file, Context& context) {
    const ConfigFindings findings = checkConfig(
        context.programFolder() + "xml/schemas/config/ConfigSchema.xsd", readInput(file, context));
    const bool isSound = findings.complaints.empty();
    context.exitCode = isSound ? ExitCode::DONE : ExitCode::DIFFERENT;
    if (context.json()) {
        writeJson(context.out(), {{"file", file},
                                  {"sound", isSound},
                                  {"complaints", findings.complaints},
                                  {"notes", findings.notes}});
        return;
    }
    const Terminal& terminal = context.terminal();
    for (const std::string& complaint : findings.complaints) {
        context.out() << terminal.paint(Colour::RED, "wrong") << "  " << printable(complaint, true) << "\n";
    }
    for (const std::string& note : findings.notes) {
        context.out() << terminal.paint(Colour::YELLOW, "note") << "   " << printable(note, true) << "\n";
    }
    context.out() << printable(file)
                  << (isSound ? ": a server would start with this.\n"
                              : ": a server would not start with this.\n");
}

void init(const std::string& file, bool isForced, Context& context) {
    const std::string text = commentedConfig();
    if (file == "-") {
        if (context.json()) {
            writeJson(context.out(), {{"configuration", text}});
        } else {
            context.out() << text;
        }
        return;
    }
    if (!isForced && io::filesystem::ExistsFileImpl().exists(file)) {
        throw Failure{ExitCode::LOCAL_FILE, "The file '" + file + "' exists already, and stays as it is.",
                      "Choose another name, or say --force to replace it."};
    }
    io::filesystem::SaveFileImpl().save(file, {text.begin(), text.end()});
    if (context.json()) {
        writeJson(context.out(), {{"file", file}});
    } else {
        context.out() << "Wrote " << printable(file) << ". Start a server with it: morvaneserver -config "
                      << printable(file) << "\n";
    }
}

}  // namespace

void addConfigVerbs(CLI::App& app, Context& context) {
    CLI::App& config = addVerb(app, "config", "Write or check the configuration of a server",
                               "morvane config init config.xml\nmorvane config check config.xml");
    config.require_subcommand(1);

    CLI::App& checking = addVerb(config, "check", "Tell what is wrong with a configuration, without a server",
                                 "morvane config check config.xml");
    const auto checked = std::make_shared<std::string>();
    checking.add_option("FILE", *checked, "The configuration; - is standard input")
        ->required()
        ->type_name("");
    checking.callback([&context, checked] { check(*checked, context); });

    CLI::App& making = addVerb(config, "init", "Write a configuration to begin with, which explains itself",
                               "morvane config init config.xml");
    const auto made = std::make_shared<std::string>("-");
    const auto isForced = std::make_shared<bool>(false);
    making.add_option("FILE", *made, "Where to; standard output if not given")->type_name("");
    making.add_flag("-f,--force", *isForced, "Replace a file that exists");
    making.callback([&context, made, isForced] { init(*made, *isForced, context); });
}

}  // namespace halvern::morvane::client
