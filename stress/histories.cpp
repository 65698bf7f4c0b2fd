// Lets several clients create, train, untrain, read and remove a few classifiers at once, and looks for a
// serial order of their requests that explains every answer:
//
//     histories --histories 5000             as many short histories, with the seeds 1, 2, 3 and so on
//     histories --seed 17 --histories 1      one of them again
//     histories --plant NAME                 with a bug planted; ends with 0 once a history gives it away
//
// The seed fixes what the clients ask; how they meet is the scheduler's. The server's side is the real one
// from the bytes of a request on, above a disk in memory that stalls and fails, with memory so short that
// classifiers leave it whenever they can. A last reader per history sees what a restarted server would load.

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <thread>

#include "platform/memory/MemoryStatus.h"
#include "server/ClassifierCallbackFactoryImpl.h"
#include "server/ClassifierFactoryImpl.h"
#include "server/EmptyXmlHookImpl.h"
#include "server/JobDistribution.h"
#include "server/XmlClassifier.h"
#include "server/XmlErrorResponseImpl.h"
#include "server/XmlResponseImpl.h"
#include "stress/History.h"
#include "stress/Main.h"
#include "stress/Wire.h"
#include "support/MemoryFiles.h"
#include "support/RecordingLog.h"
#include "support/Xml.h"

namespace {

using namespace halvern::morvane;
using namespace stress;

constexpr unsigned CLIENTS = 4;
constexpr int REQUESTS = 5;  // of each client
const std::string CLASSIFIERS[] = {"a", "b"};
const std::string CLASSES[] = {"x", "y"};
const std::string WORDS[] = {"alpha", "omega"};

// Every thread has its own; the seed comes with the history.
thread_local std::mt19937 dice(0);

template <std::size_t N>
const std::string& oneOf(const std::string (&choices)[N]) {
    return choices[dice() % N];
}

void stall() {
    const auto step = dice() % 8;
    if (step == 0) {
        std::this_thread::sleep_for(std::chrono::microseconds(dice() % 100));
    } else if (step < 4) {
        std::this_thread::yield();
    }
}

// A disk that takes its time and fails now and then.
class MoodyDisk final : public io::filesystem::LoadFile,
                        public io::filesystem::SaveFile,
                        public io::filesystem::ExistsFile,
                        public io::filesystem::SizeFile,
                        public io::filesystem::RemoveFile {
public:
    static constexpr const char* COMPLAINT = "The disk is in no mood.";

    std::atomic<bool> fails = true;

    util::Bytes load(const std::string& name, std::uint32_t bytes) const override {
        mayFail<io::filesystem::LoadFileExceptionImpl>();
        return _files.load(name, bytes);
    }
    void save(const std::string& name, const util::Bytes& data, std::uint32_t mode) const override {
        mayFail<io::filesystem::SaveFileExceptionImpl>();
        _files.save(name, data, mode);
        stall();
    }
    bool exists(const std::string& name) const noexcept override {
        stall();
        return _files.exists(name);
    }
    std::uint64_t size(const std::string& name, bool mustExist) const override {
        stall();
        return _files.size(name, mustExist);
    }
    void remove(const std::string& name) const override {
        stall();
        _files.remove(name);
        stall();
    }

private:
    template <class Failure>
    void mayFail() const {
        stall();
        if (fails && dice() % 30 == 0) {
            throw Failure(COMPLAINT);
        }
    }

    support::MemoryFiles _files;
};

class NoMemory final : public platform::memory::MemoryStatus {
public:
    std::uint64_t available() const override { return 0; }
    std::uint64_t total() const override { return 0; }
};

// The table with a bug in it, to show that the search finds such bugs.
class BuggyTable final : public JobDistribution {
public:
    static constexpr const char* BUGS[] = {"removal-without-lock", "uncommitted-visible", "two-copies",
                                           "lost-commit"};

    BuggyTable(const std::string& bug, JobDistribution& sound, const ClassifierFactory& factory,
               const MoodyDisk& disk, halvern::classifier::CallbackFactory& callbacks)
        : _bug(bug), _sound(sound), _factory(factory), _disk(disk), _callbacks(callbacks) {}

    HeldClassifier create(const std::string& name, const ThreadSafeClassifier* held) override {
        HeldClassifier created = _sound.create(name, held);
        if (_bug == "uncommitted-visible") {
            created.lock.reset();
            stall();
            created.lock = std::make_unique<platform::mutex::WriterAutoLock>(*created.classifier);
        }
        return created;
    }
    boost::shared_ptr<ThreadSafeClassifier> get(const std::string& name) override {
        auto found = _sound.get(name);
        if (_bug == "two-copies" && _disk.exists(name)) {
            return boost::shared_ptr<ThreadSafeClassifier>(
                new ThreadSafeClassifier(_factory, _disk, name, _callbacks));
        }
        return found;
    }
    std::uint64_t getSize(const std::string& name) override { return _sound.getSize(name); }
    io::filesystem::ScopedDescriptor save(const std::string& name, const util::Pieces& data) override {
        if (_bug != "lost-commit" || dice() % 10 != 0) {
            return _sound.save(name, data);
        }
        return io::filesystem::ScopedDescriptor(-1);
    }
    void remove(const std::string& name, const ThreadSafeClassifier* held) override {
        if (_bug == "removal-without-lock" && held == nullptr && _disk.exists(name)) {
            _sound.remove(name, _sound.get(name).get());
            return;
        }
        _sound.remove(name, held);
    }
    void discard(const std::string& name, ThreadSafeClassifier& held) noexcept override {
        _sound.discard(name, held);
    }

private:
    const std::string _bug;
    JobDistribution& _sound;
    const ClassifierFactory& _factory;
    const MoodyDisk& _disk;
    halvern::classifier::CallbackFactory& _callbacks;
};

struct Schemas {
    const support::LoadedSchema request{MORVANE_SCHEMAS "/server/RequestSchema.xsd"};
    const support::LoadedSchema response{MORVANE_SCHEMAS "/server/ResponseSchema.xsd"};
};

// A server without its sockets.
class Rig {
public:
    Rig(const Schemas& schemas, const std::string& bug)
        : _schemas(schemas),
          _errors(schemas.response.targetNamespace(), schemas.response.version()),
          _responses(schemas.response.targetNamespace()),
          _bug(bug) {
        restart();
    }

    // What was in memory is gone; from here on the disk is well.
    void restartCalmly() {
        disk.fails = false;
        restart();
    }

    std::string handle(const std::string& request) {
        std::string response;
        _requests->create()->handle(response, request);
        return response;
    }

    MoodyDisk disk;

private:
    void restart() {
        _table = std::make_unique<JobDistributionImpl>(_factory, _memory, disk, disk, disk, disk, disk,
                                                       _callbacks, "root", _log);
        _buggy = std::make_unique<BuggyTable>(_bug, *_table, _factory, disk, _callbacks);
        _requests = std::make_unique<XmlClassifierFactoryImpl>(
            _bug.empty() ? static_cast<JobDistribution&>(*_table) : *_buggy, _responses, _errors, _hooks,
            _schemas.request.cache(), _schemas.request.targetNamespace(), "root", _log);
    }

    const Schemas& _schemas;
    support::RecordingLog _log;
    NoMemory _memory;
    ClassifierFactoryImpl _factory;
    ClassifierCallbackFactoryImpl _callbacks{_log};
    const XmlErrorResponseFactoryImpl _errors;
    const XmlResponseFactoryImpl _responses;
    const EmptyXmlHookFactoryImpl _hooks;
    const std::string _bug;
    std::unique_ptr<JobDistributionImpl> _table;
    std::unique_ptr<BuggyTable> _buggy;
    std::unique_ptr<XmlClassifierFactoryImpl> _requests;
};

std::string readOf(const std::string& classifier) {
    return systemtest::request(systemtest::readCalls(systemtest::information(classifier)));
}

std::vector<Call> randomCalls() {
    const auto change = []() -> Call {
        switch (dice() % 8) {
            case 0:
                return {Verb::ADD_CLASS, oneOf(CLASSES), ""};
            case 1:
                return {Verb::REMOVE_CLASS, oneOf(CLASSES), ""};
            case 2:
                return {Verb::UNTRAIN, oneOf(CLASSES), oneOf(WORDS)};
            case 3:
                return {Verb::REMOVE, "", ""};
            case 4:
                return {Verb::CREATE, "", ""};
            default:
                return {Verb::TRAIN, oneOf(CLASSES), oneOf(WORDS)};
        }
    };
    switch (dice() % 8) {
        case 0:
            return {{Verb::REMOVE, "", ""}};
        case 1:
            return {change(), change(), change()};
        case 2:
        case 3:
            return {{Verb::CREATE, "", ""},
                    {Verb::ADD_CLASS, CLASSES[0], ""},
                    {Verb::ADD_CLASS, CLASSES[1], ""},
                    {Verb::TRAIN, oneOf(CLASSES), oneOf(WORDS)}};
        default:
            return {{Verb::TRAIN, oneOf(CLASSES), oneOf(WORDS)}};
    }
}

// Fills in what the answer says. The response schema must admit it.
void understand(Operation& operation, const support::LoadedSchema& schema) {
    static const std::map<std::string, Failure> REASONS = {
        {"already exists (", Failure::EXISTS},
        {"could not be found", Failure::NOT_FOUND},
        {"marked for deletion", Failure::MARKED_FOR_DELETION},
        {"already existing class", Failure::CLASS_EXISTS},
        {"a class that doesn't exist", Failure::NO_CLASS},
        {"a nonexisting class", Failure::NO_CLASS},
        {MoodyDisk::COMPLAINT, Failure::DISK}};
    windows::com::xml::Document document = schema.newDocument();
    document.loadXml(operation.response);
    document.validate();
    const windows::com::xml::Element status = document.getElement("mv:morvane/mv:status");
    if (status.getBoolean("success")) {
        const auto classes = document.selectNodes("//mv:classInformation");
        for (std::int32_t i = 0; i < classes.size(); ++i) {
            const windows::com::xml::Element entry(classes.getNode(i));
            operation.read[entry.getAttribute("className")] = {
                std::stoull(entry.getElement("mv:uniqueFeatures").getText()),
                std::stoull(entry.getElement("mv:totalCount").getText())};
        }
        return;
    }
    const std::string message = status.getText();
    for (const auto& [words, failure] : REASONS) {
        if (message.find(words) != std::string::npos) {
            operation.outcome.failure = failure;
            const std::string label = "Call id: ";
            const std::size_t id = message.find(label);
            if (!operation.calls.empty() && id != std::string::npos) {
                operation.outcome.call = std::stoul(message.substr(id + label.size()));
            }
            return;
        }
    }
    operation.outcome.failure = Failure::UNKNOWN;
}

// By classifier.
using History = std::map<std::string, std::vector<Operation>>;

class Recorder {
public:
    Recorder(Rig& rig, const support::LoadedSchema& responseSchema) : _rig(rig), _schema(responseSchema) {}

    Operation ask(unsigned client, std::vector<Call> calls, std::string request) {
        Operation operation;
        operation.client = client;
        operation.calls = std::move(calls);
        operation.request = std::move(request);
        operation.called = ++_clock;
        operation.response = _rig.handle(operation.request);
        operation.returned = ++_clock;
        understand(operation, _schema);
        return operation;
    }

    void runClient(unsigned client, unsigned seed, History& history) {
        dice.seed(seed);
        for (int i = 0; i < REQUESTS; ++i) {
            const std::string& classifier = oneOf(CLASSIFIERS);
            std::vector<Call> calls;
            std::string request = readOf(classifier);
            if (dice() % 3 != 0) {
                calls = randomCalls();
                std::string xml;
                for (std::size_t place = 0; place < calls.size(); ++place) {
                    xml += toXml(calls[place], place);
                }
                request = systemtest::request(systemtest::texts(systemtest::text(WORDS[0], WORDS[0]) +
                                                                systemtest::text(WORDS[1], WORDS[1])) +
                                              systemtest::writeCalls(classifier, xml));
            }
            history[classifier].push_back(ask(client, std::move(calls), std::move(request)));
            stall();
        }
    }

private:
    Rig& _rig;
    const support::LoadedSchema& _schema;
    std::atomic<std::uint64_t> _clock = 0;
};

History record(const Schemas& schemas, unsigned seed, const std::string& bug) {
    Rig rig(schemas, bug);
    Recorder recorder(rig, schemas.response);
    std::vector<History> parts(CLIENTS);
    {
        std::vector<std::jthread> clients;
        for (unsigned client = 0; client < CLIENTS; ++client) {
            clients.emplace_back(
                [&, client] { recorder.runClient(client, seed * CLIENTS + client, parts[client]); });
        }
    }
    rig.restartCalmly();
    History whole;
    for (const std::string& classifier : CLASSIFIERS) {
        for (const History& part : parts) {
            if (const auto found = part.find(classifier); found != part.end()) {
                whole[classifier].insert(whole[classifier].end(), found->second.begin(), found->second.end());
            }
        }
        whole[classifier].push_back(recorder.ask(CLIENTS, {}, readOf(classifier)));
    }
    return whole;
}

// How many features one word gives, learned from the server: the words share none, and each occurs once.
std::uint64_t featuresOfWord(const Schemas& schemas) {
    Rig rig(schemas, "");
    rig.disk.fails = false;
    Recorder recorder(rig, schemas.response);
    std::vector<Information> seen;
    for (const std::string& word : WORDS) {
        const std::string sequence =
            (seen.empty() ? "<create id=\"0\"/><addClass id=\"1\" className=\"x\"/>" : "") +
            toXml({Verb::TRAIN, "x", word}, 2);
        rig.handle(systemtest::request(systemtest::texts(systemtest::text(word, word)) +
                                       systemtest::writeCalls("a", sequence)));
        seen.push_back(recorder.ask(0, {}, readOf("a")).read);
    }
    const std::uint64_t features = seen[0]["x"].uniqueFeatures;
    if (features == 0 || seen[0]["x"] != Figures{features, features} ||
        seen[1]["x"] != Figures{2 * features, 2 * features}) {
        throw std::runtime_error(
            "The words of this test must have as many features each, and none in common.");
    }
    return features;
}

void print(const std::string& classifier, std::vector<Operation> operations) {
    std::sort(operations.begin(), operations.end(),
              [](const Operation& one, const Operation& other) { return one.called < other.called; });
    std::printf("No serial order explains what happened to the classifier '%s':\n", classifier.c_str());
    for (const Operation& operation : operations) {
        std::printf("\n--- client %u, from %llu to %llu\n%s\n%s\n", operation.client,
                    static_cast<unsigned long long>(operation.called),
                    static_cast<unsigned long long>(operation.returned), operation.request.c_str(),
                    operation.response.c_str());
    }
}

// A bug can also lead to a state that one of the server's own checks refuses, which ends the process.
void giveAwayByACheck(int) {
    constexpr char words[] = "Given away by a check of the server.\n";
    _exit(::write(STDOUT_FILENO, words, sizeof(words) - 1) > 0 ? 0 : 1);
}

int run(unsigned firstSeed, unsigned histories, const std::string& bug) {
    if (!bug.empty()) {
        std::signal(SIGABRT, giveAwayByACheck);
    }
    const Schemas schemas;
    const std::uint64_t features = featuresOfWord(schemas);
    std::uint64_t operations = 0;
    for (unsigned i = 0; i < histories; ++i) {
        const unsigned seed = firstSeed + i;
        for (auto& [classifier, part] : record(schemas, seed, bug)) {
            operations += part.size();
            if (SerialOrder(part, features).exists()) {
                continue;
            }
            if (!bug.empty()) {
                std::printf("%s: given away by history %u.\n", bug.c_str(), i + 1);
                return 0;
            }
            print(classifier, part);
            std::printf("\nTo run it again: histories --seed %u --histories 1\n", seed);
            return 1;
        }
    }
    std::printf("%u histories with %llu requests: each has a serial order.\n", histories,
                static_cast<unsigned long long>(operations));
    return bug.empty() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    int seed = 1;
    int histories = 1000;
    std::string bug;
    return runMain(argc, argv,
                   {number("--seed", "N", seed, 0, 1'000'000'000),
                    number("--histories", "N", histories, 1, 1'000'000'000),
                    choice("--plant", bug, {std::begin(BuggyTable::BUGS), std::end(BuggyTable::BUGS)})},
                   [&] { return run(static_cast<unsigned>(seed), static_cast<unsigned>(histories), bug); });
}
