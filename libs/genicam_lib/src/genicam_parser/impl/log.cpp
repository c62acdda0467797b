#include "log.h"

#include <atomic>

namespace GenICam {

namespace {
// Written by set_log_sink, read by whoever has a message.
constinit std::atomic<ILogSink*> current_sink{nullptr};
} // namespace

void set_log_sink(ILogSink* sink) noexcept { current_sink.store(sink, std::memory_order_release); }

ILogSink* impl::sink_for(int level) noexcept {
    ILogSink* sink = current_sink.load(std::memory_order_acquire);
    return sink != nullptr && sink->is_enabled(level) ? sink : nullptr;
}

} // namespace GenICam
