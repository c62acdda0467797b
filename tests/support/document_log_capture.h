// What documents say, for tests here and of all who use the engine.
#pragma once

#include <GenICam/log.h>

#include <string>
#include <vector>

namespace GenICam::testing {

// Takes every message of both levels while it lives.
class log_capture final : public ILogSink {
public:
    log_capture() { set_log_sink(this); }
    ~log_capture() override { set_log_sink(nullptr); }
    log_capture(const log_capture&) = delete;
    log_capture& operator=(const log_capture&) = delete;

    [[nodiscard]] bool is_enabled(int) const noexcept override { return true; }
    void write(int level, std::string_view text, const std::source_location&) override {
        lines.push_back(std::to_string(level) + " " + std::string{text});
    }

    std::vector<std::string> lines; // "<level> <text>"
};

} // namespace GenICam::testing
