// The engine on its own: no server, no configuration, no files. Link the library "classifier" and go.
//
// A classifier is a set of classes. Each class is shown texts of its kind; afterwards the classifier tells
// for any text how likely it is of each class, and which of its words gave the hint.

#include <cstdio>
#include <memory>
#include <string_view>

#include "classifier/Classification.h"
#include "classifier/ClassifierException.h"
#include "classifier/ClassifierImpl.h"

using namespace halvern::classifier;

namespace {

void show(const Classifier& classifier, std::string_view text) {
    std::printf("\"%.*s\"\n", static_cast<int>(text.size()), text.data());

    Classification classification;
    classifier.classify(text, classification);
    for (const auto& [className, probability] : classification.getProbabilities()) {
        std::printf("    %-8s %5.1f %%\n", className.c_str(), probability * 100);
    }
    // How much of the text the classifier has ever seen. Probabilities always add up to 1, so a low coverage
    // is the only sign that the text may be of neither class.
    std::printf("    known    %5.1f %%\n", classification.getTextCoverage() * 100);

    // At most five words, each with a share above 0.6 for its class. They come in no particular order, and
    // their pointers are good only until the classifier is next changed: print or copy them at once.
    Keywords keywords(5, 0.6);
    classifier.classifyKeywords(text, keywords);
    for (const Keyword& keyword : keywords) {
        std::printf("    \"%.*s\" speaks for %s\n", static_cast<int>(keyword.length), keyword.token,
                    keyword.className);
    }
}

}  // namespace

int main() {
    try {
        // Without a callback factory, a failure inside the engine ends the process with a report. 0.05 is the
        // smoothing that the server uses: how much a class is believed to know of words that it never met.
        ClassifierImpl classifier(nullptr, 0.05);
        classifier.addClass("kitchen");
        classifier.addClass("garden");

        classifier.train("kitchen", "Stir the flour into the butter and bake it for twenty minutes.");
        classifier.train("kitchen", "Peel the onions, chop them and fry them in a little oil.");
        classifier.train("kitchen", "Salt the water before the noodles go in.");
        classifier.train("garden", "Water the seedlings in the evening and pull the weeds.");
        classifier.train("garden", "Prune the roses before the buds open in spring.");
        classifier.train("garden", "Dig compost into the beds and plant the onions in rows.");
        // Training only notes things down. One compact after any number of trainings makes them readable.
        classifier.compact();

        show(classifier, "Fry the butter, then add the onions");
        show(classifier, "When do the roses need compost?");

        // The whole classifier as bytes. Where they are kept is up to you: a file, a database, a resource.
        util::Bytes bytes;
        classifier.getTrainingData(bytes);
        std::printf("saved %zu bytes\n", bytes.size());

        ClassifierImpl loaded(nullptr, 0.05);
        loaded.setTrainingData(bytes);
        for (const ClassInformation& information : loaded.getInformation()) {
            std::printf("    %-8s %llu features, %lu occurrences\n", information.name.c_str(),
                        static_cast<unsigned long long>(information.uniqueFeatures),
                        static_cast<unsigned long>(information.totalCount));
        }

        // What was learned by mistake can be unlearned, also by a classifier that was loaded.
        loaded.untrain("garden", "Dig compost into the beds and plant the onions in rows.");
        loaded.compact();
        show(loaded, "When do the roses need compost?");

        // Mistakes of the caller are exceptions with a sentence to show.
        loaded.train("cellar", "Turn the bottles once a week.");
    } catch (const ClassifierException& exception) {
        std::printf("refused: %s\n", exception.what());
    }
    return 0;
}
