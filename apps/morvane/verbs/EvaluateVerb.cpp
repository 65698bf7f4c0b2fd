#include "verbs/EvaluateVerb.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <ostream>

#include "Failure.h"
#include "data/Survey.h"
#include "io/filesystem/SaveFile.h"
#include "report/Evaluator.h"
#include "report/Html.h"
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

constexpr std::size_t MATRIX_CLASSES = 12;
constexpr std::size_t MATRIX_NAME = 12;  // bytes
constexpr std::size_t SHOWN_CLASSES = 30;
constexpr std::size_t SHOWN_PAIRS = 15;

struct EvaluateChoices {
    SourceOptions source;
    EvaluateOptions options;
    std::string page;
    bool all = false;
};

ordered_json jsonOf(const Mistake& mistake) {
    ordered_json words = ordered_json::array();
    for (const SpeakingWord& word : mistake.words) {
        words.push_back({{"word", word.word}, {"class", word.className}, {"probability", word.probability}});
    }
    return {{"place", mistake.place},
            {"text", mistake.text},
            {"actual", mistake.outcome.actual},
            {"predicted", mistake.outcome.predicted},
            {"confidence", mistake.outcome.confidence},
            {"probabilityOfActual", mistake.outcome.actualPart},
            {"words", words}};
}

ordered_json jsonOf(const Report& report) {
    const Metrics& metrics = report.metrics;
    ordered_json classes = ordered_json::array();
    ordered_json names = ordered_json::array();
    for (const ClassScore& score : metrics.classes) {
        names.push_back(score.name);
        classes.push_back({{"name", score.name},
                           {"support", score.support},
                           {"predicted", score.predicted},
                           {"precision", score.precision},
                           {"recall", score.recall},
                           {"f1", score.f1}});
    }
    ordered_json bins = ordered_json::array();
    for (const ReliabilityBin& bin : metrics.bins) {
        bins.push_back({{"lower", bin.lower},
                        {"upper", bin.upper},
                        {"texts", bin.count},
                        {"confidence", bin.count > 0 ? ordered_json(bin.confidence) : ordered_json()},
                        {"accuracy", bin.count > 0 ? ordered_json(bin.accuracy) : ordered_json()}});
    }
    ordered_json mistakes = ordered_json::array();
    for (const Mistake& mistake : report.mistakes) {
        mistakes.push_back(jsonOf(mistake));
    }
    return {
        {"classifier", report.classifier},
        {"input", report.input},
        {"texts", metrics.texts},
        {"accuracy", metrics.accuracy},
        {"macro",
         {{"precision", metrics.macroPrecision}, {"recall", metrics.macroRecall}, {"f1", metrics.macroF1}}},
        {"textCoverage", metrics.textCoverage >= 0 ? ordered_json(metrics.textCoverage) : ordered_json()},
        {"calibration",
         {{"expectedError", metrics.expectedCalibrationError},
          {"maximumError", metrics.maximumCalibrationError},
          {"bins", bins}}},
        {"logLoss", metrics.logLoss},
        {"brierScore", metrics.brierScore},
        {"classes", classes},
        {"confusion", {{"classes", names}, {"matrix", metrics.matrix}}},
        {"mistakes", mistakes}};
}

void showFigures(Context& context, const Report& report) {
    const Metrics& metrics = report.metrics;
    Table table({{"FIGURE"}, {"VALUE", Table::RIGHT}, {"MEANING"}});
    table.addRow({"texts", countText(metrics.texts), ""});
    table.addRow({"accuracy", shareText(metrics.accuracy), "share of texts that got their own class"},
                 Colour::BOLD);
    table.addRow({"macro F1", shareText(metrics.macroF1), "mean over the classes"}, Colour::BOLD);
    table.addRow({"macro precision", shareText(metrics.macroPrecision), ""});
    table.addRow({"macro recall", shareText(metrics.macroRecall), ""});
    if (metrics.textCoverage >= 0) {
        table.addRow(
            {"coverage", shareText(metrics.textCoverage), "share of features that the classifier knows"});
    }
    table.addRow({"calibration error", shareText(metrics.expectedCalibrationError),
                  "mean distance of confidence and accuracy"});
    table.addRow({"log loss", shareText(metrics.logLoss), "0 is best"});
    table.addRow({"Brier score", shareText(metrics.brierScore), "0 is best, 2 is worst"});
    table.write(context.out(), context.terminal());
}

void showClasses(Context& context, const Metrics& metrics, bool all) {
    std::vector<ClassScore> scores = metrics.classes;
    std::stable_sort(scores.begin(), scores.end(),
                     [](const ClassScore& a, const ClassScore& b) { return a.f1 < b.f1; });
    const std::size_t shown = all ? scores.size() : std::min(scores.size(), SHOWN_CLASSES);
    Table table({{"CLASS"},
                 {"TEXTS", Table::RIGHT},
                 {"PRECISION", Table::RIGHT},
                 {"RECALL", Table::RIGHT},
                 {"F1", Table::RIGHT}});
    for (std::size_t i = 0; i < shown; ++i) {
        table.addRow({scores[i].name, countText(scores[i].support), shareText(scores[i].precision),
                      shareText(scores[i].recall), shareText(scores[i].f1)});
    }
    context.out() << "\n";
    table.write(context.out(), context.terminal());
    if (shown < scores.size()) {
        context.out() << countText(scores.size() - shown)
                      << " better classes are left out; --all shows them.\n";
    }
}

void showMatrix(Context& context, const Metrics& metrics) {
    std::vector<Table::Column> columns = {{"ACTUAL"}};
    for (const ClassScore& score : metrics.classes) {
        columns.push_back({shorten(score.name, MATRIX_NAME), Table::RIGHT});
    }
    Table table(columns);
    for (std::size_t row = 0; row < metrics.classes.size(); ++row) {
        std::vector<std::string> cells = {metrics.classes[row].name};
        for (const std::uint64_t count : metrics.matrix[row]) {
            cells.push_back(count == 0 ? "." : countText(count));
        }
        table.addRow(cells);
    }
    context.out() << "\nPredicted, by actual class:\n";
    table.write(context.out(), context.terminal());
}

void showPairs(Context& context, const Metrics& metrics) {
    const std::vector<Confusion> pairs = metrics.mostConfused(SHOWN_PAIRS);
    if (pairs.empty()) {
        return;
    }
    Table table({{"ACTUAL"}, {"PREDICTED"}, {"TEXTS", Table::RIGHT}, {"OF ACTUAL", Table::RIGHT}});
    for (const Confusion& pair : pairs) {
        const ClassScore& actual = metrics.classes[pair.actual];
        table.addRow({actual.name, metrics.classes[pair.predicted].name, countText(pair.count),
                      shareText(static_cast<double>(pair.count) / static_cast<double>(actual.support))});
    }
    context.out() << "\nMost confused:\n";
    table.write(context.out(), context.terminal());
}

void savePage(const std::string& file, const Report& report) {
    const std::string page = reportPage(report);
    try {
        io::filesystem::SaveFileImpl().save(file, util::Bytes(page.begin(), page.end()));
    } catch (const io::filesystem::SaveFileException& e) {
        throw Failure{ExitCode::LOCAL_FILE, "The page '" + file + "' can't be written: " + e.what()};
    }
}

void evaluate(Context& context, EvaluateChoices& choices) {
    checkClassifierName(choices.options.classifier);
    choices.source.prepare(context);
    choices.options.batchTexts = choices.source.batchTexts;
    choices.options.batchBytes = choices.source.batchBytes;
    const Survey found = survey(*openRecords(choices.source.source()));
    if (!choices.source.skipBad) {
        requireSound(found);
    }
    const Interrupts interrupts;
    const std::unique_ptr<RecordReader> reader = openRecords(choices.source.source());
    Progress progress(context.err(), context.errTerminal(), "texts", found.records);
    progress.show(0, 0);
    Evaluator evaluator(choices.options, context.exchange(), [&](std::uint64_t records, std::uint64_t) {
        interrupts.check();
        progress.show(records, found.bad);
    });
    Report report = evaluator.run(*reader);
    report.input = choices.source.name() == "-" ? "standard input" : choices.source.name();
    progress.clear();

    const auto saveAskedPage = [&] {
        // Last, so that a page that can't be written costs nobody the figures.
        if (!choices.page.empty()) {
            savePage(choices.page, report);
        }
    };
    if (context.json()) {
        writeJson(context.out(), jsonOf(report));
        return saveAskedPage();
    }
    showFigures(context, report);
    showClasses(context, report.metrics, choices.all);
    if (report.metrics.classes.size() <= MATRIX_CLASSES) {
        showMatrix(context, report.metrics);
    } else {
        showPairs(context, report.metrics);
    }
    if (found.bad > 0) {
        context.out() << "\nPassed over " << countText(found.bad) << (found.bad == 1 ? " record" : " records")
                      << ", as " << printable(found.problems.front()) << ".\n";
    }
    saveAskedPage();
    if (!choices.page.empty()) {
        context.out() << "\nThe page with the most confident mistakes is in " << printable(choices.page)
                      << ".\n";
    }
}

}  // namespace

void addEvaluateVerb(CLI::App& app, Context& context) {
    CLI::App& verb =
        addVerb(app, "evaluate", "Tell how well a classifier does on labelled texts it hasn't learned",
                "morvane evaluate spam test.tsv\n"
                "morvane evaluate spam test.csv --html report.html");
    const auto choices = std::make_shared<EvaluateChoices>();
    EvaluateOptions& options = choices->options;
    choices->source.batchTexts = options.batchTexts;
    verb.add_option("CLASSIFIER", options.classifier, "Name of the classifier")->required();
    choices->source.declare(verb, "Labelled texts, as 'import' takes them");
    verb.add_option("--html", choices->page, "Write a page with pictures and the most confident mistakes")
        ->type_name("FILE");
    verb.add_option("--mistakes", options.mistakes, "How many mistakes the page and JSON show")
        ->check(CLI::Range(0, 10000))
        ->capture_default_str();
    verb.add_option("--bins", options.bins, "Bins of the calibration")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    verb.add_flag("--all", choices->all, "Show all classes, not only the weakest");
    verb.callback([&context, choices] { evaluate(context, *choices); });
}

}  // namespace halvern::morvane::client
