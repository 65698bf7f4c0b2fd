#include "report/Metrics.h"

#include <algorithm>
#include <cmath>
#include <set>

namespace halvern::morvane::client {

namespace {

double ratio(double part, double whole) { return whole > 0 ? part / whole : 0; }

std::vector<std::string> namesIn(const std::vector<Outcome>& outcomes) {
    std::set<std::string> names;
    for (const Outcome& outcome : outcomes) {
        names.insert(outcome.actual);
        names.insert(outcome.predicted);
    }
    return {names.begin(), names.end()};
}

void countClasses(Metrics& metrics, const std::vector<Outcome>& outcomes) {
    const std::vector<std::string> names = namesIn(outcomes);
    const auto indexOf = [&names](const std::string& name) {
        return static_cast<std::size_t>(std::lower_bound(names.begin(), names.end(), name) - names.begin());
    };
    metrics.matrix.assign(names.size(), std::vector<std::uint64_t>(names.size()));
    for (const Outcome& outcome : outcomes) {
        ++metrics.matrix[indexOf(outcome.actual)][indexOf(outcome.predicted)];
    }
    std::uint64_t hits = 0;
    for (std::size_t i = 0; i < names.size(); ++i) {
        ClassScore score;
        score.name = names[i];
        score.hits = metrics.matrix[i][i];
        for (std::size_t other = 0; other < names.size(); ++other) {
            score.support += metrics.matrix[i][other];
            score.predicted += metrics.matrix[other][i];
        }
        const auto both = static_cast<double>(score.hits);
        score.precision = ratio(both, static_cast<double>(score.predicted));
        score.recall = ratio(both, static_cast<double>(score.support));
        score.f1 = ratio(2 * both, static_cast<double>(score.support + score.predicted));
        hits += score.hits;
        const auto classes = static_cast<double>(names.size());
        metrics.macroPrecision += score.precision / classes;
        metrics.macroRecall += score.recall / classes;
        metrics.macroF1 += score.f1 / classes;
        metrics.classes.push_back(std::move(score));
    }
    metrics.accuracy = ratio(static_cast<double>(hits), static_cast<double>(metrics.texts));
}

void measureCalibration(Metrics& metrics, const std::vector<Outcome>& outcomes, std::size_t bins) {
    metrics.bins.resize(bins);
    for (const Outcome& outcome : outcomes) {
        const double place = std::ceil(outcome.confidence * static_cast<double>(bins)) - 1;
        const double last = static_cast<double>(bins - 1);
        // A damaged classifier can say nan, which no comparison holds.
        ReliabilityBin& bin =
            metrics.bins[place > 0 ? static_cast<std::size_t>(std::min(place, last)) : std::size_t{0}];
        ++bin.count;
        bin.confidence += outcome.confidence;
        bin.accuracy += outcome.actual == outcome.predicted ? 1 : 0;
    }
    for (std::size_t i = 0; i < bins; ++i) {
        ReliabilityBin& bin = metrics.bins[i];
        bin.lower = static_cast<double>(i) / static_cast<double>(bins);
        bin.upper = static_cast<double>(i + 1) / static_cast<double>(bins);
        bin.confidence = ratio(bin.confidence, static_cast<double>(bin.count));
        bin.accuracy = ratio(bin.accuracy, static_cast<double>(bin.count));
        const double distance = std::abs(bin.accuracy - bin.confidence);
        metrics.expectedCalibrationError +=
            distance * ratio(static_cast<double>(bin.count), static_cast<double>(metrics.texts));
        metrics.maximumCalibrationError = std::max(metrics.maximumCalibrationError, distance);
    }
}

}  // namespace

Outcome outcomeOf(const std::string& actual, const std::map<std::string, double>& probabilities,
                  double textCoverage) {
    Outcome outcome;
    outcome.actual = actual;
    outcome.textCoverage = textCoverage;
    bool known = false;
    for (const auto& [name, probability] : probabilities) {
        if (outcome.predicted.empty() || probability > outcome.confidence) {
            outcome.predicted = name;
            outcome.confidence = probability;
        }
        const bool isActual = name == actual;
        known = known || isActual;
        outcome.actualPart = isActual ? probability : outcome.actualPart;
        outcome.squaredError += std::pow(probability - (isActual ? 1 : 0), 2);
    }
    outcome.squaredError += known ? 0 : 1;
    return outcome;
}

std::vector<Confusion> Metrics::mostConfused(std::size_t limit) const {
    std::vector<Confusion> pairs;
    for (std::size_t actual = 0; actual < matrix.size(); ++actual) {
        for (std::size_t predicted = 0; predicted < matrix.size(); ++predicted) {
            if (actual != predicted && matrix[actual][predicted] > 0) {
                pairs.push_back({actual, predicted, matrix[actual][predicted]});
            }
        }
    }
    std::stable_sort(pairs.begin(), pairs.end(),
                     [](const Confusion& a, const Confusion& b) { return a.count > b.count; });
    pairs.resize(std::min(limit, pairs.size()));
    return pairs;
}

Metrics measure(const std::vector<Outcome>& outcomes, std::size_t bins) {
    Metrics metrics;
    metrics.texts = outcomes.size();
    countClasses(metrics, outcomes);
    measureCalibration(metrics, outcomes, bins);
    double coverage = 0;
    bool isToldEverywhere = !outcomes.empty();
    for (const Outcome& outcome : outcomes) {
        const auto texts = static_cast<double>(metrics.texts);
        metrics.logLoss -= std::log(std::max(outcome.actualPart, 1e-15)) / texts;
        metrics.brierScore += outcome.squaredError / texts;
        coverage += outcome.textCoverage / texts;
        isToldEverywhere = isToldEverywhere && outcome.textCoverage >= 0;
    }
    metrics.textCoverage = isToldEverywhere ? coverage : -1;
    return metrics;
}

}  // namespace halvern::morvane::client
