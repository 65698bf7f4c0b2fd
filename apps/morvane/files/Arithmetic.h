#pragma once

#include "files/ClassifierFile.h"
#include "util/Bytes.h"

namespace halvern::morvane::client::files {

// The data of the classifier that learned everything that both learned: the same bytes as training one
// classifier with the texts of left and then with those of right. Its classes are those of left, in their
// order, then those that only right has. Throws Failure if the two cut up texts differently or smooth
// differently, and if a sum or the result is too large to be stored.
util::Bytes merged(const ClassifierFile& left, const ClassifierFile& right);

// The data of the classifier that learned what left learned and right didn't: the same bytes as untraining
// left with all texts of right. Its classes are those of left, also those that hold nothing any more. Throws
// Failure as merged does, and if right holds anything that left doesn't hold as often.
util::Bytes difference(const ClassifierFile& left, const ClassifierFile& right);

}  // namespace halvern::morvane::client::files
