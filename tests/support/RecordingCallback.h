#pragma once

#include <memory>
#include <string>
#include <vector>

#include "classifier/Callback.h"

namespace support {

// Makes callbacks that all keep their reports here, one line "expression|description|file" for each.
class RecordingCallbackFactory final : public halvern::classifier::CallbackFactory {
public:
    std::unique_ptr<halvern::classifier::Callback> create() override {
        return std::make_unique<Recorder>(reports);
    }

    std::vector<std::string> reports;

private:
    class Recorder final : public halvern::classifier::Callback {
    public:
        explicit Recorder(std::vector<std::string>& reports) : _reports(reports) {}
        void report(const char* expression, const char* description, const char* file,
                    std::uint32_t) override {
            _reports.push_back(std::string(expression) + "|" + description + "|" + file);
        }
        std::unique_ptr<halvern::classifier::Callback> clone() const override {
            return std::make_unique<Recorder>(_reports);
        }

    private:
        std::vector<std::string>& _reports;
    };
};

}  // namespace support
