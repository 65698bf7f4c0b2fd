#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <deque>

#include "system/Program.h"
#include "system/Wire.h"

// What goes wrong outside of the server, brought about for real. The table in docs/faults.md names these
// tests.
namespace systemtest {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

const std::string QUERY_FAILED = "An error occurred when executing a classifier query.\n\n";

std::string training(const std::string& bytes = "some words") {
    RequestWriter request("c");
    request.train("x", request.addText(bytes));
    return request.document();
}

std::string removal() {
    RequestWriter request("c");
    request.remove();
    return request.document();
}

std::string manyWords() {
    std::string words;
    for (int i = 0; i < 200'000; ++i) {
        words.append("w").append(std::to_string(i)).append(" ");
    }
    return words;
}

std::size_t countOf(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

std::size_t entriesOf(const std::string& folder) {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), {}));
}

// One server with the classifier "c".
class FaultsTest : public testing::Test {
protected:
    void start(const Settings& settings = {}, const std::vector<std::string>& moreArguments = {}) {
        server = std::make_unique<Server>(installation, settings, moreArguments);
        if (!fs::exists(c)) {
            ASSERT_TRUE(ask(creation("c")).isSuccess());
        }
        remember();
    }
    void stop() {
        EXPECT_EQ(server->stop(), 0);
        EXPECT_THAT(installation.log(), HasSubstr("Closing server."));
        server.reset();
    }
    // For the end: the same that failed before goes through without a restart.
    void trainAndStop() {
        EXPECT_TRUE(ask(training()).isSuccess());
        stop();
    }
    Answer ask(const std::string& wholeRequest) { return systemtest::ask(server->port(), wholeRequest); }
    void expectFailure(const Answer& answer, const std::string& reason) {
        EXPECT_EQ(answer.statusCode(), 5000);
        EXPECT_THAT(answer.message(), AllOf(StartsWith(QUERY_FAILED), HasSubstr(reason)));
    }
    void remember() {
        classes = classesOf(server->port(), "c");
        file = support::readFile(c);
    }
    void expectUnchanged() {
        EXPECT_EQ(classesOf(server->port(), "c"), classes);
        EXPECT_TRUE(support::readFile(c) == file);
    }

    const Installation installation;
    const std::string c = installation.classifier("c");
    const std::string root = installation.file("classifiers");
    const std::string logs = installation.file("logs");
    std::unique_ptr<Server> server;
    Classes classes;
    std::string file;
};

// File systems that only this test and its children see, as long as it lives.
class OwnMounts {
public:
    OwnMounts() {
        const std::string user = std::to_string(::geteuid());
        const std::string group = std::to_string(::getegid());
        bool apart = ::unshare(CLONE_NEWNS) == 0;
        if (!apart && ::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0) {
            // Without a number of its own in there, the user could not make files on the new disks.
            support::writeFile("/proc/self/setgroups", "deny");
            support::writeFile("/proc/self/uid_map", user + " " + user + " 1");
            support::writeFile("/proc/self/gid_map", group + " " + group + " 1");
            apart = true;
        }
        _allowed = apart && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    }
    OwnMounts(const OwnMounts&) = delete;
    OwnMounts& operator=(const OwnMounts&) = delete;
    ~OwnMounts() {
        for (const std::string& folder : _folders) {
            ::umount2(folder.c_str(), MNT_DETACH);
        }
    }

    // False where this user may not mount anything.
    bool allowed() const { return _allowed; }
    void smallDisk(const std::string& folder) {
        std::filesystem::create_directories(folder);
        require(::mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=2m"));
        _folders.push_back(folder);
    }
    // What can be made read-only.
    void itself(const std::string& folder) {
        require(::mount(folder.c_str(), folder.c_str(), nullptr, MS_BIND, nullptr));
        _folders.push_back(folder);
    }
    static void setReadOnly(const std::string& folder, bool readOnly) {
        require(::mount(nullptr, folder.c_str(), nullptr,
                        MS_REMOUNT | MS_BIND | static_cast<unsigned long>(readOnly ? MS_RDONLY : 0),
                        nullptr));
    }

private:
    static void require(int result) {
        if (result != 0) {
            throw std::system_error(errno, std::generic_category(), "mount");
        }
    }
    bool _allowed = false;
    std::vector<std::string> _folders;
};

const char* const NO_MOUNTS = "This user may not mount file systems, not even for itself.";

// Takes all that is left of a disk.
void fill(const std::string& file) {
    std::ofstream out(file, std::ios::binary);
    const std::string block(4096, 'x');
    while (out.write(block.data(), static_cast<std::streamsize>(block.size())).flush()) {
    }
}

TEST_F(FaultsTest, ADiskThatIsFullForAllComesBackByItself) {
    OwnMounts mounts;
    if (!mounts.allowed()) {
        GTEST_SKIP() << NO_MOUNTS;
    }
    mounts.smallDisk(root);
    mounts.smallDisk(logs);
    start({.saveRequests = "true"});
    fill(root + "/filler");
    fill(logs + "/filler");
    expectFailure(ask(training()), "No space left on device. Error code: 28.");
    expectUnchanged();
    EXPECT_EQ(entriesOf(root), 2u);
    EXPECT_EQ(entriesOf(logs), 3u);  // no dump
    // The end of the last page of the log still takes a few entries.
    const std::string full = "Error when logging: An error occurred when trying to write the file.";
    for (int tries = 0; tries < 100 && countOf(installation.output(), full) == 0; ++tries) {
        expectUnchanged();
    }
    EXPECT_THAT(installation.output(),
                AllOf(HasSubstr(full), HasSubstr("Skipping to save request, to little harddrive space"),
                      HasSubstr(" bytes left, which is too little for a dump.")));
    fs::remove(root + "/filler");
    fs::remove(logs + "/filler");
    trainAndStop();
}

TEST_F(FaultsTest, AFileThatMayNotGrowCostsTheRequestAndNothingElse) {
    start();
    const std::string words = manyWords();
    {
        const Limit disk(server->process().id(), RLIMIT_FSIZE, 1'000'000);
        expectFailure(ask(training(words)), "File too large");
        RequestWriter fresh("fresh");
        fresh.create();
        fresh.addClass("x");
        fresh.train("x", fresh.addText(words));
        expectFailure(ask(fresh.document()), "File too large");
        expectUnchanged();
    }
    EXPECT_EQ(entriesOf(root), 1u);
    EXPECT_EQ(ask(question("fresh")).statusCode(), 4000);
    EXPECT_TRUE(ask(training(words)).isSuccess());
    const auto after = classesOf(server->port(), "c");
    EXPECT_GT(after.at("x").second, 200'000u);
    stop();
    start();
    EXPECT_EQ(classes, after);
}

TEST_F(FaultsTest, AReadOnlyRootStillAnswersQuestions) {
    OwnMounts mounts;
    if (!mounts.allowed()) {
        GTEST_SKIP() << NO_MOUNTS;
    }
    fs::create_directory(root);
    mounts.itself(root);
    start();
    OwnMounts::setReadOnly(root, true);
    for (int round = 0; round < 2; ++round) {
        for (const std::string& change : {training(), removal(), creation("d")}) {
            expectFailure(ask(change), "Read-only file system. Error code: 30.");
        }
        expectUnchanged();
        EXPECT_EQ(entriesOf(root), 1u);
        // Also one that finds it so when it starts.
        stop();
        start();
    }
    OwnMounts::setReadOnly(root, false);
    trainAndStop();
}

TEST_F(FaultsTest, FilesGoAndChangeUnderTheServer) {
    start({.saveRequests = "true"});
    ASSERT_TRUE(ask(training()).isSuccess());
    const struct {
        const char* what;
        std::function<void()> fault;
        int code;  // of training
        const char* words;
        std::function<void()> remedy;
    } rows[] = {
        {"the file is removed", [&] { fs::remove(c); }, 2000, "", [] {}},
        {"the file is damaged", [&] { support::writeFile(c, "x"); }, 2000, "", [] {}},
        {"the file is a directory",
         [&] {
             fs::remove(c);
             fs::create_directory(c);
         },
         5000, "Is a directory. Error code: 21.", [&] { fs::remove(c); }},
        {"the root is gone", [&] { fs::rename(root, root + ".away"); }, 5000,
         "No such file or directory. Error code: 2.", [&] { fs::rename(root + ".away", root); }},
        {"the logs are gone", [&] { fs::rename(logs, logs + ".away"); }, 2000, "",
         [&] {
             EXPECT_THAT(installation.output(),
                         AllOf(HasSubstr("Could not save a request: "), HasSubstr("Error when logging: ")));
             fs::rename(logs + ".away", logs);
         }},
        {"schemas, configuration and program are gone",
         [&] {
             fs::remove_all(installation.file("xml"));
             fs::remove(installation.file("config.xml"));
             fs::remove(installation.program());
         },
         2000, "", [] {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        remember();
        EXPECT_EQ(classes.size(), 1u);
        row.fault();
        EXPECT_EQ(classesOf(server->port(), "c"), classes);
        const Answer answer = ask(training());
        EXPECT_EQ(answer.statusCode(), row.code);
        EXPECT_THAT(answer.message(), HasSubstr(row.words));
        row.remedy();
        EXPECT_EQ(classesOf(server->port(), "c") == classes, row.code != 2000);
        EXPECT_TRUE(ask(training()).isSuccess());
        EXPECT_GT(support::readFile(c).size(), 100u);
    }
    stop();
}

// The clients of one server, each with a place and a thread of its own.
class Waiting {
public:
    Waiting(Server& server, const Installation& installation)
        : _server(server), _installation(installation) {}
    // False if the server doesn't serve one more because it logs these words first.
    bool add(const std::string& orElse) {
        const std::string served = "Running connection ";
        const std::size_t before = countOf(_installation.log(), served);
        _clients.emplace_back(_server.port());
        eventually([&] {
            const std::string log = _installation.log();
            return countOf(log, served) > before || countOf(log, orElse) != 0;
        });
        return countOf(_installation.log(), served) > before;
    }
    Answer ask(std::size_t client, const std::string& wholeRequest) {
        return parse(_clients[client].ask(wholeRequest));
    }
    void leave() { _clients.clear(); }

private:
    Server& _server;
    const Installation& _installation;
    std::deque<support::LoopbackClient> _clients;
};

TEST_F(FaultsTest, WithoutDescriptorsClientsWaitAndTheLogSaysSo) {
    // Nobody sees the console of this one.
    start({.maxClients = "1000"}, {"-quiet"});
    const std::size_t open = entriesOf("/proc/" + std::to_string(server->process().id()) + "/fd");
    const Limit limit(server->process().id(), RLIMIT_NOFILE, open + 4);
    Waiting clients(*server, installation);
    while (clients.add("Error accepting a connection. Failed using the accept system call. ")) {
    }
    EXPECT_THAT(installation.log(), HasSubstr("Too many open files"));
    expectFailure(clients.ask(0, training()), "Too many open files. Error code: 24.");
    EXPECT_EQ(countOf(installation.log(), QUERY_FAILED), 1u);
    // When the last of them have been let go, all is as before.
    clients.leave();
    expectUnchanged();
    EXPECT_TRUE(eventually([this] { return ask(training()).isSuccess(); }));
    stop();
}

TEST_F(FaultsTest, WithoutMemoryARequestIsLostAndNothingElse) {
#ifdef MORVANE_SANITIZED
    GTEST_SKIP() << "The sanitizers need more address space than any limit leaves.";
#endif
    // Otherwise each thread begins with address space in hand.
    ::setenv("MALLOC_ARENA_MAX", "1", 1);
    start();
    ASSERT_TRUE(ask(training(manyWords())).isSuccess());
    remember();
    stop();
    server = std::make_unique<Server>(installation);
    const std::string process = "/proc/" + std::to_string(server->process().id());
    // In a load, and in the copy that a write sequence works on.
    for (const std::string& request : {question("c"), training()}) {
        Waiting clients(*server, installation);
        ASSERT_TRUE(clients.add("nothing else"));
        {
            const auto pages = static_cast<rlim_t>(std::stoull(support::readFile(process + "/statm")));
            const Limit limit(server->process().id(), RLIMIT_AS,
                              pages * static_cast<rlim_t>(::getpagesize()) + 1'000'000);
            const Answer answer = clients.ask(0, request);
            EXPECT_EQ(answer.statusCode(), 5030);
            EXPECT_EQ(answer.message(), "");
        }
        expectUnchanged();
    }
    EXPECT_THAT(installation.log(), HasSubstr("\nOut of memory.\n"));
    trainAndStop();
}

}  // namespace
}  // namespace systemtest
