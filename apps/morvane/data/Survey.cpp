#include "data/Survey.h"

#include <unordered_map>

#include "Failure.h"
#include "util/Utf8.h"

namespace halvern::morvane::client {

Survey survey(RecordReader& reader) {
    Survey survey;
    std::unordered_map<std::string, std::size_t> places;
    for (Record record; reader.next(record); ++survey.records) {
        if (!record.problem.empty()) {
            if (++survey.bad <= Survey::SHOWN_PROBLEMS) {
                survey.problems.push_back(record.place + " " + record.problem);
            }
            continue;
        }
        const auto [place, isNew] = places.try_emplace(record.label, survey.classes.size());
        if (isNew) {
            survey.classes.push_back({record.label});
        }
        Survey::Class& entry = survey.classes[place->second];
        ++entry.texts;
        entry.bytes += record.text.size();
        survey.notUtf8 += util::isUtf8(record.text) ? 0 : 1;
    }
    return survey;
}

void requireSound(const Survey& survey) {
    if (survey.bad == 0) {
        return;
    }
    std::string message = std::to_string(survey.bad) + " of " + std::to_string(survey.records) +
                          (survey.records == 1 ? " record" : " records") + " can't be used:";
    for (const std::string& problem : survey.problems) {
        message += "\n  " + problem;
    }
    if (survey.bad > survey.problems.size()) {
        message += "\n  and so on";
    }
    throw Failure{ExitCode::LOCAL_FILE, message,
                  "Nothing was sent. Mend them, or pass them over: --skip-bad"};
}

}  // namespace halvern::morvane::client
