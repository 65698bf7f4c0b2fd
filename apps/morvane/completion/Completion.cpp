#include "completion/Completion.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <sstream>

namespace halvern::morvane::client {
namespace {

bool takesValue(const CLI::Option& option) { return option.get_items_expected_max() > 0; }

std::string upperCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
    return text;
}

// What the value of an option is called: "CLASSIFIER", "FILE", "TEXT:{taken,not-taken}".
std::string valueName(const CLI::Option& option) {
    return option.get_positional() ? upperCase(option.get_name(true)) : option.get_type_name();
}

// Reads a command line from its beginning to the word before the last.
class Reader {
public:
    explicit Reader(const CLI::App& app) : _verb(&app) {}

    void read(const std::string& word) {
        if (_pending != nullptr) {
            // bash hands over "--server=host" in three words.
            if (word != "=") {
                take(*_pending, word);
                _pending = nullptr;
            }
        } else if (!_onlyPositionals && word == "--") {
            _onlyPositionals = true;
        } else if (!_onlyPositionals && word.rfind("--", 0) == 0) {
            readLong(word);
        } else if (!_onlyPositionals && word.size() > 1 && word[0] == '-') {
            readShort(word);
        } else if (const CLI::App* verb = _onlyPositionals ? nullptr : findVerb(word)) {
            _verb = verb;
        } else if (const CLI::Option* positional = nextPositional()) {
            take(*positional, word);
        }
    }

    const CLI::App& verb() const { return *_verb; }
    // The option whose value comes next, or null.
    const CLI::Option* pending() const { return _pending; }
    bool onlyPositionals() const { return _onlyPositionals; }

    // The option of this name, here or further up, or null.
    const CLI::Option* find(const std::string& name) const {
        for (const CLI::App* app = _verb; app != nullptr; app = app->get_parent()) {
            if (const CLI::Option* option = app->get_option_no_throw(name)) {
                return option;
            }
        }
        return nullptr;
    }

    // The positional that the next word belongs to, or null.
    const CLI::Option* nextPositional() const {
        for (const CLI::Option* option : _verb->get_options()) {
            if (option->get_positional() && taken(*option) < option->get_items_expected_max()) {
                return option;
            }
        }
        return nullptr;
    }

    // What was given for the option or positional of this name; empty if nothing was.
    std::string valueOf(const std::string& name) const {
        for (const auto& [option, values] : _values) {
            if (valueName(*option) == name || option->check_name(name)) {
                return values.front();
            }
        }
        return "";
    }

private:
    const CLI::App* findVerb(const std::string& name) const {
        for (const CLI::App* verb : _verb->get_subcommands([](const CLI::App*) { return true; })) {
            if (verb->check_name(name)) {
                return verb;
            }
        }
        return nullptr;
    }

    void readLong(const std::string& word) {
        const std::size_t equals = word.find('=');
        const CLI::Option* option = find(word.substr(0, equals));
        if (option == nullptr || !takesValue(*option)) {
            return;
        }
        if (equals == std::string::npos) {
            _pending = option;
        } else {
            take(*option, word.substr(equals + 1));
        }
    }

    // "-lt TEXT" and "-tTEXT" are both fine.
    void readShort(const std::string& word) {
        for (std::size_t i = 1; i < word.size(); ++i) {
            const CLI::Option* option = find(std::string("-") + word[i]);
            if (option != nullptr && takesValue(*option)) {
                if (i + 1 == word.size()) {
                    _pending = option;
                } else {
                    take(*option, word.substr(i + 1));
                }
                return;
            }
        }
    }

    void take(const CLI::Option& option, const std::string& value) { _values[&option].push_back(value); }

    int taken(const CLI::Option& option) const {
        const auto found = _values.find(&option);
        return found == _values.end() ? 0 : static_cast<int>(found->second.size());
    }

    const CLI::App* _verb;
    const CLI::Option* _pending = nullptr;
    bool _onlyPositionals = false;
    std::map<const CLI::Option*, std::vector<std::string>> _values;
};

// The first line of it, without what a table of completions has no room for.
std::string firstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

void suggestOptions(const CLI::App& verb, Suggestions& suggestions) {
    for (const CLI::App* app = &verb; app != nullptr; app = app->get_parent()) {
        for (const CLI::Option* option : app->get_options()) {
            for (const std::string& name : option->get_lnames()) {
                // Help of a verb hides that of the program.
                const bool isKnown = std::any_of(suggestions.words.begin(), suggestions.words.end(),
                                                 [&](const auto& word) { return word.text == "--" + name; });
                if (!isKnown) {
                    suggestions.words.push_back({"--" + name, firstLine(option->get_description())});
                }
            }
            for (const std::string& name : option->get_snames()) {
                if (option->get_lnames().empty()) {
                    suggestions.words.push_back({"-" + name, firstLine(option->get_description())});
                }
            }
        }
    }
}

void suggestVerbs(const CLI::App& app, Suggestions& suggestions) {
    for (const CLI::App* verb : app.get_subcommands([](const CLI::App*) { return true; })) {
        suggestions.words.push_back({verb->get_name(), firstLine(verb->get_description())});
    }
}

// A name that is to be new can't be one that there is.
bool wantsNewName(const CLI::App& verb, const std::string& value) {
    return verb.get_name() == "create" || (verb.get_name() == "add-class" && value == "CLASS");
}

void suggestValues(const Reader& reader, const CLI::Option& option, LiveNames& names,
                   Suggestions& suggestions) {
    const std::string name = valueName(option);
    const auto suggest = [&](const std::vector<std::string>& values) {
        for (const std::string& value : values) {
            suggestions.words.push_back({value});
        }
    };
    const std::size_t choices = name.find('{');
    if (choices != std::string::npos) {
        std::istringstream in(name.substr(choices + 1, name.find('}', choices) - choices - 1));
        for (std::string choice; std::getline(in, choice, ',');) {
            suggestions.words.push_back({choice});
        }
    } else if (name == "CLASSIFIER" || name == "CLASS") {
        if (wantsNewName(reader.verb(), name)) {
            return;
        }
        const std::string server = reader.valueOf("--server");
        suggest(name == "CLASSIFIER" ? names.classifiers(server)
                                     : names.classes(server, reader.valueOf("CLASSIFIER")));
    } else {
        suggestions.files = name.find("FILE") != std::string::npos || name == "INPUT";
    }
}

}  // namespace

Suggestions complete(const CLI::App& app, const std::vector<std::string>& words, LiveNames& names) {
    Suggestions suggestions;
    if (words.empty()) {
        return suggestions;
    }
    Reader reader(app);
    for (std::size_t i = 0; i + 1 < words.size(); ++i) {
        reader.read(words[i]);
    }
    const std::string& last = words.back();
    const std::size_t equals = last.rfind("--", 0) == 0 ? last.find('=') : std::string::npos;
    if (reader.pending() != nullptr) {
        suggestValues(reader, *reader.pending(), names, suggestions);
    } else if (!reader.onlyPositionals() && equals != std::string::npos) {
        const CLI::Option* option = reader.find(last.substr(0, equals));
        if (option != nullptr && takesValue(*option)) {
            suggestValues(reader, *option, names, suggestions);
            for (Suggestions::Word& word : suggestions.words) {
                word.text.insert(0, last, 0, equals + 1);
            }
        }
    } else if (!reader.onlyPositionals() && !last.empty() && last[0] == '-') {
        suggestOptions(reader.verb(), suggestions);
    } else {
        suggestVerbs(reader.verb(), suggestions);
        if (const CLI::Option* positional = reader.nextPositional()) {
            suggestValues(reader, *positional, names, suggestions);
        }
    }
    return suggestions;
}

}  // namespace halvern::morvane::client
