#include "server/JobDistribution.h"

#include <gtest/gtest.h>

#include "server/BadRequestException.h"
#include "server/ClassifierTransaction.h"
#include "support/ClassifierTable.h"

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
    EXPECT_GT(table.getSize("root/MIXED \xC3\x84.dat"), 0u);
    EXPECT_EQ(table.get("root/mixed \xC3\x84.DAT"), table.get("root/MIXED \xC3\x84.dat"));
    table.remove("root/mIXED \xC3\x84.dat", nullptr);

    for (const std::string& name : std::vector<std::string>{
             "root/../a.dat", "root/sub/a.dat", "root//a.dat", "root/", "root/.", "root/..", "root", "a.dat",
             "/etc/a.dat", "ROOT/a.dat", "root/a.dat/", std::string("root/a\0.dat", 11), ""}) {
        EXPECT_THROW(table.create(name, nullptr), ClassifierPathException) << name;
        EXPECT_THROW(table.get(name), ClassifierPathException) << name;
        EXPECT_THROW(table.getSize(name), ClassifierPathException) << name;
        EXPECT_THROW(table.save(name, {}), ClassifierPathException) << name;
        EXPECT_THROW(table.remove(name, nullptr), ClassifierPathException) << name;
    }
    EXPECT_TRUE(files.names().empty());
    EXPECT_EQ(failureOf<BadRequestException>([&] { table.get("root/../a.dat"); }),
              "The classifier 'root/../a.dat' can't be used, since its file would not lie directly in the "
              "classifier root directory.");

    // A root that ends in a separator gives a doubled one; no root at all means the current directory.
    JobDistributionImpl doubled(factory, memory, files, files, files, files, files, callbackFactory, "./c/",
                                log);
    doubled.save("./c//A.dat", {});
    JobDistributionImpl current(factory, memory, files, files, files, files, files, callbackFactory, "", log);
    current.save("B.dat", {});
    EXPECT_THROW(current.save("c/B.dat", {}), ClassifierPathException);
    EXPECT_EQ(files.names(), (std::vector<std::string>{"./c//a.dat", "b.dat"}));
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
