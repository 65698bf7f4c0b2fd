#include "server/JobDistribution.h"

#include <gtest/gtest.h>

#include "classifier/ClassifierException.h"
#include "platform/event/Event.h"
#include "server/BadRequestException.h"
#include "server/ClassifierTransaction.h"
#include "support/ClassifierTable.h"
#include "support/StoredClassifier.h"
#include "support/WaitingThread.h"

namespace halvern::morvane {
namespace {

using support::failureOf;

class JobDistributionTest : public testing::Test, public support::ClassifierTable {
protected:
    // Puts classifiers on the disk that aren't in memory.
    void store(const std::vector<std::string>& names) {
        util::Bytes data;
        factory.create(callbackFactory)->getTrainingData(data);
        for (const std::string& name : names) {
            files.put(name, std::string(data.data(), data.size()));
        }
    }
    bool isInMemory(const std::string& name) {
        const int before = files.loads();
        memory.script = support::ScriptedMemory::plenty;
        table.get(name);
        return files.loads() == before;
    }
};

TEST_F(JobDistributionTest, LastComponentIsFoldedAndNothingOutsideOfTheRootIsTouched) {
    {
        ClassifierTransactionImpl creation(table, "root/MiXed \xC3\x84.dat");
        creation.create();
        creation.commit();
    }
    EXPECT_EQ(files.names(), std::vector<std::string>{"root/mixed \xC3\x84.dat"});
    EXPECT_EQ(files.load(files.names()[0]), support::StoredClassifier{}.bytes());
    EXPECT_GT(table.getSize("root/MIXED \xC3\x84.dat"), 0u);
    EXPECT_EQ(table.get("root/mixed \xC3\x84.DAT"), table.get("root/MIXED \xC3\x84.dat"));
    table.remove("root/mIXED \xC3\x84.dat", nullptr);

    for (const std::string& name : std::vector<std::string>{
             "root/../a.dat", "root/sub/a.dat", "root/", "root/.", "root/..", "root", "/etc/a.dat",
             "ROOT/a.dat", "root/a.dat/", std::string("root/a\0.dat", 11), ""}) {
        EXPECT_THROW(table.create(name, nullptr), ClassifierPathException) << name;
        EXPECT_THROW(table.get(name), ClassifierPathException) << name;
        EXPECT_THROW(table.save(name, util::Pieces()), ClassifierPathException) << name;
        EXPECT_THROW(table.remove(name, nullptr), ClassifierPathException) << name;
    }
    EXPECT_TRUE(files.names().empty());

    // A root that ends in a separator gives a doubled one; no root at all means the current directory.
    const util::Pieces nothing;
    JobDistributionImpl doubled(factory, memory, files, files, files, files, files, callbackFactory, "./c/",
                                log);
    doubled.save("./c//A.dat", nothing);
    JobDistributionImpl current(factory, memory, files, files, files, files, files, callbackFactory, "", log);
    current.save("B.dat", nothing);
    EXPECT_THROW(current.save("c/B.dat", nothing), ClassifierPathException);
    EXPECT_EQ(files.names(), (std::vector<std::string>{"./c//a.dat", "b.dat"}));
}

// Two files are being loaded for as long as the test likes; one of the loads fails.
TEST_F(JobDistributionTest, LoadHoldsUpOnlyThoseWhoWantTheSameClassifier) {
    store({"root/slow.dat", "root/bad.dat", "root/other.dat"});
    files.put("root/bad.dat", "no classifier");
    platform::event::EventImpl release;
    files.onLoad = [&](const std::string& name) {
        if (name != "root/other.dat") {
            release.wait();
        }
    };
    const auto failsToLoad = [&] {
        EXPECT_THROW(table.get("root/bad.dat"), classifier::ClassifierException);
    };
    boost::shared_ptr<ThreadSafeClassifier> loaded;
    boost::shared_ptr<ThreadSafeClassifier> again;
    std::string refusal;
    {
        const support::WaitingThread first([&] { loaded = table.get("root/slow.dat"); });
        const support::WaitingThread failing(failsToLoad);
        EXPECT_TRUE(first.becomesBlocked() && failing.becomesBlocked());
        const support::WaitingThread second([&] { again = table.get("root/SLOW.dat"); });
        const support::WaitingThread failingToo(failsToLoad);
        const support::WaitingThread creating([&] {
            refusal = failureOf<ClassifierExistsException>([&] { table.create("root/slow.dat", nullptr); });
        });
        EXPECT_TRUE(second.becomesBlocked() && failingToo.becomesBlocked() && creating.becomesBlocked());

        const int before = files.loads();
        table.get("root/other.dat");
        EXPECT_EQ(files.loads(), before + 1);
        EXPECT_THROW(table.get("root/none.dat"), ClassifierNotFoundException);
        table.create("root/new.dat", nullptr);
        release.set();
    }
    EXPECT_EQ(loaded, again);
    EXPECT_EQ(refusal, "Trying to create a classifier that already exists (in memory) 'root/slow.dat'.");
    EXPECT_EQ(files.loads(), 4) << "one each, but for the file that fails each time";
}

// A removal, too, finds either what was there before the load or what it gave.
TEST_F(JobDistributionTest, RemovalWaitsForALoad) {
    store({"root/slow.dat"});
    platform::event::EventImpl release;
    files.onLoad = [&](const std::string&) { release.wait(); };
    boost::shared_ptr<ThreadSafeClassifier> loaded;
    {
        const support::WaitingThread loading([&] { loaded = table.get("root/slow.dat"); });
        EXPECT_TRUE(loading.becomesBlocked());
        const support::WaitingThread removing([&] { table.remove("root/slow.dat", nullptr); });
        EXPECT_TRUE(removing.becomesBlocked());
        release.set();
    }
    EXPECT_TRUE(loaded->isRemoved());
    EXPECT_THROW(table.get("root/slow.dat"), ClassifierNotFoundException);
}

TEST_F(JobDistributionTest, LoadUnderPressureEvictsWhatNobodyHoldsOldestFirst) {
    store({"root/a.dat", "root/b.dat", "root/c.dat", "root/d.dat", "root/e.dat", "root/f.dat"});
    ClassifierTransactionImpl writing(table, "root/a.dat");
    writing.get().addClass("x");
    table.get("root/a.dat")->setLastUsed(1);
    table.get("root/b.dat")->setLastUsed(7);
    table.get("root/c.dat")->setLastUsed(5);
    table.get("root/d.dat")->setLastUsed(5);

    // Twice the size of the file is enough; one byte less costs one classifier.
    const std::uint64_t needed = 2 * files.size("root/e.dat", true);
    int asked = 0;
    memory.script = [&] { return ++asked, needed; };
    table.get("root/e.dat");
    EXPECT_EQ(asked, 1);
    memory.script = [&] { return asked++ == 1 ? needed - 1 : needed; };
    table.get("root/F.dat");
    EXPECT_EQ(asked, 3);
    for (const char* kept : {"root/a.dat", "root/b.dat", "root/d.dat", "root/e.dat", "root/f.dat"}) {
        EXPECT_TRUE(isInMemory(kept)) << kept;
    }
    EXPECT_FALSE(isInMemory("root/c.dat"));

    // With nothing left to evict the load is tried anyway.
    store({"root/g.dat"});
    memory.script = [] { return 0; };
    table.get("root/g.dat");
    EXPECT_FALSE(isInMemory("root/b.dat"));
    writing.commit();
    EXPECT_TRUE(isInMemory("root/a.dat"));
    EXPECT_EQ(classesOf(table.get("root/a.dat")->getClassifier()), std::vector<std::string>{"x"});
}

}  // namespace
}  // namespace halvern::morvane
