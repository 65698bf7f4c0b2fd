#pragma once

#include <memory>
#include <string>

#include "classifier/Classifier.h"
#include "server/JobDistribution.h"

namespace halvern::morvane {

// What a commit has put out of use. To drop it can take as long as the change itself took, and nobody has to
// wait for that.
struct Replaced {
    std::unique_ptr<classifier::Classifier> classifier;
    io::filesystem::ScopedDescriptor file{-1};
};

// One write sequence on one classifier: all of it or nothing. Belongs to the thread that made it, which also
// ends it, since the writer lock is that thread's. Without a commit() that came back, its end is the
// rollback.
//
// All operations pass on what JobDistribution throws; after an exception only the end of the object is left.
class ClassifierTransaction {
public:
    virtual ~ClassifierTransaction() = default;

    // Makes the classifier and holds it. Throws ClassifierExistsException, also if this sequence has made or
    // removed the classifier before: a removal takes effect with the commit.
    virtual void create() = 0;

    // The path of the classifier as it was given.
    virtual const std::string& getName() const = 0;

    // The copy that this sequence works on; the first call takes the writer lock and makes it. Throws
    // ClassifierNotFoundException, also behind remove().
    virtual classifier::Classifier& get() = 0;

    // Marks the classifier for removal, whether or not it exists.
    virtual void remove() = 0;

    // Makes the sequence's effect real, on disk and then in memory.
    virtual Replaced commit() = 0;
};

// Holds the writer lock from the first create() or get() until its end, remove() included: what the sequence
// was told about the classifier before must still hold when the removal takes effect. A sequence that only
// removes depends on nothing, and takes the lock at its commit.
class ClassifierTransactionImpl final : public ClassifierTransaction {
public:
    ClassifierTransactionImpl(JobDistribution& jobDistribution, const std::string& name);
    ClassifierTransactionImpl(const ClassifierTransactionImpl&) = delete;
    ClassifierTransactionImpl& operator=(const ClassifierTransactionImpl&) = delete;
    ~ClassifierTransactionImpl() override;

    void create() override;
    const std::string& getName() const override { return _name; }
    classifier::Classifier& get() override;
    void remove() override;
    Replaced commit() override;

private:
    enum class State {
        NONE,       // nothing yet, or cleaned up
        CREATED,    // this sequence made the classifier
        REMOVED,    // marked for removal
        LOADED,     // an existing classifier is held for writing
        COMMITTED,  // the commit went through
    };

    struct ClassifierInfo {
        HeldClassifier held;                           // empty, or both of its parts are set
        std::unique_ptr<classifier::Classifier> copy;  // only if something is held
        State state = State::NONE;
        bool created = false;  // what is held was made by this sequence and has to go if that fails
    };

    void hold(HeldClassifier held, State state);
    void cleanUp() noexcept;

    JobDistribution& _jobDistribution;
    const std::string _name;
    ClassifierInfo _classifierInfo;
};

}  // namespace halvern::morvane
