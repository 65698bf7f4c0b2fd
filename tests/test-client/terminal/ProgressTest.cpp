#include "terminal/Progress.h"

#include <gtest/gtest.h>

#include <sstream>

namespace halvern::morvane::client {
namespace {

TEST(ProgressTest, LineFitsItsWidthAndTellsRateTimeLeftAndErrors) {
    EXPECT_EQ(Progress::line(79, "records", 2500, 10000, 2000, 4, 1),
              "[####...............]  25 %  2,500 of 10,000 records  500/s  0:15 left  1 error");
    EXPECT_EQ(Progress::line(200, "records", 0, 10, 0, 0, 0),
              "[..............................]   0 %  0 of 10 records");
    EXPECT_EQ(Progress::line(12, "records", 5, 10, 5, 1, 0), " 50 %  5 of ");
    for (std::size_t width = 0; width < 120; ++width) {
        EXPECT_LE(Progress::line(width, "records", 999, 1000, 999, 0.001, 12).size(), width);
    }
    // More than was there at the beginning: a folder that grows.
    EXPECT_EQ(Progress::line(40, "texts", 12, 10, 12, 1, 0), "100 %  12 of 10 texts  12/s  0:00 left");
    for (const auto& [seconds, text] : {std::pair(0.4, "0:00"), std::pair(59.6, "1:00"),
                                        std::pair(3599.0, "59:59"), std::pair(3661.0, "1:01:01")}) {
        EXPECT_EQ(durationText(seconds), text);
    }
}

TEST(ProgressTest, NothingIsWrittenWhereNobodyLooks) {
    std::ostringstream out;
    Terminal terminal;
    {
        Progress progress(out, terminal, "texts", 10);
        progress.show(5, 0);
    }
    EXPECT_EQ(out.str(), "");
    terminal.isTerminal = true;
    {
        Progress progress(out, terminal, "texts", 10);
        progress.show(5, 0);
    }
    EXPECT_TRUE(out.str().ends_with("\r\033[K")) << "the last line is left empty";
}

}  // namespace
}  // namespace halvern::morvane::client
