// How the cost of classifying grows with the length of the text, the number of classes, the number of records
// and the calls in a request: a line for each point, "plot<TAB>x<TAB>microseconds", for bench/plots.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/Requests.h"
#include "classifier/ClassifierImpl.h"

namespace {

using halvern::classifier::Classification;
using halvern::classifier::ClassifierImpl;

constexpr int WORDS_OF_A_TEXT = 40;

std::string text(std::mt19937& random, int words, unsigned vocabulary) {
    std::string all;
    for (int i = 0; i < words; ++i) {
        all += "w" + std::to_string(random() % vocabulary * 7919) + " ";
    }
    return all;
}

// Each word belongs to one class in turn, so there are as many records as words.
std::unique_ptr<ClassifierImpl> classifier(int classes, unsigned vocabulary) {
    auto made = std::make_unique<ClassifierImpl>(nullptr, 0.05);
    std::vector<std::string> texts(static_cast<std::size_t>(classes));
    for (unsigned i = 0; i < vocabulary; ++i) {
        texts[i % texts.size()] += "w" + std::to_string(i * 7919ull) + " ";
    }
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const std::string name = "class" + std::to_string(i);
        made->addClass(name);
        made->train(name, texts[i]);
    }
    made->compact();
    return made;
}

double cpuMicroseconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) * 1e-3;
}

// The median of rounds of a tenth of a second, for one operation.
double cost(const std::function<void()>& operation) {
    constexpr std::size_t ROUNDS = 5;
    constexpr double ROUND = 1e5;
    operation();
    std::vector<double> costs;
    while (costs.size() < ROUNDS) {
        const double start = cpuMicroseconds();
        int times = 0;
        do {
            operation();
            ++times;
        } while (cpuMicroseconds() - start < ROUND);
        costs.push_back((cpuMicroseconds() - start) / times);
    }
    std::sort(costs.begin(), costs.end());
    return costs[ROUNDS / 2];
}

double costOfTexts(const ClassifierImpl& classifier, int words, unsigned vocabulary) {
    std::mt19937 random(1);
    std::vector<std::string> texts;
    while (texts.size() < 512) {
        texts.push_back(text(random, words, vocabulary));
    }
    std::size_t next = 0;
    return cost([&] {
        Classification classification;
        classifier.classify(texts[next++ % texts.size()], classification);
    });
}

void print(const char* plot, long long x, double y) {
    std::printf("%s\t%lld\t%.4g\n", plot, x, y);
    std::fflush(stdout);
}

}  // namespace

int main() {
    constexpr unsigned VOCABULARY = 100'000;
    const auto ten = classifier(10, VOCABULARY);
    for (const int words : {1, 3, 10, 30, 100, 300, 1000, 3000, 10000}) {
        print("text-length", words, costOfTexts(*ten, words, VOCABULARY));
    }
    for (const int classes : {2, 5, 10, 20, 50, 100, 200, 500, 1000}) {
        print("classes", classes, costOfTexts(*classifier(classes, VOCABULARY), WORDS_OF_A_TEXT, VOCABULARY));
    }
    for (const unsigned records :
         {1000U, 3000U, 10'000U, 30'000U, 100'000U, 300'000U, 1'000'000U, 3'000'000U, 10'000'000U}) {
        print("records", records, costOfTexts(*classifier(10, records), WORDS_OF_A_TEXT, records));
    }
    bench::Requests requests;
    for (const int calls : {1, 3, 10, 30, 100, 300, 1000, 3000, 10000}) {
        const std::string request = bench::Requests::requestOf(
            calls, "<readCalls>", "classify classifierName='news'", "</readCalls>");
        print("calls", calls, cost([&] {
                  if (!requests.answer(request)) {
                      throw std::runtime_error("the request failed");
                  }
              }));
    }
    return 0;
}
