#include "verbs/FileVerbs.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <ostream>
#include <utility>

#include "Failure.h"
#include "files/Arithmetic.h"
#include "files/ClassifierFile.h"
#include "files/Lines.h"
#include "terminal/Json.h"
#include "terminal/Table.h"
#include "verbs/Verb.h"

namespace halvern::morvane::client {
namespace {

using files::ClassifierFile;
using files::Inspection;
using nlohmann::ordered_json;

// Most people want to know whether a file is damaged and how; few want a million lines of it.
constexpr std::size_t SHOWN_COMPLAINTS = 20;

struct FileOptions {
    std::string file;
    std::vector<std::string> files;
    std::string output;
    bool force = false;
    bool all = false;
};

// The files of this machine.
class Disk {
public:
    const files::ClassifierFiles& files() const { return _files; }

private:
    io::filesystem::LoadFileImpl _loadFile;
    io::filesystem::SaveFileImpl _saveFile;
    io::filesystem::SizeFileImpl _sizeFile;
    io::filesystem::ExistsFileImpl _existsFile;
    files::ClassifierFiles _files{_loadFile, _saveFile, _sizeFile, _existsFile};
};

std::string plural(std::uint64_t count, const char* word, const char* ending = "s") {
    return countText(count) + " " + word + (count == 1 ? "" : ending);
}

std::string numberText(double number) {
    char text[32];
    return std::string(text, std::to_chars(text, text + sizeof(text), number).ptr);
}

void showInfo(Context& context, const ClassifierFile& file) {
    std::ostream& out = context.out();
    const files::ClassifierView& view = file.view;
    out << "File         " << printable(file.name) << ", " << plural(file.storedSize, "byte") << "\n"
        << "Data version " << file.storedVersion << "\n"
        << "Extractor    " << view.extractorVersion << "\n"
        << "Smoothing    " << numberText(view.smoothing) << "\n"
        << "Records      " << countText(view.records()) << "\n";
    for (const std::string& note : file.notes) {
        out << "Note         " << printable(note) << "\n";
    }
    out << "\n";
    Table classes({{"CLASS"}, {"FEATURES", Table::RIGHT}, {"OCCURRENCES", Table::RIGHT}});
    for (const auto& entry : view.classes) {
        classes.addRow({entry.name, countText(entry._unique), countText(entry._count)});
    }
    classes.write(out, context.terminal());
    out << "\n";
    Table lanes({{"FEATURES OF", Table::RIGHT}, {"RECORDS", Table::RIGHT}, {"RECORD BYTES", Table::RIGHT}});
    for (std::size_t length = 0; length < view.lanes.size(); ++length) {
        const files::LaneView& lane = view.lanes[length];
        if (lane.size() > 0) {
            lanes.addRow({plural(length, "byte"), countText(lane.size()),
                          countText(lane.size() * std::uint64_t{lane.stride()})});
        }
    }
    lanes.write(out, context.terminal());
}

void info(Context& context, const FileOptions& options) {
    const ClassifierFile file = Disk().files().open(options.file);
    if (!context.json()) {
        showInfo(context, file);
        return;
    }
    ordered_json classes = ordered_json::array();
    for (const auto& entry : file.view.classes) {
        classes.push_back(
            {{"name", entry.name}, {"uniqueFeatures", entry._unique}, {"totalCount", entry._count}});
    }
    ordered_json lanes = ordered_json::array();
    for (const files::LaneView& lane : file.view.lanes) {
        lanes.push_back(lane.size());
    }
    writeJson(context.out(), {{"file", file.name},
                              {"size", file.storedSize},
                              {"dataVersion", file.storedVersion},
                              {"extractor", file.view.extractorVersion},
                              {"smoothing", file.view.smoothing},
                              {"records", file.view.records()},
                              {"classes", classes},
                              {"recordsByFeatureLength", lanes},
                              {"notes", file.notes}});
}

// Whether the file is sound. What there is to say is shown, or put into results.
bool verifyFile(Context& context, const FileOptions& options, const std::string& path,
                ordered_json& results) {
    const util::Bytes data = Disk().files().read(path);
    Inspection inspection = files::inspect(data, options.all ? SIZE_MAX : SHOWN_COMPLAINTS);
    files::noteName(path, inspection.notes);
    const files::Complaints& complaints = inspection.complaints;
    const std::string refusal = inspection.isSound() ? "" : files::refusalOfServer(data);
    if (context.json()) {
        ordered_json list = ordered_json::array();
        for (const files::Complaint& each : complaints.kept()) {
            list.push_back({{"offset", each.offset}, {"place", each.place}, {"problem", each.problem}});
        }
        ordered_json result{{"file", path},
                            {"sound", inspection.isSound()},
                            {"dataVersion", inspection.dataVersion},
                            {"complaintCount", complaints.count()},
                            {"complaints", list},
                            {"notes", inspection.notes}};
        if (!inspection.isSound()) {
            result["serverLoads"] = refusal.empty();
        }
        results.push_back(result);
        return inspection.isSound();
    }
    std::ostream& out = context.out();
    out << printable(path) << ": ";
    if (inspection.isSound()) {
        out << context.terminal().paint(Colour::GREEN, "sound") << ", " << plural(data.size(), "byte")
            << "\n";
    } else {
        out << context.terminal().paint(Colour::RED, "damaged") << ", "
            << plural(complaints.count(), "complaint") << "\n";
    }
    for (const files::Complaint& each : complaints.kept()) {
        out << "  byte " << each.offset << ", " << printable(each.place) << ": " << printable(each.problem)
            << "\n";
    }
    if (complaints.count() > complaints.kept().size()) {
        out << "  ... and " << countText(complaints.count() - complaints.kept().size())
            << " more; --all shows them\n";
    }
    for (const std::string& note : inspection.notes) {
        out << "  note: " << printable(note) << "\n";
    }
    if (!inspection.isSound()) {
        out << "  " << (refusal.empty() ? "The server loads it all the same." : "The server refuses it:\n  ")
            << printable(refusal) << "\n";
    }
    return inspection.isSound();
}

// Goes on behind a bad file, since the next one may be the backup to take its place.
void verify(Context& context, const FileOptions& options) {
    ordered_json results = ordered_json::array();
    for (const std::string& path : options.files) {
        try {
            if (!verifyFile(context, options, path, results)) {
                context.exitCode = ExitCode::DIFFERENT;
            }
        } catch (const Failure& failure) {
            if (context.exitCode != ExitCode::DIFFERENT) {
                context.exitCode = failure.code;
            }
            if (context.json()) {
                results.push_back({{"file", path}, {"sound", nullptr}, {"error", failure.message}});
            } else {
                context.out() << printable(path) << ": "
                              << context.terminal().paint(Colour::RED, "can't be verified") << "\n  "
                              << printable(failure.message, true) << "\n";
            }
        }
    }
    if (context.json()) {
        writeJson(context.out(), {{"files", results}});
    }
}

void dump(Context& context, const FileOptions& options) {
    files::dumpLines(Disk().files().open(options.file), context.out());
}

void save(Context& context, const FileOptions& options, util::Bytes data) {
    const Disk disk;
    disk.files().save(options.output, data, options.force);
    const ClassifierFile written = files::makeClassifier(options.output, std::move(data));
    if (context.json()) {
        writeJson(context.out(), {{"file", written.name},
                                  {"size", written.storedSize},
                                  {"classes", written.view.classes.size()},
                                  {"records", written.view.records()}});
    } else {
        context.out() << printable(written.name) << ": " << plural(written.view.classes.size(), "class", "es")
                      << ", " << plural(written.view.records(), "record") << ", "
                      << plural(written.storedSize, "byte") << "\n";
    }
}

void load(Context& context, const FileOptions& options) {
    Disk().files().requireWritable(options.output, options.force);
    if (options.file == "-") {
        save(context, options, files::loadLines(context.in(), "standard input"));
        return;
    }
    std::ifstream in(options.file, std::ios::binary);
    if (!in) {
        throw Failure{ExitCode::LOCAL_FILE, options.file + " can't be opened: " + std::strerror(errno) + "."};
    }
    save(context, options, files::loadLines(in, options.file));
}

void merge(Context& context, const FileOptions& options) {
    const Disk disk;
    disk.files().requireWritable(options.output, options.force);
    ClassifierFile sum = disk.files().open(options.files.front());
    for (std::size_t i = 1; i < options.files.size(); ++i) {
        const std::string name = i == 1 ? sum.name : "the sum so far";
        sum.name = name;
        sum = files::makeClassifier(name, files::merged(sum, disk.files().open(options.files[i])));
    }
    save(context, options, std::move(sum.data));
}

void subtract(Context& context, const FileOptions& options) {
    const Disk disk;
    disk.files().requireWritable(options.output, options.force);
    save(context, options,
         files::difference(disk.files().open(options.files[0]), disk.files().open(options.files[1])));
}

using Run = void (*)(Context&, const FileOptions&);

std::pair<CLI::App*, FileOptions*> add(CLI::App& family, Context& context, const char* name,
                                       const char* description, const char* example, Run run) {
    CLI::App& verb = addVerb(family, name, description, example);
    const auto options = std::make_shared<FileOptions>();
    verb.callback([&context, options, run] { run(context, *options); });
    return {&verb, options.get()};
}

// In the form of the library's checks: what is wrong with the name, or nothing.
std::string problemOfName(const std::string& name) {
    return name == "-" ? "'-' is no classifier file. Standard input and output don't serve here." : "";
}

// names is one name or several.
template <class Names>
CLI::Option& declareInput(CLI::App& verb, Names& names, const char* description) {
    return *verb.add_option("FILE", names, description)->required()->type_name("")->check(problemOfName);
}

void declareOutput(CLI::App& verb, FileOptions& options) {
    verb.add_option("-o,--output", options.output, "File to write, as a whole or not at all")
        ->required()
        ->type_name("FILE")
        ->check(problemOfName);
    verb.add_flag("--force", options.force, "Replace the file if it exists");
}

}  // namespace

void addFileVerbs(CLI::App& app, Context& context) {
    CLI::App& family = addVerb(app, "file", "Look at and work with classifier files, without a server",
                               "morvane file verify /var/lib/morvaneserver/classifiers/*.dat\n"
                               "morvane file merge monday.dat tuesday.dat -o both.dat");
    family.require_subcommand(1);

    const auto shown = add(family, context, "info", "Tell what a classifier file holds",
                           "morvane file info languages.dat", info);
    declareInput(*shown.first, shown.second->file, "Classifier file");

    const auto verified = add(family, context, "verify",
                              "Check every guarantee of the data format; exit code 5 if one is broken",
                              "morvane file verify *.dat", verify);
    declareInput(*verified.first, verified.second->files, "Classifier files");
    verified.first->add_flag("-a,--all", verified.second->all, "Show all complaints, not only the first 20");

    const auto dumped = add(family, context, "dump", "Write a classifier file as lines of JSON",
                            "morvane file dump languages.dat | jq -c 'select(.count > 9)'", dump);
    declareInput(*dumped.first, dumped.second->file, "Classifier file");

    const auto loaded = add(family, context, "load", "Make a classifier file from lines as dump writes them",
                            "morvane file dump languages.dat > languages.jsonl\n"
                            "morvane file load languages.jsonl -o copy.dat",
                            load);
    loaded.first->add_option("FILE", loaded.second->file, "Lines of JSON; - for standard input")->required();
    declareOutput(*loaded.first, *loaded.second);

    const auto summed =
        add(family, context, "merge", "Add what classifiers have learned, as if one had learned it all",
            "morvane file merge monday.dat tuesday.dat -o both.dat", merge);
    declareInput(*summed.first, summed.second->files, "Classifier files, two or more").expected(2, -1);
    declareOutput(*summed.first, *summed.second);

    const auto reduced =
        add(family, context, "subtract", "Take what the second classifier has learned off the first",
            "morvane file subtract both.dat monday.dat -o tuesday.dat", subtract);
    declareInput(*reduced.first, reduced.second->files, "Two classifier files").expected(2);
    declareOutput(*reduced.first, *reduced.second);
}

}  // namespace halvern::morvane::client
