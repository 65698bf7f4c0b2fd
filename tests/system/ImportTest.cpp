#include <gtest/gtest.h>

#include <atomic>
#include <random>

#include "system/Program.h"
#include "system/Wire.h"

namespace systemtest {
namespace {

enum class Cut { NONE, AT_ONCE, IN_REQUEST, BEHIND_REQUEST, IN_ANSWER, LATE };

// Stands between client and server and cuts connections off at the stage that is chosen for each.
class CuttingProxy {
public:
    CuttingProxy(std::uint16_t server, std::function<Cut()> choose)
        : _server(server), _choose(std::move(choose)) {
        _bound.listen();
        _thread = std::thread([this] { serve(); });
    }
    CuttingProxy(const CuttingProxy&) = delete;
    CuttingProxy& operator=(const CuttingProxy&) = delete;
    ~CuttingProxy() {
        _isStopping = true;
        { const support::LoopbackClient waking(port()); }
        _thread.join();
    }
    std::uint16_t port() const { return _bound.port(); }
    int cuts() const { return _cuts; }

private:
    void serve() {
        while (true) {
            const int client = ::accept4(_bound.descriptor(), nullptr, nullptr, SOCK_CLOEXEC);
            if (_isStopping) {
                ::close(client);
                return;
            }
            handle(client);
        }
    }

    void handle(int client) {
        // What was held back arrives behind one or two later requests, long after its sender has gone.
        if (!_late.empty() && --_lateness == 0) {
            support::LoopbackClient(_server).ask(_late);
            _late.clear();
        }
        Cut cut = _choose();
        if (cut == Cut::LATE && !_late.empty()) {
            cut = Cut::NONE;
        }
        _cuts += cut == Cut::NONE ? 0 : 1;
        std::string request;
        char buffer[65536];
        for (ssize_t got = 1; cut != Cut::AT_ONCE && got > 0;) {
            got = ::recv(client, buffer, sizeof(buffer), 0);
            request.append(buffer, static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        }
        std::string answer;
        if (cut == Cut::IN_REQUEST) {
            support::LoopbackClient cutOff(_server);
            cutOff.send(std::string_view(request).substr(0, request.size() / 2));
            cutOff.reset();
        } else if (cut == Cut::LATE) {
            _late = request;
            _lateness = 1 + _cuts % 3;
        } else if (cut != Cut::AT_ONCE) {
            answer = support::LoopbackClient(_server).ask(request);
        }
        if (cut == Cut::NONE || cut == Cut::IN_ANSWER) {
            answer.resize(cut == Cut::NONE ? answer.size() : answer.size() / 2);
            ::send(client, answer.data(), answer.size(), MSG_NOSIGNAL);
        }
        ::close(client);
    }

    const std::uint16_t _server;
    const std::function<Cut()> _choose;
    BoundPort _bound;
    std::atomic<bool> _isStopping = false;
    std::atomic<int> _cuts = 0;
    std::string _late;  // a request that is held back
    int _lateness = 0;
    std::thread _thread;
};

class ImportTest : public testing::Test {
protected:
    std::unique_ptr<Process> client(const std::vector<std::string>& arguments) const {
        const std::string server = "127.0.0.1:" + std::to_string(_port == 0 ? _server->port() : _port);
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
    std::uint16_t _port = 0;  // of whatever stands in for the server
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

TEST_F(ImportTest, EachTextIsLearnedOnceThroughKillsOfClientAndServer) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    support::writeFile(_folder.file("texts.tsv"), randomTexts(random, 3000));
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

TEST_F(ImportTest, EachTextIsLearnedOnceWhereverConnectionsAreCut) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    support::writeFile(_folder.file("texts.tsv"), randomTexts(random, 400));
    // Without retries, each cut ends the program: what counts is that the next one goes on.
    const auto arguments = [&](const std::string& classifier) {
        return std::vector<std::string>{
            "import", classifier, _folder.file("texts.tsv"), "--create", "--batch", "20", "--retries", "0"};
    };
    ASSERT_EQ(run(arguments("straight")), 0) << output();
    CuttingProxy proxy(_server->port(), [&random] {
        return random() % 4 == 0 ? static_cast<Cut>(1 + random() % 5) : Cut::NONE;
    });
    _port = proxy.port();
    int code = 3;
    for (int lives = 0; code == 3 && lives < 500; ++lives) {
        code = run(arguments("cut"));
    }
    EXPECT_EQ(code, 0) << output();
    EXPECT_GT(proxy.cuts(), 0);
    EXPECT_EQ(support::readFile(_installation.classifier("cut")),
              support::readFile(_installation.classifier("straight")));
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
