#include "verbs/ReadVerbs.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <nlohmann/json.hpp>
#include <ostream>

#include "server/Answer.h"
#include "server/RequestWriter.h"
#include "terminal/Json.h"
#include "terminal/Table.h"
#include "verbs/TextOptions.h"
#include "verbs/Verb.h"

namespace halvern::morvane::client {

namespace {

using nlohmann::ordered_json;

struct ReadOptions {
    std::string classifier;
    std::vector<std::string> classifiers;
    bool all = false;
    TextOptions texts;
};

// Below this share of known features, the probabilities say little.
constexpr double LOW_COVERAGE = 0.2;

ordered_json jsonOf(const NamedText& text, const Classified& classified) {
    ordered_json probabilities = ordered_json::object();
    for (const ClassShare& share : classified.classes) {
        probabilities[share.className] = share.probability;
    }
    return {{"name", text.name},
            {"class", classified.best().className},
            {"probability", classified.best().probability},
            {"coverage", classified.textCoverage ? ordered_json(*classified.textCoverage) : ordered_json()},
            {"probabilities", probabilities}};
}

void classify(Context& context, const ReadOptions& options) {
    const std::vector<NamedText> texts = options.texts.read(context);
    RequestWriter request;
    std::vector<std::string> calls;
    calls.reserve(texts.size());
    for (const NamedText& text : texts) {
        calls.push_back(request.classify(options.classifier, request.addText(text.bytes), text.name));
    }
    const Answer answer = ask(context.exchange(), request);

    ordered_json results = ordered_json::array();
    Table table({{"TEXT"}, {"CLASS"}, {"PROBABILITY", Table::RIGHT}, {"COVERAGE", Table::RIGHT}});
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const Classified& classified = answer.classification(calls[i]);
        if (context.json()) {
            results.push_back(jsonOf(texts[i], classified));
            continue;
        }
        std::vector<ClassShare> shown = classified.classes;
        std::stable_sort(shown.begin(), shown.end(), [](const ClassShare& a, const ClassShare& b) {
            return a.probability > b.probability;
        });
        shown.resize(options.all ? shown.size() : 1);
        const bool isUncertain = classified.textCoverage.value_or(1) < LOW_COVERAGE;
        for (std::size_t place = 0; place < shown.size(); ++place) {
            const bool isFirst = place == 0;
            table.addRow(
                {isFirst ? texts[i].name : "", shown[place].className, shareText(shown[place].probability),
                 isFirst && classified.textCoverage ? shareText(*classified.textCoverage) : ""},
                !isFirst      ? Colour::DIM
                : isUncertain ? Colour::YELLOW
                              : Colour::PLAIN);
        }
    }
    if (context.json()) {
        writeJson(context.out(), {{"classifier", options.classifier}, {"texts", results}});
    } else {
        table.write(context.out(), context.terminal());
    }
}

void keywords(Context& context, const ReadOptions& options) {
    const std::vector<NamedText> texts = options.texts.read(context);
    RequestWriter request;
    std::vector<std::string> calls;
    calls.reserve(texts.size());
    for (const NamedText& text : texts) {
        calls.push_back(request.classifyKeywords(options.classifier, request.addText(text.bytes), text.name));
    }
    const Answer answer = ask(context.exchange(), request);

    ordered_json results = ordered_json::array();
    Table table({{"TEXT"}, {"WORD"}, {"CLASS"}, {"PROBABILITY", Table::RIGHT}});
    for (std::size_t i = 0; i < texts.size(); ++i) {
        ordered_json words = ordered_json::array();
        const std::vector<Keyword>& found = answer.keywords(calls[i]);
        for (const Keyword& keyword : found) {
            words.push_back(
                {{"word", keyword.word}, {"class", keyword.className}, {"probability", keyword.probability}});
            table.addRow({&keyword == &found.front() ? texts[i].name : "", keyword.word, keyword.className,
                          shareText(keyword.probability)});
        }
        if (found.empty()) {
            table.addRow({texts[i].name, "(none)", "", ""}, Colour::DIM);
        }
        results.push_back({{"name", texts[i].name}, {"keywords", words}});
    }
    if (context.json()) {
        writeJson(context.out(), {{"classifier", options.classifier}, {"texts", results}});
    } else {
        table.write(context.out(), context.terminal());
    }
}

void info(Context& context, const ReadOptions& options) {
    RequestWriter request;
    std::vector<std::string> calls;
    for (const std::string& classifier : options.classifiers) {
        calls.push_back(request.getInformation(classifier));
    }
    const Answer answer = ask(context.exchange(), request);

    ordered_json results = ordered_json::array();
    Table table({{"CLASSIFIER"}, {"CLASS"}, {"FEATURES", Table::RIGHT}, {"OCCURRENCES", Table::RIGHT}});
    for (std::size_t i = 0; i < calls.size(); ++i) {
        const std::vector<ClassCounts>& counts = answer.information(calls[i]);
        ordered_json classes = ordered_json::array();
        for (const ClassCounts& count : counts) {
            classes.push_back({{"name", count.className},
                               {"uniqueFeatures", count.uniqueFeatures},
                               {"totalCount", count.totalCount}});
            table.addRow({&count == &counts.front() ? options.classifiers[i] : "", count.className,
                          countText(count.uniqueFeatures), countText(count.totalCount)});
        }
        if (counts.empty()) {
            table.addRow({options.classifiers[i], "(no class yet)", "", ""}, Colour::DIM);
        }
        results.push_back({{"name", options.classifiers[i]}, {"classes", classes}});
    }
    if (context.json()) {
        writeJson(context.out(), {{"classifiers", results}});
    } else {
        table.write(context.out(), context.terminal());
    }
}

}  // namespace

void addReadVerbs(CLI::App& app, Context& context) {
    const auto add = [&](const char* name, const char* description, const char* example,
                         void (*run)(Context&, const ReadOptions&)) {
        CLI::App& verb = addVerb(app, name, description, example);
        const auto options = std::make_shared<ReadOptions>();
        verb.callback([&context, options, run] { run(context, *options); });
        return std::pair<CLI::App*, ReadOptions*>(&verb, options.get());
    };
    const auto classified = add("classify", "Tell the most probable class of texts",
                                "morvane classify languages a.txt b.txt\n"
                                "echo \"a small house\" | morvane classify languages -\n"
                                "morvane classify languages --lines sentences.txt --json",
                                classify);
    const auto explained = add("keywords", "Tell the words of texts that speak most strongly for a class",
                               "morvane keywords languages --text \"the house on the hill\"", keywords);
    for (const auto& verb : {classified, explained}) {
        verb.first->add_option("CLASSIFIER", verb.second->classifier, "Name of the classifier")
            ->required()
            ->type_name("");
        verb.second->texts.declare(*verb.first);
    }
    classified.first->add_flag("-a,--all", classified.second->all, "Show all classes, not only the best");

    const auto described = add("info", "Tell the classes of classifiers, and how much each has learned",
                               "morvane info languages", info);
    described.first->add_option("CLASSIFIER", described.second->classifiers, "Names of classifiers")
        ->required();
}

}  // namespace halvern::morvane::client
