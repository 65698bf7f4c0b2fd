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
    // Runs a sequence of steps, separated by blanks: create, remove, commit, or the name of a class to add;
    // or what goes wrong from then on: full, stuck (no file goes), short (memory is). Ends at the first
    // failure, whose text it gives.
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
                } else if (step == "full" || step == "stuck") {
                    (step == "full" ? files.failingSave : files.failingRemove) = 1;
                } else if (step == "short") {
                    files.outOfMemory = true;
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
        files.outOfMemory = false;
        ASSERT_EQ(run("remove commit"), "ok");
        if (state == "[a]") {
            ASSERT_EQ(run("create a commit"), "ok");
        }
        ASSERT_EQ(this->state(), state);
    }

    // What memory and disk say of the classifier: its classes, or "none". They must agree.
    std::string state() { return stateOf(table, files, files, NAME); }
    std::string stateOf(JobDistribution& jobs, const io::filesystem::ExistsFile& exists,
                        const io::filesystem::LoadFile& load, const std::string& name) {
        const std::string onDisk = exists.exists(name) ? join(classesIn(load.load(name))) : "none";
        std::string inMemory = "none";
        try {
            inMemory = join(classesOf(jobs.get(name)->getClassifier()));
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
    const struct {
        std::string before;
        std::string steps;
        std::string answer;
        std::string after;
    } rows[] = {
        {"none", "create x y commit", "ok", "[xy]"},
        {"none", "create x x commit", classExists, "none"},
        {"none", "create create commit", inMemory, "none"},
        {"none", "create x remove commit", "ok", "none"},
        {"none", "create remove x commit", marked, "none"},
        {"none", "x commit", notFound, "none"},
        {"none", "remove create x commit", "ok", "[x]"},
        {"none", "create x full commit", "The disk is full.", "none"},
        {"none", "create x full short commit", "bad_alloc", "none"},
        {"none", "create x remove stuck commit", "The disk is read-only.", "none"},
        {"[a]", "x commit", "ok", "[ax]"},
        {"[a]", "x create commit", inMemory, "[a]"},
        {"[a]", "remove", "ok", "[a]"},
        {"[a]", "x remove commit", "ok", "none"},
        {"[a]", "x remove x commit", marked, "[a]"},
        {"[a]", "x full commit", "The disk is full.", "[a]"},
        {"[a]", "x full short commit", "bad_alloc", "[a]"},
        {"[a]", "x remove stuck short commit", "bad_alloc", "[a]"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.before + " " + row.steps);
        begin(row.before);
        EXPECT_EQ(run(row.steps), row.answer);
        EXPECT_EQ(state(), row.after);
    }
}

TEST_F(ClassifierTransactionTest, FileOfAFailedCreationGoes) {
    files.failedSaveStays = true;
    EXPECT_EQ(run("create x full commit"), "The disk is full.");
    EXPECT_EQ(state(), "none");
    // The file that can't be removed either is what the name stands for then.
    EXPECT_EQ(run("create x full stuck commit"), "The disk is full.");
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
    EXPECT_EQ(join(classesOf(pointer->getClassifier())), "[axyz]");
    ASSERT_EQ(run("remove commit"), "ok");
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
            EXPECT_EQ(stateOf(real, exists, load, name), after);
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
