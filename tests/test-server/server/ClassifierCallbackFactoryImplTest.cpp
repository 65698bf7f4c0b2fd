#include "server/ClassifierCallbackFactoryImpl.h"

#include <gtest/gtest.h>

#include "classifier/Classifier.h"
#include "server/ClassifierFactoryImpl.h"
#include "support/RecordingLog.h"
#include "support/StoredClassifier.h"

namespace halvern::morvane {

TEST(ClassifierCallbackFactoryImplTest, FailureInsideAClassifierReachesTheLogAndTheClassifierGoesOn) {
    support::RecordingLog log;
    ClassifierCallbackFactoryImpl callbacks(log);
    const auto classifier = ClassifierFactoryImpl().create(callbacks);
    util::Bytes data = support::StoredClassifier{.classes = {{"a", 0, 0, 0}}}.bytes();
    util::Bytes fresh;
    classifier->getTrainingData(fresh);
    EXPECT_EQ(fresh, support::StoredClassifier{}.bytes()) << "smoothing 0.05, newest extractor";

    data.push_back('x');
    classifier->clone()->setTrainingData(data);
    classifier->setTrainingData(data);
    EXPECT_TRUE(classifier->classExists("a"));
    ASSERT_EQ(log.entries().size(), 2u);
    for (const auto& entry : log.entries()) {
        EXPECT_EQ(entry.level, logLevel::failure);
        EXPECT_EQ(
            entry.text,
            "ClassifierImpl failure|Classifier failure: There should exist no more training data at this "
            "point.|classifier/ClassifierImpl");
    }
}

}  // namespace halvern::morvane
