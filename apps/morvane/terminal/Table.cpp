#include "terminal/Table.h"

#include <algorithm>
#include <cstdio>
#include <ostream>

namespace halvern::morvane::client {

void Table::addRow(const std::vector<std::string>& cells, Colour colour) {
    Row row{{}, colour};
    for (const std::string& cell : cells) {
        row.cells.push_back(printable(cell));
    }
    _rows.push_back(std::move(row));
}

void Table::write(std::ostream& out, const Terminal& terminal) const {
    std::vector<std::string> headings;
    std::vector<std::size_t> widths;
    for (const Column& column : _columns) {
        headings.push_back(column.heading);
        widths.push_back(displayWidth(column.heading));
    }
    for (const Row& row : _rows) {
        for (std::size_t i = 0; i < widths.size(); ++i) {
            widths[i] = std::max(widths[i], displayWidth(row.cells.at(i)));
        }
    }
    const auto writeLine = [&](const std::vector<std::string>& cells, Colour colour) {
        std::string line;
        for (std::size_t i = 0; i < widths.size(); ++i) {
            const std::string padding(widths[i] - displayWidth(cells[i]), ' ');
            line += i == 0 ? "" : "  ";
            line += _columns[i].alignment == RIGHT ? padding + cells[i] : cells[i] + padding;
        }
        line.erase(line.find_last_not_of(' ') + 1);
        out << terminal.paint(colour, line) << "\n";
    };
    writeLine(headings, Colour::BOLD);
    for (const Row& row : _rows) {
        writeLine(row.cells, row.colour);
    }
}

std::string shareText(double share) {
    char text[32];
    std::snprintf(text, sizeof(text), "%.4f", share);
    return text;
}

std::string countText(std::uint64_t count) {
    std::string text = std::to_string(count);
    for (std::size_t place = text.size(); place > 3; place -= 3) {
        text.insert(place - 3, ",");
    }
    return text;
}

}  // namespace halvern::morvane::client
