#include "data/RecordReader.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>

#include "Failure.h"
#include "data/Fnv.h"
#include "data/FolderReader.h"
#include "data/Input.h"
#include "data/JsonLinesReader.h"
#include "data/TableReaders.h"
#include "util/Utf8.h"

namespace halvern::morvane::client {

RecordFormat formatOf(const RecordSource& source) {
    static const std::map<std::string, RecordFormat> formats = {{"tsv", RecordFormat::TSV},
                                                                {"csv", RecordFormat::CSV},
                                                                {"jsonl", RecordFormat::JSONL},
                                                                {"folder", RecordFormat::FOLDER}};
    static const std::map<std::string, RecordFormat> extensions = {
        {".tsv", RecordFormat::TSV},     {".txt", RecordFormat::TSV},      {".csv", RecordFormat::CSV},
        {".jsonl", RecordFormat::JSONL}, {".ndjson", RecordFormat::JSONL}, {".json", RecordFormat::JSONL}};
    if (!source.format.empty()) {
        const auto found = formats.find(source.format);
        if (found == formats.end()) {
            throw Failure{ExitCode::USAGE, "There is no format '" + source.format + "'.",
                          "The formats are tsv, csv, jsonl and folder."};
        }
        return found->second;
    }
    std::error_code ignored;
    if (std::filesystem::is_directory(source.path, ignored)) {
        return RecordFormat::FOLDER;
    }
    std::string extension = std::filesystem::path(source.path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    const auto found = extensions.find(extension);
    if (found == extensions.end()) {
        throw Failure{ExitCode::USAGE, "Nothing tells which format '" + source.path + "' has.",
                      "Name it: --format tsv, csv, jsonl or folder"};
    }
    return found->second;
}

std::unique_ptr<RecordReader> openRecords(const RecordSource& source) {
    switch (formatOf(source)) {
        case RecordFormat::TSV:
            return std::make_unique<TsvReader>(source);
        case RecordFormat::CSV:
            return std::make_unique<CsvReader>(source);
        case RecordFormat::JSONL:
            return std::make_unique<JsonLinesReader>(source);
        case RecordFormat::FOLDER:
            break;
    }
    return std::make_unique<FolderReader>(source.path);
}

std::string problemOfLabel(const std::string& label) {
    if (label.empty()) {
        return "has an empty label";
    }
    if (label.size() > 256) {
        return "has a label of " + std::to_string(label.size()) + " bytes, and 256 is the most";
    }
    const auto control = std::find_if(
        label.begin(), label.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
    if (control != label.end()) {
        char text[80];
        std::snprintf(text, sizeof(text), "has the control character 0x%02X in its label",
                      static_cast<unsigned>(static_cast<unsigned char>(*control)));
        return text;
    }
    if (!util::isUtf8(label)) {
        return "has a label that is no UTF-8";
    }
    const bool hasNoncharacter =
        label.find("\xef\xbf\xbe") != std::string::npos || label.find("\xef\xbf\xbf") != std::string::npos;
    return hasNoncharacter ? "has a label with U+FFFE or U+FFFF, which XML forbids" : "";
}

std::string fingerprintOf(const RecordSource& source) {
    Fnv hash;
    if (formatOf(source) == RecordFormat::FOLDER) {
        FolderReader reader(source.path);
        for (Record record; reader.next(record);) {
            hash.add(std::string_view(record.place).substr(source.path.size()));
            hash.add(std::to_string(record.text.size()));
            hash.add(record.text);
        }
    } else {
        Input input(source.path);
        for (int byte = input.get(); byte != Input::END; byte = input.get()) {
            hash.add(static_cast<char>(byte));
        }
    }
    return hash.text();
}

}  // namespace halvern::morvane::client
