#include "verbs/ImportVerb.h"

#include <poll.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <nlohmann/json.hpp>
#include <ostream>

#include "Failure.h"
#include "data/Survey.h"
#include "import/Importer.h"
#include "io/filesystem/SaveFile.h"
#include "server/Interrupts.h"
#include "server/RequestWriter.h"
#include "terminal/Json.h"
#include "terminal/Progress.h"
#include "terminal/Table.h"
#include "verbs/SourceOptions.h"
#include "verbs/Verb.h"

namespace halvern::morvane::client {

namespace {

using nlohmann::ordered_json;

struct ImportChoices {
    SourceOptions source;
    ImportOptions options;
    bool dryRun = false;
    bool restart = false;
    std::string journal;
};

std::string counted(std::uint64_t count, const std::string& one, const std::string& many) {
    return countText(count) + " " + (count == 1 ? one : many);
}

ordered_json jsonOf(const Survey& survey) {
    ordered_json classes = ordered_json::array();
    for (const Survey::Class& entry : survey.classes) {
        classes.push_back({{"name", entry.name}, {"texts", entry.texts}, {"bytes", entry.bytes}});
    }
    return {{"records", survey.records},
            {"bad", survey.bad},
            {"notUtf8", survey.notUtf8},
            {"classes", classes},
            {"problems", survey.problems}};
}

void showSurvey(Context& context, const Survey& survey) {
    if (context.json()) {
        return writeJson(context.out(), jsonOf(survey));
    }
    Table table({{"CLASS"}, {"TEXTS", Table::RIGHT}, {"BYTES", Table::RIGHT}});
    for (const Survey::Class& entry : survey.classes) {
        table.addRow({entry.name, countText(entry.texts), countText(entry.bytes)});
    }
    table.write(context.out(), context.terminal());
    context.out() << "\n"
                  << counted(survey.records - survey.bad, "text", "texts") << " of "
                  << counted(survey.classes.size(), "class", "classes") << "; nothing was sent.\n";
    if (survey.notUtf8 > 0) {
        context.out() << counted(survey.notUtf8, "text isn't", "texts aren't")
                      << " in UTF-8; they match only texts in the same encoding.\n";
    }
    if (survey.bad > 0) {
        context.out() << counted(survey.bad, "record", "records") << " can't be used:\n";
        for (const std::string& problem : survey.problems) {
            context.out() << "  " << printable(problem) << "\n";
        }
    }
}

// The journal of an import of this input that was interrupted, or a new one.
Journal journalFor(const JournalFile& file, const Journal& wanted, bool restart) {
    if (restart) {
        return wanted;
    }
    const std::optional<Journal> found = file.load();
    if (!found) {
        return wanted;
    }
    // The server may have moved to another address meanwhile; what the classifier is called stays.
    if (found->classifier != wanted.classifier) {
        throw Failure{ExitCode::DIFFERENT,
                      "The journal '" + file.path() + "' is of an import into the classifier '" +
                          found->classifier + "' at " + found->server + ".",
                      "Go on with that import, or choose another --journal FILE."};
    }
    if (found->fingerprint != wanted.fingerprint || found->reading != wanted.reading) {
        throw Failure{
            ExitCode::DIFFERENT,
            std::string("An import of this input was interrupted behind ") +
                counted(found->records, "record", "records") + ", and since then " +
                (found->fingerprint != wanted.fingerprint ? "the input has changed."
                                                          : "it is to be read in another way."),
            "Bring it back as it was to go on, or use --restart to learn all of it: what was learned counts "
            "twice then."};
    }
    return *found;
}

void showResult(Context& context, const ImportChoices& choices, const ImportCounts& counts,
                const ImportCounts& before, double seconds) {
    const double rate = seconds > 0 ? static_cast<double>(counts.texts) / seconds : 0;
    if (context.json()) {
        return writeJson(context.out(), {{"classifier", choices.options.classifier},
                                         {"texts", counts.texts},
                                         {"records", counts.records},
                                         {"skipped", counts.skipped},
                                         {"batches", counts.batches},
                                         {"resent", counts.refusals},
                                         {"resumedBehind", before.records},
                                         {"seconds", seconds},
                                         {"textsPerSecond", rate}});
    }
    context.out() << "Learned " << counted(counts.texts, "text", "texts") << " in "
                  << counted(counts.batches, "batch", "batches") << ", " << durationText(seconds) << ", "
                  << countText(static_cast<std::uint64_t>(rate)) << " texts/s.";
    if (counts.skipped > 0) {
        context.out() << " Passed over " << counted(counts.skipped, "record", "records") << ".";
    }
    context.out() << "\n";
}

void runImport(Context& context, ImportChoices& choices) {
    checkClassifierName(choices.options.classifier);
    choices.source.prepare(context);
    ImportOptions& options = choices.options;
    options.skipBad = choices.source.skipBad;
    options.batchTexts = choices.source.batchTexts;
    options.batchBytes = choices.source.batchBytes;

    // All of it is read before anything is sent: a fault in the last line is better known before than after.
    const Survey found = survey(*openRecords(choices.source.source()));
    if (choices.dryRun) {
        showSurvey(context, found);
        context.exitCode = found.bad > 0 && !options.skipBad ? ExitCode::LOCAL_FILE : ExitCode::DONE;
        return;
    }
    if (!options.skipBad) {
        requireSound(found);
    }
    // Up to here Ctrl-C ends the program at once, even while it waits for its standard input.
    const Interrupts interrupts;
    Journal wanted;
    wanted.server = context.settings().address.text();
    wanted.classifier = options.classifier;
    wanted.input = choices.source.fullName();
    wanted.reading = choices.source.reading();
    wanted.fingerprint = fingerprintOf(choices.source.source());
    const io::filesystem::SaveFileImpl saver;
    const JournalFile file(choices.journal.empty() ? journalPath(context.environment(), wanted.server,
                                                                 wanted.classifier, wanted.input)
                                                   : choices.journal,
                           saver);
    const Journal journal = journalFor(file, wanted, choices.restart);
    if (!context.json()) {
        for (const std::string& problem : found.problems) {
            context.err() << "Passed over: " << printable(problem) << "\n";
        }
        if (journal.records > 0 || journal.open) {
            context.err() << "Going on behind " << counted(journal.records, "record", "records")
                          << " of an import that was interrupted.\n";
        }
    }

    ImportCounts before;
    before.records = journal.records;
    const auto start = Progress::Clock::now();
    const std::unique_ptr<RecordReader> reader = openRecords(choices.source.source());
    Progress progress(context.err(), context.errTerminal(), "records", found.records, journal.records);
    progress.show(journal.records, 0);
    const auto wait = [&](std::chrono::milliseconds time) {
        pollfd interrupt = {interrupts.descriptor(), POLLIN, 0};
        ::poll(&interrupt, 1, static_cast<int>(time.count()));
        interrupts.check();
    };
    const auto watch = [&](const ImportCounts& counts) {
        interrupts.check();
        progress.show(counts.records, counts.skipped + counts.refusals);
    };
    Importer importer(options, context.exchange(), *reader, file, journal, wait, watch);
    const ImportCounts counts = importer.run();
    const std::chrono::duration<double> seconds = Progress::Clock::now() - start;
    progress.clear();
    showResult(context, choices, counts, before, seconds.count());
}

}  // namespace

void addImportVerb(CLI::App& app, Context& context) {
    CLI::App& verb = addVerb(
        app, "import", "Learn labelled texts from a file or folder; can be interrupted and gone on with",
        "morvane import spam messages.tsv --create\n"
        "morvane import mail export.csv --label-column folder --text-column body\n"
        "morvane import news articles/ --dry-run");
    const auto choices = std::make_shared<ImportChoices>();
    ImportOptions& options = choices->options;
    choices->source.batchTexts = options.batchTexts;
    verb.add_option("CLASSIFIER", options.classifier, "Name of the classifier")->required();
    choices->source.declare(
        verb,
        "File of labelled texts (TSV, CSV, JSON lines), - for standard input, or a folder "
        "with a folder for each class");
    verb.add_flag("--create", options.create, "Make the classifier if there is none");
    verb.add_flag("--dry-run", choices->dryRun, "Read everything, send nothing, tell classes and problems");
    verb.add_option("--retries", options.retries, "How often to try again after the connection broke")
        ->check(CLI::Range(0, 1000))
        ->capture_default_str();
    verb.add_option("--journal", choices->journal,
                    "Where the progress is written down, else below $XDG_STATE_HOME/morvane")
        ->type_name("FILE");
    verb.add_flag("--restart", choices->restart, "Begin anew, although an interrupted import could go on");
    verb.add_option("--assume", options.assume,
                    "taken or not-taken: what became of a batch if somebody else has written since then")
        ->check(CLI::IsMember({"taken", "not-taken"}));
    verb.callback([&context, choices] { runImport(context, *choices); });
}

}  // namespace halvern::morvane::client
