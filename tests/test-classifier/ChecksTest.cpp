#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "classifier/ClassifierImpl.h"
#include "classifier/KeywordExtractor.h"
#include "classifier/storage/FeatureSet.h"
#include "classifier/storage/MemoryLane.h"
#include "classifier/storage/VectorLane.h"
#include "support/FailedCheck.h"
#include "util/Pieces.h"

namespace halvern::classifier {

using namespace storage;

// What only a fault of the program itself can bring about ends the process, in these words.
TEST(ChecksTest, FaultsOfTheProgramEndIt) {
    const std::string notCompact = "isCompact() / The lane has not been compacted since training";
    const std::string otherSize = "feature.size() == N / A feature has other than lane size";
    const std::string tooLong =
        "feature.size() < _lanes.size() / Add with feature bigger than max allowed size (32)";
    const std::string longest(31, 'x');
    std::uint32_t removed = 0;
    util::Bytes out;
    util::Pieces pieces;

    Parameter first(0, 1);
    ParameterAccessor accessor(3);
    ClassEntry entry{"a", 0, 5, 0};
    VectorLane<3> lane;
    lane.add("abc", 2, 1);
    FeatureSet set;
    set.addClass("a");
    set.add("a", longest, 1);
    MemoryLane memoryLane(2);
    MemoryLane broken(2);
    broken.setPermanent({'a', 'b', 1, 0, 0, 0, 'c'});
    ClassifierImpl classifier(nullptr, 0.05);
    classifier.addClass("a");
    classifier.train("a", "word");
    Classification classification;

    const struct {
        std::string report;
        std::function<void()> call;
    } cases[] = {
        {"classIndex == _classIndex - 1 / Packing class indexes seems wrong",
         [&] { first.packClassIndex(); }},
        {"featurePtr != nullptr / Setting null feature ptr", [&] { accessor.setFeaturePtr(nullptr); }},
        {"parameter.classIndex() < _parameters.size() / The parameter accessor array is to short",
         [&] { accessor.add(Parameter(3, 1)); }},
        {"_parameters[parameter.classIndex()] == 0 / Overwriting a parameter accessor count",
         [&] {
             accessor.add(Parameter(2, 1));
             accessor.add(Parameter(2, 1));
         }},
        {"_unique > 0 / Removing unique below zero.", [&] { entry.removeUnique(); }},
        {"count <= _count / Removing more count than current count", [&] { entry.removeCount(6); }},
        {otherSize, [&] { lane.add("abcd", 0, 1); }},
        {otherSize, [&] { lane.sub("ab", 0, 1, removed); }},
        {otherSize, [&] { VectorLane<3>().lookup("", accessor); }},
        {"count > 0 / Trying to add zero or below feature count", [&] { lane.add("abc", 0, 0); }},
        {"count > 0 / Trying to sub zero or below feature count", [&] { lane.sub("abc", 0, 0, removed); }},
        {notCompact, [&] { lane.removeClass(2); }},
        {notCompact, [&] { lane.find("abc", 2); }},
        {notCompact, [&] { lane.lookup("abc", accessor); }},
        {notCompact, [&] { lane.totalCount(); }},
        {notCompact, [&] { lane.uniqueFeatures(); }},
        {notCompact, [&] { lane.serialize(pieces); }},
        {notCompact, [&] { lane.begin(); }},
        {notCompact, [&] { static_cast<void>(lane == VectorLane<3>()); }},
        {notCompact, [&] { classifier.classify("word", classification); }},
        {tooLong, [&] { set.add("a", longest + "x", 1); }},
        {tooLong, [&] { set.sub("a", longest + "x", 1); }},
        {"count > 0", [&] { memoryLane.add("ab", 0); }},
        {"count > 0", [&] { memoryLane.sub("ab", 0); }},
        {"token.size() == _TokenSize", [&] { memoryLane.add("abc", 1); }},
        {"token.size() == _TokenSize", [&] { memoryLane.getCount("abc"); }},
        {"_permanent.size() % _ChunkSize == 0", [&] { broken.flatten(out); }},
        {"_permanent.size() % _ChunkSize == 0", [&] { broken.find("ab"); }},
        {"token != nullptr / Constructing a keyword with null ptr", [] { Keyword(nullptr, 0, 0.5, 1, "a"); }},
        {"_maxTokenSize > 0 / Setting the maxTokenSize to 0 makes no sense.",
         [] { KeywordExtractor(0, true); }},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(support::failedCheck(row.call), row.report) << "case " << &row - cases;
    }
}

}  // namespace halvern::classifier
