#include "files/ClassifierFile.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "Failure.h"
#include "classifier/Callback.h"
#include "classifier/ClassifierImpl.h"
#include "classifier/storage/Migration.h"
#include "exceptions/Exception.h"
#include "files/OldInspection.h"

namespace halvern::morvane::client::files {
namespace {

// The engine reports bytes behind the last lane and goes on, as the server does with them.
class SilentCallback final : public classifier::Callback {
public:
    void report(const char*, const char*, const char*, std::uint32_t) override {}
    std::unique_ptr<classifier::Callback> clone() const override {
        return std::make_unique<SilentCallback>();
    }
};

class SilentCallbackFactory final : public classifier::CallbackFactory {
public:
    std::unique_ptr<classifier::Callback> create() override { return std::make_unique<SilentCallback>(); }
};

void requireSound(const std::string& name, const Inspection& inspection) {
    if (!inspection.isSound()) {
        const Complaint& first = inspection.complaints.kept().front();
        throw Failure{ExitCode::DIFFERENT,
                      name + " is damaged: at byte " + std::to_string(first.offset) + ", " + first.place +
                          ": " + first.problem + ".",
                      "Look at all that is wrong with it: morvane file verify " + name};
    }
}

}  // namespace

ClassifierFile makeClassifier(const std::string& name, util::Bytes data) {
    ClassifierFile file;
    file.name = name;
    file.storedSize = data.size();
    Inspection inspection = inspect(data, 1);
    requireSound(name, inspection);
    file.storedVersion = inspection.dataVersion;
    file.notes = std::move(inspection.notes);
    if (isOldVersion(file.storedVersion)) {
        try {
            classifier::storage::migrate(data, file.data);
        } catch (const exceptions::Exception& exception) {
            throw Failure{ExitCode::DIFFERENT, name + " can't be brought to version 5. " + exception.what()};
        }
        util::Bytes().swap(data);
        inspection = inspect(file.data, 1);
        requireSound(name, inspection);
    } else {
        // Moving keeps the bytes where they are, so the view stays good.
        file.data = std::move(data);
    }
    file.view = std::move(inspection.view);
    return file;
}

util::Bytes ClassifierFiles::read(const std::string& path) const {
    try {
        if (_sizeFile.size(path, true) > maxSize) {
            throw Failure{ExitCode::DIFFERENT,
                          path + " is longer than " + std::to_string(maxSize) +
                              " bytes, the most that a classifier's file may have.",
                          "It can't be a classifier that the server wrote."};
        }
        return _loadFile.load(path);
    } catch (const exceptions::Exception& exception) {
        throw Failure{ExitCode::LOCAL_FILE, exception.what()};
    }
}

ClassifierFile ClassifierFiles::open(const std::string& path) const {
    ClassifierFile file = makeClassifier(path, read(path));
    noteName(path, file.notes);
    return file;
}

void ClassifierFiles::requireWritable(const std::string& path, bool force) const {
    if (!force && _existsFile.exists(path)) {
        throw Failure{ExitCode::LOCAL_FILE, path + " exists already, and nothing was written.",
                      "Choose another name, or give --force to replace it."};
    }
}

void ClassifierFiles::save(const std::string& path, const util::Bytes& data, bool force) const {
    requireWritable(path, force);
    try {
        _saveFile.save(path, data);
    } catch (const exceptions::Exception& exception) {
        throw Failure{ExitCode::LOCAL_FILE, exception.what()};
    }
}

void noteName(const std::string& path, std::vector<std::string>& notes) {
    const std::string name = path.substr(path.rfind('/') + 1);
    const bool hasUpperCase =
        std::any_of(name.begin(), name.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
    if (hasUpperCase && name.ends_with(".dat")) {
        notes.push_back(
            "the file's name has capital letters, and the server looks for names in lower case only");
    }
}

std::string refusalOfServer(const util::Bytes& data) {
    try {
        SilentCallbackFactory callbacks;
        classifier::ClassifierImpl(&callbacks, 0.05).setTrainingData(data);
    } catch (const exceptions::Exception& exception) {
        return exception.what();
    }
    return "";
}

}  // namespace halvern::morvane::client::files
