#pragma once

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

#include "classifier/Classification.h"
#include "util/Bytes.h"

namespace util {
class Pieces;
}

namespace halvern::classifier {

// A set of classes and what has been learned about the texts of each.
//
// Names and texts are strings of bytes; nothing is decoded. A classifier has no lock: any number of threads
// may call the const operations at once, every other operation needs the classifier for itself alone.
// Failures that a caller can cause are ClassifierExceptions; short memory is std::bad_alloc. An operation
// that throws has changed nothing, except where it says so.
class Classifier {
public:
    virtual ~Classifier() = default;

    // Exchanges everything with another classifier of the same implementation, without copying what was
    // learned. Throws std::bad_cast if the implementations differ.
    virtual void swap(Classifier& other) = 0;

    // Makes a copy, on which changes of the one don't show in the other. It takes memory for what is changed,
    // and for an index, 1-2 % of what was learned. The first compaction with a change after a load copies all
    // that was learned, so that the loaded bytes can go.
    virtual std::unique_ptr<Classifier> clone() const = 0;

    virtual bool classExists(std::string_view className) const = 0;

    // Throws ClassifierException if the name is empty or taken, or if there are 65,535 classes.
    virtual void addClass(std::string_view className) = 0;

    // Forgets the class and all that it learned. Requires a compact classifier. Throws ClassifierException
    // if there is no such class.
    virtual void removeClass(std::string_view className) = 0;

    // Counts the features of the text into the class; call compact before the classifier is read again.
    // Throws ClassifierException if the name is empty, if the class doesn't exist and the text has a
    // feature, or if a count would leave 32 bits.
    virtual void train(std::string_view className, std::string_view text) = 0;

    // Takes the features of the text out of the class, as far as the class holds them. Otherwise like train.
    virtual void untrain(std::string_view className, std::string_view text) = 0;

    // Makes what was trained and untrained readable. If memory runs out, what was learned is whole, and
    // compact can be called again.
    virtual void compact() = 0;

    // Fills the classification with one probability for each class. Requires a compact classifier. Throws
    // ClassifierException if there are no classes.
    virtual void classify(std::string_view text, Classification& classification) const = 0;

    // Offers to keywords every word of the text that speaks strongly enough for one class. Otherwise like
    // classify.
    virtual void classifyKeywords(std::string_view text, Keywords& keywords) const = 0;

    // The number of classes, without the copies that getInformation makes.
    virtual std::size_t classCount() const = 0;

    // One record for each class, in the order of the class table.
    virtual std::vector<ClassInformation> getInformation() const = 0;

    // Replaces the content of out with the whole classifier as bytes. Requires a compact classifier.
    virtual void getTrainingData(util::Bytes& out) const = 0;

    // Appends the same bytes where they lie, which is good until the classifier next changes.
    virtual void getTrainingData(util::Pieces& out) const = 0;

    // Becomes the classifier that the bytes describe. Throws ClassifierException if they are damaged or of
    // an unknown version; the classifier is then empty, for it was cleared first.
    virtual void setTrainingData(const util::Bytes& data) = 0;

    // The same without a copy of the bytes: the classifier keeps them, and uses them where they lie.
    virtual void setTrainingData(util::Bytes&& data) = 0;
};

}  // namespace halvern::classifier
