#include "server/ClassifierTransaction.h"

#include <gtest/gtest.h>

#include <sstream>

#include "server/BadRequestException.h"
#include "support/ClassifierTable.h"
#include "support/FailingCalls.h"
#include "support/Failure.h"
#include "support/TempDir.h"

namespace halvern::morvane {
namespace {

const std::string NAME = "root/a.dat";

class ClassifierTransactionTest : public testing::Test, public support::ClassifierTable {
protected:
    // Runs a sequence of steps, separated by blanks: create, remove, commit, or the name of a class to add.
    // Ends at the first failure, whose text it gives.
    std::string run(const std::string& steps) {
        ClassifierTransactionImpl transaction(table, NAME);
        std::istringstream in(steps);
        for (std::string step; in >> step;) {
            try {
                if (step == "create") {
                    transaction.create();
                } else if (step == "remove") {
                    transaction.remove();
                } else if (step == "commit") {
                    transaction.commit();
                } else {
                    transaction.get().addClass(step);
                }
            } catch (const exceptions::Exception& failure) {
                return failure.what();
            } catch (const std::bad_alloc&) {
                return "bad_alloc";
            }
        }
        return "ok";
    }

    void begin(const std::string& state) {
        ASSERT_EQ(run("remove commit"), "ok");
        if (state == "[a]") {
            ASSERT_EQ(run("create a commit"), "ok");
        }
        ASSERT_EQ(this->state(), state);
    }

    // What memory and disk say of the classifier: its classes, or "none". They must agree.
    std::string state() {
        const std::string onDisk = files.exists(NAME) ? join(classesIn(files.load(NAME))) : "none";
        std::string inMemory = "none";
        try {
            inMemory = join(classesOf(table.get(NAME)->getClassifier()));
        } catch (const ClassifierNotFoundException&) {
        }
        return inMemory == onDisk ? onDisk : "memory " + inMemory + ", disk " + onDisk;
    }

    static std::string join(const std::vector<std::string>& names) {
        std::string all = "[";
        for (const std::string& name : names) {
            all += name;
        }
        return all + "]";
    }
};

TEST_F(ClassifierTransactionTest, SequenceHappensAsAWholeOrNotAtAll) {
    const std::string inMemory =
        "Trying to create a classifier that already exists (in memory) '" + NAME + "'.";
    const std::string marked = "Trying to get a classifier that has been marked for deletion '" + NAME + "'.";
    const std::string notFound = "The requested classifier could not be found. '" + NAME + "'.";
    const std::string classExists =
        "Trying to add an already existing class with the name 'x'. Use classExists to find out if a class "
        "already is added.";
    struct Case {
        const char* before;
        const char* steps;
        std::string answer;
        const char* after;
    };
    const Case cases[] = {
        {"none", "commit", "ok", "none"},
        {"none", "create x y commit", "ok", "[xy]"},
        {"none", "create x", "ok", "none"},
        {"none", "create x x commit", classExists, "none"},
        {"none", "create create commit", inMemory, "none"},
        {"none", "create x remove commit", "ok", "none"},
        {"none", "create remove", "ok", "none"},
        {"none", "create remove x commit", marked, "none"},
        {"none", "create remove create commit", inMemory, "none"},
        {"none", "x commit", notFound, "none"},
        {"none", "remove remove commit", "ok", "none"},
        {"none", "remove create x commit", "ok", "[x]"},
        {"[a]", "x commit", "ok", "[ax]"},
        {"[a]", "x", "ok", "[a]"},
        {"[a]", "x x commit", classExists, "[a]"},
        {"[a]", "create commit", inMemory, "[a]"},
        {"[a]", "x create commit", inMemory, "[a]"},
        {"[a]", "remove", "ok", "[a]"},
        {"[a]", "x remove commit", "ok", "none"},
        {"[a]", "remove x commit", marked, "[a]"},
        {"[a]", "x remove x commit", marked, "[a]"},
        {"[a]", "x remove create commit", inMemory, "[a]"},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(std::string(each.before) + " " + each.steps);
        begin(each.before);
        EXPECT_EQ(run(each.steps), each.answer);
        EXPECT_EQ(state(), each.after);
    }
}

TEST_F(ClassifierTransactionTest, FailingDiskOrMemoryLeavesTheOldState) {
    struct Case {
        const char* before;
        const char* steps;
    };
    const Case cases[] = {{"none", "create x commit"},
                          {"none", "create x remove commit"},
                          {"[a]", "x commit"},
                          {"[a]", "remove commit"},
                          {"[a]", "x remove commit"}};
    for (const Case& each : cases) {
        for (const bool outOfMemory : {false, true}) {
            SCOPED_TRACE(std::string(each.before) + " " + each.steps);
            begin(each.before);
            const bool removes = std::string(each.steps).find("remove") != std::string::npos;
            (removes ? files.failingRemove : files.failingSave) = 1;
            files.outOfMemory = outOfMemory;
            EXPECT_EQ(run(each.steps), outOfMemory ? "bad_alloc"
                                       : removes   ? "The disk is read-only."
                                                   : "The disk is full.");
            EXPECT_EQ(state(), each.before);
        }
    }
}

TEST_F(ClassifierTransactionTest, FileOfAFailedCreationGoes) {
    files.failedSaveStays = true;
    files.failingSave = 1;
    EXPECT_EQ(run("create x commit"), "The disk is full.");
    EXPECT_EQ(state(), "none");

    // The file that can't be removed either is what the name stands for then.
    files.failingSave = 1;
    files.failingRemove = 1;
    EXPECT_EQ(run("create x commit"), "The disk is full.");
    EXPECT_TRUE(log.has(logLevel::error,
                        "Could not remove the file of a classifier whose creation was rolled back '" + NAME +
                            "'. The disk is read-only."));
    EXPECT_EQ(state(), "[x]");
}

TEST_F(ClassifierTransactionTest, CommitWritesOnceAndPointersSeeIt) {
    begin("[a]");
    const auto pointer = table.get(NAME);
    const std::size_t writes = files.changeCount();
    ASSERT_EQ(run("x y z commit"), "ok");
    EXPECT_EQ(files.changeCount(), writes + 1);
    ASSERT_EQ(run("remove commit"), "ok");
    EXPECT_EQ(join(classesOf(pointer->getClassifier())), "[axyz]");
    EXPECT_TRUE(pointer->isRemoved());
}

// The same with real files, where every call of the save fails in turn until a commit gets through.
TEST_F(ClassifierTransactionTest, WhicheverCallOfACommitFailsMemoryAgreesWithTheFile) {
    const io::filesystem::LoadFileImpl load;
    const io::filesystem::ExistsFileImpl exists;
    const io::filesystem::SizeFileImpl size;
    const io::filesystem::RemoveFileImpl remove;
    for (const bool creates : {false, true}) {
        for (int call = 0, failures = 0;; ++call) {
            const support::TempDir root;
            const std::string name = root.path() + "/a.dat";
            const support::FailingCalls calls(creates ? call : -1, EIO, 16);
            const io::filesystem::SaveFileImpl save(calls);
            JobDistributionImpl real(factory, memory, load, save, exists, size, remove, callbackFactory,
                                     root.path(), log);
            const auto add = [&](const std::string& className, bool create) {
                ClassifierTransactionImpl transaction(real, name);
                if (create) {
                    transaction.create();
                }
                transaction.get().addClass(className);
                transaction.commit();
            };
            std::string before = "none";
            if (!creates) {
                add("x", true);
                calls.failAfter(call);
                before = "[x]";
            }
            const std::string failure = support::failureOf<exceptions::Exception>([&] { add("y", creates); });
            const bool saved = failure == "no failure";
            SCOPED_TRACE(calls.failed() + ": " + failure);
            const std::string after = saved ? (creates ? "[y]" : "[xy]") : before;
            EXPECT_EQ(exists.exists(name) ? join(classesIn(load.load(name))) : "none", after);
            std::string inMemory = "none";
            try {
                inMemory = join(classesOf(real.get(name)->getClassifier()));
            } catch (const ClassifierNotFoundException&) {
            }
            EXPECT_EQ(inMemory, after);
            if (calls.failed().empty()) {
                EXPECT_GT(failures, 7);
                break;
            }
            failures += saved ? 0 : 1;
        }
    }
}

}  // namespace
}  // namespace halvern::morvane
