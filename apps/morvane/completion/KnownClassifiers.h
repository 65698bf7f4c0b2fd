#pragma once

#include <string>
#include <vector>

#include "server/Settings.h"

namespace halvern::morvane::client {

// The names of classifiers that verbs have worked with, by server. No call of the protocol lists classifiers,
// so completion offers what this machine's user has used before.
//
// They stand in $XDG_STATE_HOME/morvane/classifiers, or ~/.local/state/morvane/classifiers, a line
// "HOST:PORT<TAB>NAME" each, the one last learned at the end. It is a convenience: without a home, or when
// the file can't be read or written, nothing is known, and nobody is told.
class KnownClassifiers {
public:
    explicit KnownClassifiers(const Environment& environment);

    std::vector<std::string> of(const std::string& server) const;
    void remember(const std::string& server, const std::string& classifier) const;
    void forget(const std::string& server, const std::string& classifier) const;

private:
    std::string _folder;  // empty: there is none
};

}  // namespace halvern::morvane::client
