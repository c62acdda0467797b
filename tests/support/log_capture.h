// What a logger writes during the life of an object.
#pragma once

#include <spdlog/logger.h>
#include <spdlog/sinks/base_sink.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace test_support {

// From a level on, a message a line; any thread may log and ask.
class log_capture {
public:
    explicit log_capture(spdlog::logger& of, spdlog::level::level_enum from = spdlog::level::info)
        : logger(of), before(of.level()) {
        logger.sinks().push_back(sink);
        logger.set_level(from);
    }
    ~log_capture() {
        logger.set_level(before);
        std::erase(logger.sinks(), sink);
    }
    log_capture(const log_capture&) = delete;
    log_capture& operator=(const log_capture&) = delete;

    [[nodiscard]] std::vector<std::string> holding(std::string_view part) const {
        const std::lock_guard guard{sink->lock};
        std::vector<std::string> found;
        std::ranges::copy_if(sink->lines, std::back_inserter(found),
                             [&](const std::string& line) { return line.find(part) != line.npos; });
        return found;
    }
    [[nodiscard]] size_t count(std::string_view part) const { return holding(part).size(); }

private:
    struct collector final : spdlog::sinks::base_sink<std::mutex> {
        void sink_it_(const spdlog::details::log_msg& message) override {
            const std::lock_guard guard{lock};
            lines.emplace_back(message.payload.data(), message.payload.size());
        }
        void flush_() override {}
        std::mutex lock;
        std::vector<std::string> lines;
    };
    spdlog::logger& logger;
    std::shared_ptr<collector> sink = std::make_shared<collector>();
    spdlog::level::level_enum before;
};

} // namespace test_support
