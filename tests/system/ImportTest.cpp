#include <gtest/gtest.h>

#include <fstream>
#include <random>

#include "system/Program.h"
#include "system/Wire.h"

namespace systemtest {
namespace {

class ImportTest : public testing::Test {
protected:
    std::unique_ptr<Process> client(const std::vector<std::string>& arguments) const {
        const std::string server = "127.0.0.1:" + std::to_string(_server->port());
        return std::make_unique<Process>(MORVANE_CLIENT, arguments, _folder.file("output.txt"), [&] {
            ::setenv("MORVANE_SERVER", server.c_str(), 1);
            ::setenv("XDG_STATE_HOME", _folder.path().c_str(), 1);
        });
    }
    // The exit code; what it writes is the content of output() then.
    int run(const std::vector<std::string>& arguments) const {
        std::filesystem::remove(_folder.file("output.txt"));
        return client(arguments)->wait();
    }
    std::string output() const { return support::readFile(_folder.file("output.txt")); }

    const Installation _installation;
    std::unique_ptr<Server> _server = std::make_unique<Server>(_installation);
    const support::TempDir _folder;
};

// Three thousand texts of words from a small dictionary, so that many come twice and totals look alike.
std::string randomTexts(std::mt19937& random) {
    std::string all;
    for (int i = 0; i < 3000; ++i) {
        all += "class" + std::to_string(random() % (1 + static_cast<unsigned>(i) / 400)) + "\t";
        for (unsigned words = random() % 8; words > 0; --words) {
            all += "w" + std::to_string(random() % 300) + " ";
        }
        all += "\n";
    }
    return all;
}

TEST_F(ImportTest, EachTextIsLearnedOnceThroughKillsOfClientAndServer) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    support::writeFile(_folder.file("texts.tsv"), randomTexts(random));
    const auto arguments = [&](const std::string& classifier) {
        return std::vector<std::string>{
            "import", classifier,  _folder.file("texts.tsv"), "--create", "--batch", "50", "--retries",
            "3",      "--journal", _folder.file("journal")};
    };
    ASSERT_EQ(run(arguments("straight")), 0) << output();

    // The server of the next life has another port, to which only a new client finds.
    int lives = 0;
    for (bool isDone = false; !isDone; ++lives) {
        const auto process = client(arguments("killed"));
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(random() % 100);
        const bool isLeftAlone = lives >= 40;
        while (!process->hasEnded() && (isLeftAlone || std::chrono::steady_clock::now() < end)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        if (process->hasEnded()) {
            ASSERT_EQ(process->wait(), 0) << output();
            isDone = true;
            continue;
        }
        if (lives % 4 == 3) {
            _server->process().signal(SIGKILL);
            _server->process().wait();
            process->signal(SIGKILL);
            process->wait();
            _server = std::make_unique<Server>(_installation);
        } else {
            process->signal(lives % 4 == 2 ? SIGINT : SIGKILL);
            process->wait();
        }
    }
    EXPECT_GT(lives, 1);
    EXPECT_EQ(support::readFile(_installation.classifier("killed")),
              support::readFile(_installation.classifier("straight")));
    EXPECT_FALSE(std::filesystem::exists(_folder.file("journal")));
}

TEST_F(ImportTest, LearnsAndJudgesRealTexts) {
    const char* const data = std::getenv("MORVANE_DATA");
    if (data == nullptr) {
        GTEST_SKIP() << "MORVANE_DATA names no folder with data sets";
    }
    for (const auto& [set, least] : {std::pair<std::string, double>{"sms", 0.98}, {"banking77", 0.83}}) {
        const std::string path = std::string(data) + "/" + set;
        ASSERT_EQ(run({"import", set, path + "/train.tsv", "--create"}), 0) << output();
        ASSERT_EQ(run({"evaluate", set, path + "/test.tsv", "--html", _folder.file("page.html")}), 0)
            << output();
        const std::string figures = output();
        const std::size_t accuracy = figures.find("accuracy");
        ASSERT_NE(accuracy, std::string::npos) << figures;
        EXPECT_GE(std::stod(figures.substr(figures.find("0.", accuracy))), least) << figures;
        EXPECT_NE(support::readFile(_folder.file("page.html")).find("Most confident mistakes"),
                  std::string::npos);
    }
}

}  // namespace
}  // namespace systemtest
