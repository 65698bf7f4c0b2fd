// Kills the real server with SIGKILL at random moments while several clients write, and looks at what is
// left:
//
//     axe --kills 1000 [--seed N] [--large MB]
//
// Each client has classifiers of its own, so it knows what every one of them must be: the engine itself, fed
// with the same calls, gives the bytes of the file. Behind each kill every file must be what the last
// acknowledged sequence left, or what the one that was never answered would have left; nothing between the
// two, and nothing else in the folder once the server has started again. One classifier is large, 50 MB if
// not told otherwise, so that many kills meet a save half way.
//
// A kill takes the process alone: what the kernel has, it keeps. Power cuts are another matter, which rests
// on the order of writes, syncs and the rename.

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <mutex>
#include <random>
#include <thread>

#include "classifier/Classifier.h"
#include "exceptions/Exception.h"
#include "server/ClassifierCallbackFactoryImpl.h"
#include "server/ClassifierFactoryImpl.h"
#include "stress/Calls.h"
#include "stress/Main.h"
#include "stress/Wire.h"
#include "support/RecordingLog.h"
#include "system/Program.h"

namespace {

using namespace stress;
using halvern::classifier::Classifier;

constexpr unsigned CLIENTS = 4;
constexpr int CLASSIFIERS_OF_A_CLIENT = 2;
constexpr int LONGEST_LIFE = 300;  // milliseconds until the kill
const std::string CLASSES[] = {"x", "y", "z"};

struct Model {
    halvern::morvane::ClassifierFactoryImpl factory;
    support::RecordingLog log;
    halvern::morvane::ClassifierCallbackFactoryImpl callbacks{log};
};

// What a classifier is: nothing, or the engine's own object. Shared, since it never changes.
using Content = std::shared_ptr<const Classifier>;

util::Bytes bytesOf(const Content& content) {
    util::Bytes bytes;
    if (content) {
        content->getTrainingData(bytes);
    }
    return bytes;
}

// One classifier as the client that owns it sees it.
struct Owned {
    std::string name;
    Content acknowledged = nullptr;
    bool mayShrink = true;
    bool isPending = false;     // a sequence was sent and not answered
    Content pending = nullptr;  // what that one would leave
};

class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class Client {
public:
    Client(Model& model, unsigned number, unsigned seed) : _model(model), _dice(seed * CLIENTS + number) {
        for (int i = 0; i < CLASSIFIERS_OF_A_CLIENT; ++i) {
            _owned.push_back({"c" + std::to_string(number) + std::to_string(i)});
        }
    }

    std::vector<Owned>& owned() { return _owned; }
    std::uint64_t acknowledged() const { return _acknowledged; }

    // Writes until the server is gone.
    void write(std::uint16_t port) {
        try {
            for (;;) {
                writeOnce(_owned[_dice() % _owned.size()], port);
            }
        } catch (const Failure&) {
            throw;
        } catch (const std::runtime_error&) {
            // The connection broke: what was asked last may have happened or not.
        }
    }

private:
    void writeOnce(Owned& classifier, std::uint16_t port) {
        const std::vector<Call> calls = randomCalls(classifier);
        classifier.pending = after(classifier.acknowledged, calls);
        classifier.isPending = true;
        std::string xml;
        std::string texts;
        for (std::size_t i = 0; i < calls.size(); ++i) {
            xml += toXml(calls[i], i);
            if (!calls[i].word.empty() && texts.find("\"" + calls[i].word + "\"") == std::string::npos) {
                texts += systemtest::text(calls[i].word, calls[i].word);
            }
        }
        const std::string request = systemtest::request((texts.empty() ? "" : systemtest::texts(texts)) +
                                                        systemtest::writeCalls(classifier.name, xml));
        const std::string response = systemtest::replyTo(port, request);
        if (response.find("</morvane>") == std::string::npos) {
            throw std::runtime_error("cut off");
        }
        if (!systemtest::parse(response).isSuccess()) {
            throw Failure("A sequence failed that should not.\n" + request + "\n" + response);
        }
        classifier.acknowledged = std::move(classifier.pending);
        classifier.isPending = false;
        ++_acknowledged;
    }

    // Calls that must succeed.
    std::vector<Call> randomCalls(const Owned& classifier) {
        std::vector<Call> calls;
        if (!classifier.acknowledged) {
            calls.push_back({Verb::CREATE, "", ""});
            for (const std::string& name : CLASSES) {
                calls.push_back({Verb::ADD_CLASS, name, ""});
            }
            calls.push_back(lesson());
            return calls;
        }
        switch (classifier.mayShrink ? _dice() % 16 : 2 + _dice() % 14) {
            case 0:
                return {{Verb::REMOVE, "", ""}};
            case 1: {
                const std::string& name = CLASSES[_dice() % std::size(CLASSES)];
                return {{Verb::REMOVE_CLASS, name, ""}, {Verb::ADD_CLASS, name, ""}, lesson()};
            }
            case 2:
            case 3:
                for (int i = 0; i < 30; ++i) {
                    calls.push_back(lesson());
                }
                return calls;
            default:
                return {lesson()};
        }
    }

    Call lesson() {
        return {_dice() % 4 == 0 ? Verb::UNTRAIN : Verb::TRAIN, CLASSES[_dice() % std::size(CLASSES)],
                "word" + std::to_string(_dice() % 500)};
    }

    Content after(const Content& before, const std::vector<Call>& calls) const {
        std::unique_ptr<Classifier> next = before ? before->clone() : _model.factory.create(_model.callbacks);
        for (const Call& call : calls) {
            switch (call.verb) {
                case Verb::CREATE:
                    break;
                case Verb::REMOVE:
                    return nullptr;
                case Verb::ADD_CLASS:
                    next->addClass(call.className);
                    break;
                case Verb::REMOVE_CLASS:
                    next->compact();
                    next->removeClass(call.className);
                    break;
                case Verb::TRAIN:
                    next->train(call.className, call.word);
                    break;
                case Verb::UNTRAIN:
                    next->untrain(call.className, call.word);
                    break;
            }
        }
        next->compact();
        return next;
    }

    Model& _model;
    std::mt19937 _dice;
    std::vector<Owned> _owned;
    std::uint64_t _acknowledged = 0;
};

// The classifier that takes long to save.
Content largeClassifier(Model& model, int megabytes) {
    std::unique_ptr<Classifier> large = model.factory.create(model.callbacks);
    for (const std::string& name : CLASSES) {
        large->addClass(name);
    }
    std::string words;
    constexpr int BYTES_OF_A_RECORD = 26;  // a word of 20 letters, a class and a count
    const int count = megabytes * 1'000'000 / BYTES_OF_A_RECORD;
    for (int i = 0; i < count; ++i) {
        words += std::to_string(1'000'000'000 + i) + "abcdefghij ";
    }
    large->train(CLASSES[0], words);
    large->compact();
    return large;
}

class Axe {
public:
    Axe(unsigned seed, int megabytes) : _dice(seed) {
        for (unsigned i = 0; i < CLIENTS; ++i) {
            _clients.push_back(std::make_unique<Client>(_model, i, seed));
        }
        Owned large{"large", largeClassifier(_model, megabytes), false};
        const util::Bytes bytes = bytesOf(large.acknowledged);
        std::filesystem::create_directory(_installation.file("classifiers"));
        support::writeFile(_installation.classifier(large.name), std::string(bytes.begin(), bytes.end()));
        std::printf("The large classifier has %zu bytes.\n", bytes.size());
        _clients.front()->owned().push_back(std::move(large));
        _settings.logLevel = "error";
    }

    void swing(int kills) {
        for (int i = 1; i <= kills; ++i) {
            if (_dice() % 10 == 0) {
                killStartingServer();
            } else {
                killServingServer();
            }
            checkFiles();
            if (i % 50 == 0 || i == kills) {
                std::printf(
                    "%d kills, %llu acknowledged sequences, %d of those that were never answered had "
                    "happened, %d had not; %d kills left a temporary file until the next start.\n",
                    i, static_cast<unsigned long long>(acknowledged()), _happened, _hadNot, _leftovers);
                std::fflush(stdout);
            }
        }
        systemtest::Server server(_installation, _settings);
        checkNothingElseIsLeft();
        for (const auto& client : _clients) {
            for (const Owned& classifier : client->owned()) {
                checkAnswer(server.port(), classifier);
            }
        }
        if (server.stop() != 0) {
            throw Failure("The last server did not stop in order.");
        }
    }

private:
    void sleep(int longest) {
        std::this_thread::sleep_for(
            std::chrono::microseconds(_dice() % (1000u * static_cast<unsigned>(longest))));
    }

    void killStartingServer() {
        const auto process = _installation.run({"-config", "config.xml", "-quiet"});
        sleep(30);
        process->signal(SIGKILL);
        process->wait();
    }

    void killServingServer() {
        systemtest::Server server(_installation, _settings, {"-quiet"});
        checkNothingElseIsLeft();
        std::mutex mutex;
        std::string complaint;
        {
            std::vector<std::jthread> threads;
            for (const auto& client : _clients) {
                threads.emplace_back([&] {
                    try {
                        client->write(server.port());
                    } catch (const std::exception& e) {
                        const std::lock_guard guard(mutex);
                        complaint = e.what();
                    } catch (const exceptions::Exception& e) {
                        const std::lock_guard guard(mutex);
                        complaint = e.what();
                    }
                });
            }
            sleep(LONGEST_LIFE);
            server.process().signal(SIGKILL);
        }
        if (server.process().wait() != 128 + SIGKILL || !complaint.empty()) {
            throw Failure("The server ended before the kill, or: " + complaint);
        }
    }

    // Every file is what it must be, and the clients learn how their last sequence went.
    void checkFiles() {
        for (const auto& client : _clients) {
            for (Owned& classifier : client->owned()) {
                const std::string path = _installation.classifier(classifier.name);
                const std::string file = support::readFile(path);
                const auto is = [&](const Content& content) {
                    const util::Bytes bytes = bytesOf(content);
                    return std::filesystem::exists(path) == (content != nullptr) &&
                           std::string_view(bytes.data(), bytes.size()) == file;
                };
                if (classifier.isPending && is(classifier.pending)) {
                    ++_happened;
                    classifier.acknowledged = classifier.pending;
                } else if (!is(classifier.acknowledged)) {
                    throw Failure("The classifier '" + classifier.name +
                                  "' is neither what was acknowledged nor what was asked last.");
                } else if (classifier.isPending) {
                    ++_hadNot;
                }
                classifier.isPending = false;
                classifier.pending.reset();
            }
        }
        _leftovers += filesBeside() > 0 ? 1 : 0;
    }

    int filesBeside() const {
        int others = 0;
        for (const auto& entry : std::filesystem::directory_iterator(_installation.file("classifiers"))) {
            others += entry.path().extension() == ".dat" ? 0 : 1;
        }
        return others;
    }

    void checkNothingElseIsLeft() const {
        if (filesBeside() != 0) {
            throw Failure("A temporary file has outlived the start of the server.");
        }
    }

    static void checkAnswer(std::uint16_t port, const Owned& classifier) {
        systemtest::Classes expected;
        if (classifier.acknowledged) {
            for (const auto& entry : classifier.acknowledged->getInformation()) {
                expected[entry.name] = {entry.uniqueFeatures, entry.totalCount};
            }
        }
        if (systemtest::classesOf(port, classifier.name) != expected) {
            throw Failure("The server tells other figures of '" + classifier.name + "' than its file holds.");
        }
    }

    std::uint64_t acknowledged() const {
        std::uint64_t sum = 0;
        for (const auto& client : _clients) {
            sum += client->acknowledged();
        }
        return sum;
    }

    std::mt19937 _dice;
    Model _model;
    systemtest::Installation _installation;
    systemtest::Settings _settings;
    std::vector<std::unique_ptr<Client>> _clients;
    int _happened = 0;
    int _hadNot = 0;
    int _leftovers = 0;
};

}  // namespace

int main(int argc, char** argv) {
    int kills = 1000;
    int seed = 1;
    int megabytes = 50;
    return runMain(
        argc, argv,
        {number("--kills", "N", kills, 1, 1'000'000), number("--seed", "N", seed, 0, 1'000'000'000),
         number("--large", "MB", megabytes, 1, 1000)},
        [&] {
            Axe(static_cast<unsigned>(seed), megabytes).swing(kills);
            std::printf("Every acknowledged sequence is there, and nothing half done.\n");
            return 0;
        });
}
