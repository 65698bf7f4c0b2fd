#pragma once

#include <iosfwd>
#include <string>

#include "files/ClassifierFile.h"
#include "util/Bytes.h"

namespace halvern::morvane::client::files {

// A classifier as lines of JSON, for people and scripts:
//
//     {"format":"morvane-classifier","extractor":5,"smoothing":0.05}
//     {"class":"a","totalCount":2,"uniqueFeatures":1}
//     {"feature":"x","class":"a","count":2}
//
// First the line about the classifier, then one for each class in the order of the class table, then one for
// each record in the order of the file. Bytes that aren't UTF-8 stand in Base64, under "classBase64" and
// "featureBase64" in the place of "class" and "feature".

// Writes the lines while it walks through the file, with no copy of it. Throws Failure if out can't be
// written.
void dumpLines(const ClassifierFile& file, std::ostream& out);

// The data that the lines describe: of lines as dumpLines wrote them, the very bytes of the file. Records may
// come in any order, and the totals of a class may be left out; where they stand, they must agree with the
// records. Throws Failure with LOCAL_FILE and the number of the line for what can't be understood; name is
// what messages call the lines.
util::Bytes loadLines(std::istream& in, const std::string& name);

}  // namespace halvern::morvane::client::files
