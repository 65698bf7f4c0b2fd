#include "verbs/WriteVerbs.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <nlohmann/json.hpp>

#include "Failure.h"
#include "server/Answer.h"
#include "server/RequestWriter.h"
#include "terminal/Json.h"
#include "terminal/Table.h"
#include "verbs/TextOptions.h"
#include "verbs/Verb.h"

namespace halvern::morvane::client {

namespace {

struct WriteOptions {
    std::string classifier;
    std::string className;
    std::vector<std::string> classes;
    std::int32_t maxSize = 0;
    TextOptions texts;
};

std::string several(std::size_t count, const char* one, const char* many) {
    return countText(count) + " " + (count == 1 ? one : many);
}

// What a sequence that has succeeded did, for people in a sentence and for machines in figures.
void report(Context& context, const WriteOptions& options, const char* verb, const std::string& sentence,
            const nlohmann::ordered_json& done) {
    if (context.json()) {
        nlohmann::ordered_json document{{"classifier", options.classifier}, {"done", verb}};
        document.update(done);
        writeJson(context.out(), document);
    } else {
        context.out() << printable(sentence) << "\n";
    }
}

void create(Context& context, const WriteOptions& options) {
    RequestWriter request(options.classifier);
    request.create();
    for (const std::string& name : options.classes) {
        request.addClass(name);
    }
    ask(context.exchange(), request);
    const std::string with =
        options.classes.empty() ? "" : " with " + several(options.classes.size(), "class", "classes");
    report(context, options, "create", "Created " + options.classifier + with + ".",
           {{"classes", options.classes}});
}

void remove(Context& context, const WriteOptions& options) {
    RequestWriter request(options.classifier);
    request.remove();
    ask(context.exchange(), request);
    // The server says nothing else if there was none.
    report(context, options, "remove", "There is no " + options.classifier + " any more.",
           nlohmann::ordered_json::object());
}

void addClasses(Context& context, const WriteOptions& options) {
    RequestWriter request(options.classifier);
    for (const std::string& name : options.classes) {
        request.addClass(name);
    }
    ask(context.exchange(), request);
    report(context, options, "add-class",
           "Added " + several(options.classes.size(), "class", "classes") + " to " + options.classifier + ".",
           {{"classes", options.classes}});
}

void removeClasses(Context& context, const WriteOptions& options) {
    RequestWriter request(options.classifier);
    for (const std::string& name : options.classes) {
        request.removeClass(name);
    }
    ask(context.exchange(), request);
    report(context, options, "remove-class",
           "Removed " + several(options.classes.size(), "class", "classes") + " from " + options.classifier +
               ", with all that they had learned.",
           {{"classes", options.classes}});
}

void learn(Context& context, const WriteOptions& options, bool isTraining) {
    RequestWriter request(options.classifier);
    request.setMaxSize(options.maxSize);
    const std::vector<NamedText> texts = options.texts.read(context);
    std::vector<std::string> names;
    for (const NamedText& text : texts) {
        const std::string id = request.addText(text.bytes);
        isTraining ? request.train(options.className, id, text.name)
                   : request.untrain(options.className, id, text.name);
        names.push_back(text.name);
    }
    ask(context.exchange(), request);
    report(context, options, isTraining ? "train" : "untrain",
           (isTraining ? "Trained " : "Untrained ") + options.className + " of " + options.classifier +
               " with " + several(texts.size(), "text", "texts") + ".",
           {{"class", options.className}, {"texts", names}});
}

}  // namespace

void addWriteVerbs(CLI::App& app, Context& context) {
    const auto add = [&](const char* name, const char* description, const char* example,
                         void (*run)(Context&, const WriteOptions&)) {
        CLI::App& verb = addVerb(app, name, description, example);
        const auto options = std::make_shared<WriteOptions>();
        verb.add_option("CLASSIFIER", options->classifier, "Name of the classifier")
            ->required()
            ->type_name("");
        verb.callback([&context, options, run] { run(context, *options); });
        return std::pair<CLI::App*, WriteOptions*>(&verb, options.get());
    };

    const auto created = add("create", "Make a classifier, with classes or without",
                             "morvane create languages english swedish", create);
    created.first->add_option("CLASS", created.second->classes, "Its first classes")->type_name("");

    add("remove", "Remove a classifier and all that it has learned", "morvane remove languages", remove);

    const auto added =
        add("add-class", "Add classes to a classifier", "morvane add-class languages danish", addClasses);
    added.first->add_option("CLASS", added.second->classes, "Names of the classes")
        ->required()
        ->type_name("");

    const auto removed = add("remove-class", "Remove classes with all that they have learned",
                             "morvane remove-class languages danish", removeClasses);
    removed.first->add_option("CLASS", removed.second->classes, "Names of the classes")
        ->required()
        ->type_name("");

    const auto trained = add("train", "Show a classifier texts of a class",
                             "morvane train languages swedish a.txt b.txt\n"
                             "morvane train languages english --text \"the house on the hill\"\n"
                             "morvane train languages danish --lines sentences.txt",
                             [](Context& c, const WriteOptions& o) { learn(c, o, true); });
    const auto untrained = add("untrain", "Take texts off a class again, as if it had not seen them",
                               "morvane untrain languages swedish a.txt",
                               [](Context& c, const WriteOptions& o) { learn(c, o, false); });
    for (const auto& verb : {trained, untrained}) {
        verb.first->add_option("CLASS", verb.second->className, "Name of the class")
            ->required()
            ->type_name("");
        verb.second->texts.declare(*verb.first);
    }
    trained.first
        ->add_option("--max-size", trained.second->maxSize, "Refuse if the stored classifier has this size")
        ->type_name("BYTES")
        ->check(CLI::Range(1, INT32_MAX).description(""));
}

}  // namespace halvern::morvane::client
