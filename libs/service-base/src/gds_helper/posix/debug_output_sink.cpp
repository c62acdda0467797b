// The log to the system log.
#include "platform.h"

#include <spdlog/sinks/base_sink.h>

#include <syslog.h>

#include <memory>
#include <mutex>

namespace gds_helper::platform {

namespace {

int priority_of(spdlog::level::level_enum level) {
    switch (level) {
    case spdlog::level::trace:
    case spdlog::level::debug:
        return LOG_DEBUG;
    case spdlog::level::info:
        return LOG_INFO;
    case spdlog::level::warn:
        return LOG_WARNING;
    case spdlog::level::err:
        return LOG_ERR;
    default:
        return LOG_CRIT;
    }
}

// Never calls openlog or closelog: the identity that goes with them belongs to the consumer's program.
class syslog_sink final : public spdlog::sinks::base_sink<std::mutex> {
    void sink_it_(const spdlog::details::log_msg& message) override {
        spdlog::memory_buf_t text;
        formatter_->format(message, text);
        syslog(LOG_USER | priority_of(message.level), "%.*s", static_cast<int>(text.size()), text.data());
    }
    void flush_() override {}
};

} // namespace

spdlog::sink_ptr make_debug_output_sink() { return std::make_shared<syslog_sink>(); }

} // namespace gds_helper::platform
