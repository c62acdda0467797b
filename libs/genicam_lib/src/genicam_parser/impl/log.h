// Messages of the engine, formatted only when the sink wants them.
#pragma once

#include <GenICam/log.h>

#include <fmt/format.h>

#include <type_traits>

namespace GenICam::impl {

inline constexpr int level_fault = 1;
inline constexpr int level_notice = 2;

// Null when nobody listens at this level.
[[nodiscard]] ILogSink* sink_for(int level) noexcept;

template <class... Args>
struct log_format {
    template <class Text>
    consteval log_format(const Text& text_, std::source_location where_ = std::source_location::current())
        : text(text_), where(where_) {}

    fmt::format_string<Args...> text;
    std::source_location where;
};

template <class... Args>
void log(int level, log_format<std::type_identity_t<Args>...> format, Args&&... args) {
    if (ILogSink* sink = sink_for(level))
        sink->write(level, fmt::format(format.text, std::forward<Args>(args)...), format.where);
}

} // namespace GenICam::impl
