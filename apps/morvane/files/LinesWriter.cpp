#include <charconv>
#include <ostream>
#include <string>
#include <string_view>

#include "Failure.h"
#include "files/Lines.h"
#include "util/Base64.h"
#include "util/Utf8.h"

namespace halvern::morvane::client::files {
namespace {

// RFC 8259, section 7. Requires UTF-8.
void appendString(std::string& line, std::string_view text) {
    line += '"';
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            line += '\\';
            line += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            constexpr const char* DIGITS = "0123456789abcdef";
            line += {'\\', 'u', '0', '0', DIGITS[c >> 4], DIGITS[c & 15]};
        } else {
            line += c;
        }
    }
    line += '"';
}

// The member under its name, or with "Base64" behind it.
std::string member(const std::string& name, std::string_view bytes) {
    std::string text = "\"" + name;
    if (util::isUtf8(bytes)) {
        text += "\":";
        appendString(text, bytes);
    } else {
        std::string encoded;
        util::Base64EncoderImpl().encode(util::Bytes(bytes.begin(), bytes.end()), encoded);
        text += "Base64\":\"" + encoded + "\"";
    }
    return text;
}

}  // namespace

void dumpLines(const ClassifierFile& file, std::ostream& out) {
    const ClassifierView& view = file.view;
    char smoothing[32];
    // The shortest decimal number that is read back as the same double.
    const auto end = std::to_chars(smoothing, smoothing + sizeof(smoothing), view.smoothing).ptr;
    out << R"({"format":"morvane-classifier","extractor":)" << view.extractorVersion << R"(,"smoothing":)"
        << std::string_view(smoothing, static_cast<std::size_t>(end - smoothing)) << "}\n";
    std::vector<std::string> classMembers;
    for (const auto& entry : view.classes) {
        classMembers.push_back(member("class", entry.name));
        out << '{' << classMembers.back() << R"(,"totalCount":)" << entry._count << R"(,"uniqueFeatures":)"
            << entry._unique << "}\n";
    }
    for (const LaneView& lane : view.lanes) {
        for (std::uint32_t i = 0; i < lane.size() && out; ++i) {
            const StoredRecord record = lane[i];
            out << '{' << member("feature", record.feature) << ',' << classMembers[record.classIndex]
                << R"(,"count":)" << record.count << "}\n";
        }
    }
    if (!out.flush()) {
        throw Failure{ExitCode::LOCAL_FILE, "The lines of " + file.name + " can't be written whole.",
                      "Is the disk full, or did the program that reads them end?"};
    }
}

}  // namespace halvern::morvane::client::files
