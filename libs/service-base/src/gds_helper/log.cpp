#include <gds_helper/line_budget.h>
#include <gds_helper/log.h>
#include <gds_helper/process.h>

#include "platform.h"

#include <fmt/format.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/dist_sink.h>
#include <spdlog/sinks/stdout_color_sinks.h>

#include <filesystem>
#include <stdexcept>
#include <utility>

namespace gds_helper::log {

namespace {

thread_local counted_lines* innermost = nullptr; // a plain pointer: it needs no destructor when a thread ends

} // namespace

counted_lines::counted_lines(std::shared_ptr<line_budget> against) noexcept
    : budget(std::move(against)), outer(std::exchange(innermost, this)) {}
counted_lines::~counted_lines() { innermost = outer; }
std::shared_ptr<line_budget> counted_lines::current() noexcept { return innermost ? innermost->budget : nullptr; }

class limited_outputs final : public spdlog::sinks::dist_sink_mt {
protected:
    void sink_it_(const spdlog::details::log_msg& message) override {
        line_budget* const budget = innermost ? innermost->budget.get() : nullptr;
        // What is below is a developer's own wish.
        if (budget != nullptr && message.level >= spdlog::level::info) {
            if (line_budget* const refused = budget->take(std::chrono::steady_clock::now())) {
                if (refused->left_out++ == 0) {
                    say(message, fmt::format("More than {} lines of {} in {} s: further ones are left out.",
                                             refused->most, refused->source, line_budget::window.count()));
                }
                return;
            }
            for (line_budget* each = budget; each != nullptr; each = each->whole.get()) {
                if (const auto count = each->left_out.exchange(0); count != 0)
                    say(message, fmt::format("{} lines of {} were left out.", count, each->source));
            }
        }
        dist_sink::sink_it_(message);
    }

private:
    void say(const spdlog::details::log_msg& instead_of, const std::string& text) {
        dist_sink::sink_it_(spdlog::details::log_msg{instead_of.logger_name, spdlog::level::warn, text});
    }
};

namespace {

using shared_outputs = limited_outputs;

// Every logger has this one sink. Outputs come and go under its lock, while loggers are in use.
const std::shared_ptr<shared_outputs>& outputs() {
    static const auto instance = std::make_shared<shared_outputs>();
    return instance;
}

std::shared_ptr<spdlog::logger> make_logger(const char* name, int level) {
    auto logger = std::make_shared<spdlog::logger>(name, outputs());
    logger->set_level(static_cast<spdlog::level::level_enum>(level));
    logger->flush_on(spdlog::level::critical);
    return logger;
}

struct logger_set {
    std::shared_ptr<spdlog::logger> main = make_logger("def", spdlog::level::critical);
    std::array<std::shared_ptr<spdlog::logger>, extra_loggers.size()> extra;

    logger_set() {
        for (std::size_t i = 0; i < extra.size(); ++i) {
            extra[i] = make_logger(extra_loggers[i].name, extra_loggers[i].default_level);
        }
    }
};

const logger_set& loggers() {
    static const logger_set instance;
    return instance;
}

void add_output(spdlog::sink_ptr& slot, spdlog::sink_ptr sink, const std::string& pattern) {
    sink->set_pattern(pattern);
    outputs()->add_sink(sink);
    slot = std::move(sink);
}

void remove_output(spdlog::sink_ptr& slot) {
    if (!slot) return;
    outputs()->remove_sink(slot);
    slot.reset();
}

} // namespace

std::shared_ptr<spdlog::logger> get(logger_id id) {
    for (std::size_t i = 0; i < extra_loggers.size(); ++i) {
        if (extra_loggers[i].id == id) return loggers().extra[i];
    }
    return loggers().main;
}

spdlog::logger& main_logger() {
    static const std::shared_ptr<spdlog::logger> instance = get(logger_id::main);
    return *instance;
}

spdlog::logger& gvsp_logger() {
    static const std::shared_ptr<spdlog::logger> instance = get(logger_id::gvsp);
    return *instance;
}

log_control::log_control(std::string producer, std::string service)
    : producer_label(std::move(producer)), service_label(std::move(service)), owner_process(process_id()) {
    static_cast<void>(loggers());
}

log_control::~log_control() {
    if (process_id() != owner_process) return;
    remove_output(console);
    remove_output(debug_output);
    remove_output(file);
}

void log_control::set_header(std::string text) { header = std::move(text); }
void log_control::set_role(bool service) noexcept { as_service = service; }

void log_control::enable_console(bool on) {
    if (!on) {
        remove_output(console);
    } else if (!console) {
        // The standard error: standard output is the consumer's own.
        add_output(console, std::make_shared<spdlog::sinks::stderr_color_sink_mt>(),
                   fmt::format("[{} %9n] [%^%7l%$] %v", label()));
    }
}

void log_control::enable_debug_output(bool on) {
    if (!on) {
        remove_output(debug_output);
    } else if (!debug_output) {
        add_output(debug_output, platform::make_debug_output_sink(),
                   fmt::format("[{} %9n] [%^%7l%$] [%28s:%-4#] %v", label()));
    }
}

void log_control::set_file(const std::string& path) {
    problem.clear();
    if (path.empty()) {
        remove_output(file);
        return;
    }
    if (file) return;
    try {
        const auto folder = std::filesystem::absolute(path).parent_path();
        if (as_service && !std::filesystem::is_directory(folder))
            throw std::runtime_error(fmt::format("there is no folder '{}'", folder.string()));
        // Its reader's end would be the consumer's end, and one that stands still would hold its threads.
        std::error_code ignored;
        if (!as_service && std::filesystem::is_fifo(path, ignored)) throw std::runtime_error("it is a pipe");
        const platform::pipe_end until_opened{path};
        if (until_opened.is_without_reader()) throw std::runtime_error("it is a pipe that nobody reads");
        add_output(file, std::make_shared<spdlog::sinks::basic_file_sink_mt>(path),
                   fmt::format("[%T.%f][{} %9n] [%^%7l%$] [%28s:%-4#] %v", label()));
        if (!header.empty()) {
            file->log(spdlog::details::log_msg{"def", spdlog::level::info, header});
            file->flush();
        }
    } catch (const std::exception& failure) {
        problem = fmt::format("Failed to open log file '{}': {}", path, failure.what());
        get(logger_id::main)->error("{}", problem);
    }
}

void log_control::set_level(int level) { set_level(logger_id::main, level); }
int log_control::level() const { return level(logger_id::main); }
void log_control::set_level(logger_id id, int level) {
    get(id)->set_level(static_cast<spdlog::level::level_enum>(level));
}
int log_control::level(logger_id id) const { return get(id)->level(); }

void log_control::set_flush_level(int level) {
    const auto flush_level = static_cast<spdlog::level::level_enum>(level);
    loggers().main->flush_on(flush_level);
    for (const auto& logger : loggers().extra) logger->flush_on(flush_level);
}

} // namespace gds_helper::log
