#pragma once

#include <cstdint>
#include <string>

#include "Context.h"
#include "data/RecordReader.h"

namespace CLI {
class App;
}

namespace halvern::morvane::client {

// The labelled texts that a verb works on, as the command line names them.
class SourceOptions {
public:
    SourceOptions() = default;
    SourceOptions(const SourceOptions&) = delete;
    SourceOptions& operator=(const SourceOptions&) = delete;
    ~SourceOptions();

    // Declares the input and how to read it. This object must outlive the parsing.
    void declare(CLI::App& verb, const std::string& inputs);

    // Must stand before everything below. The standard input is kept in a file without a name, since it is
    // read more than once. Throws Failure (LOCAL_FILE) if it can't be.
    void prepare(Context& context);

    const RecordSource& source() const { return _source; }
    // For people.
    const std::string& name() const { return _input; }
    // The same for the same input from every folder.
    std::string fullName() const;
    // All that makes readers of the same bytes differ.
    std::string reading() const;

    bool skipBad = false;
    std::size_t batchTexts = 0;  // set the default before declare()
    std::size_t batchBytes = 4'000'000;

private:
    void keepInput(Context& context);

    std::string _input;
    RecordSource _source;
    std::string _delimiter = ",";
    bool _hasNoHeader = false;
    int _descriptor = -1;
};

}  // namespace halvern::morvane::client
