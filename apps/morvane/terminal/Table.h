#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "terminal/Terminal.h"

namespace halvern::morvane::client {

// Rows in aligned columns, two blanks apart, under a line of headings.
class Table {
public:
    enum Alignment { LEFT, RIGHT };
    struct Column {
        std::string heading;
        Alignment alignment = LEFT;
    };

    explicit Table(std::vector<Column> columns) : _columns(std::move(columns)) {}

    // As many cells as there are columns. Cells are shown as printable() makes them. The colour is that of
    // the whole row.
    void addRow(const std::vector<std::string>& cells, Colour colour = Colour::PLAIN);

    void write(std::ostream& out, const Terminal& terminal) const;

private:
    struct Row {
        std::vector<std::string> cells;
        Colour colour;
    };

    const std::vector<Column> _columns;
    std::vector<Row> _rows;
};

// A share from 0 to 1 with four digits behind the point, as "0.9731".
std::string shareText(double share);

// A count with commas between groups of three digits, as "1,234,567".
std::string countText(std::uint64_t count);

}  // namespace halvern::morvane::client
