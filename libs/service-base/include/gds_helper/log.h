// The loggers of this process, one main logger and one per concern, and the sinks that they share.
//
// No logger is asynchronous and nothing is registered with spdlog: no thread is ever started here, and unloading the
// library closes everything.
#pragma once

#include <spdlog/logger.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>

namespace gds_helper::log {

// Numbers under which settings and start-up refer to a logger.
enum class logger_id : int {
    main = 0,     // "def"
    ipc = 10,     // "IPC"
    gtlprod = 11, // "GTLProd"
    gvsp = 12,    // "GVSP"
};

// Loggers beside the main one.
struct extra_logger {
    const char* name;
    const char* level_key; // the property that sets its level
    logger_id id;
    int default_level;
};
inline constexpr int level_off = 6;
// As a setting: back to the row's default level.
inline constexpr int level_default = 7;
inline constexpr std::array<extra_logger, 3> extra_loggers{{
    {"IPC", "log_level_IPC", logger_id::ipc, level_off},
    {"GVSP", "log_level_StreamPacketTracing", logger_id::gvsp, level_off},
    {"GTLProd", "log_level_GenTLProd", logger_id::gtlprod, level_off},
}};

// The logger of this id, created on first use without an output and with the level "critical" (extra loggers: "off").
// Never null. Thread-safe; callers on a hot path keep the pointer.
[[nodiscard]] std::shared_ptr<spdlog::logger> get(logger_id id);
// The same without a look-up, for code that logs often.
[[nodiscard]] spdlog::logger& main_logger();
[[nodiscard]] spdlog::logger& gvsp_logger();

// The outputs of all loggers of this process, and their levels. Made once by whoever starts the process's logging;
// its outputs are taken away again when it is destroyed. Thread-safe.
class log_control final {
public:
    // Labels are the short process names that the log lines carry: in the library, and in the service.
    log_control(std::string producer_label, std::string service_label);
    ~log_control();
    log_control(const log_control&) = delete;
    log_control& operator=(const log_control&) = delete;

    // First line of a log file made from now on; empty for none.
    void set_header(std::string text);
    // Which of the two labels sinks made from now on carry.
    void set_role(bool as_service) noexcept;

    void enable_console(bool on);
    void enable_debug_output(bool on);
    // An empty path closes the file. A path is taken only while there is no file: an existing one is not replaced.
    // A file that can't be opened is left out, with a message at error level. The service makes no folders for it: it
    // may be root, and the path a mistake. The library takes no pipe.
    void set_file(const std::string& path);
    [[nodiscard]] bool has_console() const noexcept { return console != nullptr; }
    [[nodiscard]] bool has_debug_output() const noexcept { return debug_output != nullptr; }
    [[nodiscard]] bool has_file() const noexcept { return file != nullptr; }
    // That message, of the path given last; empty when nothing is wrong with it.
    [[nodiscard]] const std::string& file_problem() const noexcept { return problem; }

    // Levels 0 "trace" to 6 "off", of the main logger unless one is named.
    void set_level(int level);
    [[nodiscard]] int level() const;
    void set_level(logger_id id, int level);
    [[nodiscard]] int level(logger_id id) const;
    // Messages at this level and above are flushed at once, on every logger.
    void set_flush_level(int level);

private:
    [[nodiscard]] const std::string& label() const noexcept { return as_service ? service_label : producer_label; }

    const std::string producer_label;
    const std::string service_label;
    std::string header;
    std::string problem;
    bool as_service = false;
    const std::int64_t owner_process; // a forked child leaves the outputs alone: their lock may be held for ever
    spdlog::sink_ptr console;
    spdlog::sink_ptr debug_output;
    spdlog::sink_ptr file;
};

} // namespace gds_helper::log
