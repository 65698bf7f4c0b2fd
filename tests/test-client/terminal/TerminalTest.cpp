#include "terminal/Terminal.h"

#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <map>
#include <sstream>

#include "terminal/Progress.h"
#include "terminal/Table.h"

namespace halvern::morvane::client {
namespace {

TEST(TerminalTest, NothingThatATerminalWouldObeyComesThrough) {
    const std::pair<const char*, const char*> rows[] = {
        {"a\x1B[2Jb\tc\nd\re\x7F", "a?[2Jb c?d?e?"},
        {"f\xC2\x9B g\x9B", "f? g?"},
        {"\xE2\x80\xAE\xE2\x81\xA6", "??"},
        {"\xE4 \xC3\xA4 \xF0\x9F\x99\x82", "\xE4 \xC3\xA4 \xF0\x9F\x99\x82"},
    };
    for (const auto& [text, shown] : rows) {
        EXPECT_EQ(printable(text), shown);
    }
    EXPECT_EQ(printable("a\r\nb", true), "a?\nb");
}

TEST(TerminalTest, ColumnsAreAlignedByWhatTheEyeSees) {
    Table table({{"NAME"}, {"N", Table::RIGHT}, {"REST"}});
    table.addRow({"sj\xC3\xB6n", "1", "x\x1B"});
    table.addRow({"\xE6\x97\xA5\xE6\x9C\xAC", "12345", ""});  // two characters, two columns each
    table.addRow({"e\xCC\x81", "2", "y"}, Colour::RED);       // an accent of its own
    std::ostringstream out;
    table.write(out, {});
    EXPECT_EQ(out.str(),
              "NAME      N  REST\n"
              "sj\xC3\xB6n      1  x?\n"
              "\xE6\x97\xA5\xE6\x9C\xAC  12345\n"
              "e\xCC\x81         2  y\n");
    table.write(out, {.isTerminal = true, .hasColours = true});
    EXPECT_TRUE(out.str().ends_with("\x1B[31me\xCC\x81         2  y\x1B[0m\n")) << out.str();
}

TEST(TerminalTest, NumbersAreWrittenForPeople) {
    const std::pair<std::string, const char*> rows[] = {
        {countText(999), "999"},         {countText(18446744073709551615U), "18,446,744,073,709,551,615"},
        {shareText(0.99996), "1.0000"},  {shareText(1.5e-05), "0.0000"},
        {durationText(59.6), "1:00"},    {durationText(3599.4), "59:59"},
        {durationText(3661), "1:01:01"},
    };
    for (const auto& [written, expected] : rows) {
        EXPECT_EQ(written, expected);
    }
}

TEST(TerminalTest, ColoursAreForTerminalsThatKnowAndWantThem) {
    int controller = -1;
    int terminal = -1;
    const winsize size = {24, 132, 0, 0};
    ASSERT_EQ(::openpty(&controller, &terminal, nullptr, nullptr, &size), 0);
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    const std::tuple<int, const char*, const char*, bool> rows[] = {
        {terminal, "xterm", "", true}, {terminal, "xterm", "1", false}, {terminal, "dumb", "", false},
        {terminal, "", "", false},     {pipe[1], "xterm", "", false},
    };
    for (const auto& [descriptor, kind, noColor, hasColours] : rows) {
        std::map<std::string, std::string> variables{{"TERM", kind}, {"NO_COLOR", noColor}};
        const Terminal found =
            Terminal::of(descriptor, [&](const std::string& name) { return std::optional(variables[name]); });
        EXPECT_EQ(found.hasColours, hasColours) << kind << noColor;
        EXPECT_EQ(found.isTerminal, descriptor == terminal);
        EXPECT_EQ(found.width == 132U, descriptor == terminal);
    }
    for (const int descriptor : {terminal, controller, pipe[0], pipe[1]}) {
        ::close(descriptor);
    }
}

TEST(TerminalTest, ProgressFitsItsWidthAndIsShownOnlyToPeople) {
    EXPECT_EQ(Progress::line(79, "records", 9999, 10000, 2000, 4, 1),
              "[##################.]  99 %  9,999 of 10,000 records  500/s  0:00 left  1 error");
    // More than was there at the beginning: a folder that grows.
    EXPECT_EQ(Progress::line(40, "texts", 12, 10, 12, 1, 0), "100 %  12 of 10 texts  12/s  0:00 left");
    for (std::size_t width = 0; width < 120; ++width) {
        EXPECT_LE(Progress::line(width, "records", 999, 1000, 999, 0.001, 12).size(), width);
    }
    for (const bool isTerminal : {false, true}) {
        std::ostringstream out;
        Terminal terminal;
        terminal.isTerminal = isTerminal;
        Progress(out, terminal, "texts", 10).show(5, 0);
        EXPECT_EQ(out.str().empty(), !isTerminal);
        EXPECT_EQ(out.str().ends_with("\r\033[K"), isTerminal) << "the last line is left empty";
    }
}

}  // namespace
}  // namespace halvern::morvane::client
