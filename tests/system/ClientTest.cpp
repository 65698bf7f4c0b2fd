#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "system/Program.h"
#include "system/Wire.h"

// The client as people start it, with the server as operators start it. What guides show isn't here.
namespace systemtest {
namespace {

class ClientTest : public testing::Test {
protected:
    std::unique_ptr<Process> client(const std::vector<std::string>& arguments) const {
        return std::make_unique<Process>(MORVANE_CLIENT, arguments, _folder.file("output.txt"), [&] {
            ::setenv("MORVANE_SERVER", ("localhost:" + std::to_string(_server->port())).c_str(), 1);
            ::setenv("XDG_STATE_HOME", _folder.path().c_str(), 1);
            ::signal(SIGINT, SIG_DFL);  // a shell that runs tests in the background has it ignored
        });
    }
    std::string output() const { return support::readFile(_folder.file("output.txt")); }

    const Installation _installation;
    std::unique_ptr<Server> _server = std::make_unique<Server>(_installation);
    const support::TempDir _folder;
};

// Texts of words from a small dictionary, so that many come twice and totals look alike.
std::string randomTexts(std::mt19937& random, int count) {
    std::string all;
    for (int i = 0; i < count; ++i) {
        all += "class" + std::to_string(random() % (1 + static_cast<unsigned>(i) / 400)) + "\t";
        for (unsigned words = random() % 8; words > 0; --words) {
            all += "w" + std::to_string(random() % 300) + " ";
        }
        all += "\n";
    }
    return all;
}

TEST_F(ClientTest, EachTextIsLearnedOnceThroughKillsOfClientAndServer) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    support::writeFile(_folder.file("texts.tsv"), randomTexts(random, 3000));
    const auto arguments = [&](const std::string& classifier) {
        return std::vector<std::string>{
            "import", classifier,  _folder.file("texts.tsv"), "--create", "--batch", "50", "--retries",
            "3",      "--journal", _folder.file("journal")};
    };
    ASSERT_EQ(client(arguments("straight"))->wait(), 0) << output();

    // Each life lasts for so many steps of the import, however fast it is, and ends anywhere within the next.
    // The server of the next life has another port, to which only a new client finds.
    int lives = 0;
    for (bool isDone = false; !isDone; ++lives) {
        const auto process = client(arguments("killed"));
        const bool isLeftAlone = lives >= 40;
        std::string step = support::readFile(_folder.file("journal"));
        for (auto steps = random() % 16; !process->hasEnded() && (isLeftAlone || steps > 0);) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            const std::string now = support::readFile(_folder.file("journal"));
            steps -= now != step && steps > 0 ? 1 : 0;
            step = now;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 4000));
        isDone = process->hasEnded();
        if (isDone) {
            ASSERT_EQ(process->wait(), 0) << output();
        } else if (lives % 4 == 3) {
            for (Process* each : {&_server->process(), process.get()}) {
                each->signal(SIGKILL);
                each->wait();
            }
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

TEST_F(ClientTest, ExitCodesTellHowItWent) {
    _server.reset();
    _server = std::make_unique<Server>(_installation, Settings{.maxInput = "1000"});
    const auto expect = [this](const std::vector<std::string>& arguments, int code, const char* words) {
        std::filesystem::remove(_folder.file("output.txt"));
        EXPECT_EQ(client(arguments)->wait(), code) << words;
        EXPECT_THAT(output(), testing::HasSubstr(words));
    };
    const std::string file = _folder.file("request.xml");
    support::writeFile(file, question("l"));
    expect({"create", "l", "x"}, 0, "Created l with 1 class.\n");
    expect({"request", file}, 0, "className=\"x\"");
    expect({"create", "l"}, 1, "(4000) to create l.");
    expect({"classify", "l", "-t", std::string(5000, 'x')}, 1, "(4013) to classify text.");
    expect({"frob"}, 2, "There is no verb 'frob'.");
    expect({"train", "l", "x", _folder.file("none")}, 4, "No such file");
    expect({"file", "verify", file}, 5, "damaged");
    _server->stop();
    expect({"info", "l"}, 3, "No server listens at localhost:");
    EXPECT_EQ(Process(MORVANE_CLIENT, {"config", "init"}, "/dev/full").wait(), 4);

    BoundPort silent;
    silent.listen();
    const auto waiting = client({"info", "l", "--server", "127.0.0.1:" + std::to_string(silent.port())});
    const int connection = ::accept(silent.descriptor(), nullptr, nullptr);
    char buffer[4096];
    while (::read(connection, buffer, sizeof(buffer)) > 0) {
    }
    waiting->signal(SIGINT);
    EXPECT_EQ(waiting->wait(), 130);
    EXPECT_THAT(output(), testing::HasSubstr("Interrupted."));
    ::close(connection);
}

TEST_F(ClientTest, LearnsAndJudgesRealTexts) {
    const char* const data = std::getenv("MORVANE_DATA");
    if (data == nullptr) {
        GTEST_SKIP() << "MORVANE_DATA names no folder with data sets";
    }
    for (const auto& [set, least] : {std::pair("sms", 0.98), {"agmini", 0.89}, {"banking77", 0.83}}) {
        const std::string path = std::string(data) + "/" + set;
        ASSERT_EQ(client({"import", set, path + "/train.tsv", "--create"})->wait(), 0) << output();
        ASSERT_EQ(client({"evaluate", set, path + "/test.tsv"})->wait(), 0) << output();
        const std::string figures = output();
        const std::size_t accuracy = figures.rfind("\naccuracy ");
        ASSERT_NE(accuracy, std::string::npos) << figures;
        EXPECT_GE(std::stod(figures.substr(figures.find("0.", accuracy))), least) << figures;
    }
}

}  // namespace
}  // namespace systemtest
