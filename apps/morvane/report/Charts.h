#pragma once

#include <string>

#include "report/Metrics.h"

namespace halvern::morvane::client {

// Parts of a page as SVG inside HTML, coloured by the page's style. Each cell and each point tells its
// figures when it is pointed at.

// A square for each pair of classes, the stronger the larger its share of the actual class. Of more classes
// than MATRIX_LIMIT, those that are mistaken most often are shown.
constexpr std::size_t MATRIX_LIMIT = 100;
std::string matrixChart(const Metrics& metrics);

// Accuracy over confidence, one bar for each bin, and below how many texts each bin holds.
std::string reliabilityChart(const Metrics& metrics);

}  // namespace halvern::morvane::client
