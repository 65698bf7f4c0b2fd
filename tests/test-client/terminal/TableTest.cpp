#include "terminal/Table.h"

#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <map>
#include <sstream>

namespace halvern::morvane::client {
namespace {

std::string written(const Table& table, const Terminal& terminal = {}) {
    std::ostringstream out;
    table.write(out, terminal);
    return out.str();
}

TEST(TableTest, ColumnsAreAlignedByWhatTheEyeSees) {
    Table table({{"NAME"}, {"N", Table::RIGHT}, {"REST"}});
    table.addRow({"sj\xC3\xB6n", "1", "x"});
    table.addRow(
        {"\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E", "12345", ""});  // three characters, two columns each
    table.addRow({"e\xCC\x81", "2", "y"}, Colour::RED);          // an accent of its own
    EXPECT_EQ(written(table),
              "NAME        N  REST\n"
              "sj\xC3\xB6n        1  x\n"
              "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E  12345\n"
              "e\xCC\x81           2  y\n");
    const std::string coloured = written(table, {.isTerminal = true, .hasColours = true});
    EXPECT_NE(coloured.find("\x1B[31me\xCC\x81           2  y\x1B[0m\n"), std::string::npos) << coloured;
}

TEST(TableTest, NothingThatATerminalWouldObeyComesThrough) {
    EXPECT_EQ(printable("a\x1B[2Jb\tc\nd\re\x7F"
                        "f\xC2\x9B"
                        "g\x9Bh"),
              "a?[2Jb c?d?e?f?g?h");
    EXPECT_EQ(printable("a\r\nb", true), "a?\nb");
    EXPECT_EQ(printable("\xE4 \xC3\xA4 \xF0\x9F\x99\x82"), "\xE4 \xC3\xA4 \xF0\x9F\x99\x82");
    Table table({{"A"}});
    table.addRow({"x\ny\x1B]0;title\x07"});
    EXPECT_EQ(written(table), "A\nx?y?]0;title?\n");
}

TEST(TableTest, NumbersAreWrittenForPeople) {
    EXPECT_EQ(countText(0), "0");
    EXPECT_EQ(countText(999), "999");
    EXPECT_EQ(countText(1000), "1,000");
    EXPECT_EQ(countText(18446744073709551615U), "18,446,744,073,709,551,615");
    EXPECT_EQ(shareText(0.99996), "1.0000");
    EXPECT_EQ(shareText(1.5e-05), "0.0000");
}

TEST(TableTest, ColoursAreForTerminalsThatKnowAndWantThem) {
    int controller = -1;
    int terminal = -1;
    const winsize size = {24, 132, 0, 0};
    ASSERT_EQ(::openpty(&controller, &terminal, nullptr, nullptr, &size), 0);
    std::map<std::string, std::string> variables;
    const Environment environment = [&](const std::string& name) {
        const auto found = variables.find(name);
        return found == variables.end() ? std::nullopt : std::optional<std::string>(found->second);
    };
    const auto hasColours = [&](const char* kind, const char* noColor) {
        variables = {{"TERM", kind}, {"NO_COLOR", noColor}};
        return Terminal::of(terminal, environment).hasColours;
    };
    EXPECT_TRUE(hasColours("xterm", ""));
    EXPECT_FALSE(hasColours("xterm", "1"));
    EXPECT_FALSE(hasColours("dumb", ""));
    EXPECT_FALSE(hasColours("", ""));
    EXPECT_EQ(Terminal::of(terminal, environment).width, 132U);
    ::close(terminal);
    ::close(controller);

    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    variables = {{"TERM", "xterm"}};
    EXPECT_FALSE(Terminal::of(pipe[1], environment).hasColours);
    EXPECT_EQ(Terminal{}.paint(Colour::RED, "x"), "x");
    ::close(pipe[0]);
    ::close(pipe[1]);
}

}  // namespace
}  // namespace halvern::morvane::client
