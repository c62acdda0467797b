// Where the messages of the engine go.
#pragma once

#include <source_location>
#include <string_view>

namespace GenICam {

// Level 1: the document is at fault (or an operation is futile). Level 2: milder, such as a refused value.
// Both functions may be called from any thread that uses a document.
class ILogSink {
public:
    virtual ~ILogSink() = default;
    [[nodiscard]] virtual bool is_enabled(int level) const noexcept = 0;
    virtual void write(int level, std::string_view text, const std::source_location& where) = 0;
};

// One sink for all documents of the process; null (the initial state) drops every message. The sink must outlive its
// use: set null before it dies. Thread-safe.
void set_log_sink(ILogSink* sink) noexcept;

} // namespace GenICam
