#include "watch_command.h"

#include "../cameras/camera_watch.h"
#include "../consumer/device_choice.h"
#include "../output/output.h"
#include "../posix/interruption.h"
#include "../posix/standard_streams.h"

#include <options/numbers.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <vector>

namespace cli {

namespace {

using clock = std::chrono::steady_clock;
using seconds = std::chrono::duration<double>;
using figures = camera_watch::figures;

struct watch_limit {
    uint64_t seconds = 0; // 0: until somebody ends it
};

const char* text_of(camera_watch::state state) {
    switch (state) {
    case camera_watch::state::streaming:
        return "streaming";
    case camera_watch::state::held:
        return "held";
    case camera_watch::state::lost:
        return "lost";
    }
    return "?";
}

// Between two looks, or since the start.
struct span_of_time {
    double length = 0; // seconds
    std::vector<figures> before, after;
};

class watcher {
public:
    watcher(const common_options& given, const watch_limit& wanted)
        : common(given), options(wanted), found(find_devices(given)) {
        if (!common.device.empty() || found.devices.size() < 2) {
            add(choose_device(found, common)); // throws when there is none
        } else {
            add_all();
        }
        begin = last = clock::now();
        at_begin = at_last = counted();
    }

    void run() {
        for (uint64_t i = 1; options.seconds == 0 || i <= options.seconds; ++i) {
            if (!sleep_until(begin + std::chrono::seconds{i})) stop_if_interrupted();
            for (const auto& each : cameras) each->look();
            const auto now = clock::now();
            std::vector<figures> latest = counted();
            show({seconds{now - last}.count(), at_last, latest}, "second");
            last = now;
            at_last = std::move(latest);
            if (std::ranges::all_of(cameras, [](const auto& each) { return each->is() == camera_watch::state::lost; }))
                throw failure(cause::lost,
                              fmt::format("Camera '{}' is {}", cameras.front()->id(), cameras.front()->reason()));
        }
    }

    // Every camera is stopped, whatever fails.
    void stop() {
        for (const auto& each : cameras) each->look();
        whole = {seconds{clock::now() - begin}.count(), at_begin, counted()};
        std::exception_ptr first;
        for (const auto& each : cameras) {
            try {
                each->stop();
            } catch (...) {
                if (!first) first = std::current_exception();
            }
        }
        if (first) std::rethrow_exception(first);
    }

    [[nodiscard]] nlohmann::json sum() const { return object_of(whole, "sum"); }
    void show_sum() const {
        print("in {:.1f} s:\n", whole.length);
        for (size_t i = 0; i < cameras.size(); ++i) print("{}\n", line_of(i, whole));
        flush_output();
    }

private:
    void add(const std::pair<device_entry, std::shared_ptr<const tl_interface>>& chosen) {
        cameras.push_back(
            std::make_unique<camera_watch>(found, chosen.first, chosen.second, access_flags_of(common.access)));
    }
    // One that cannot be opened is told, and keeps nobody from the others.
    void add_all() {
        std::exception_ptr last_reason;
        for (const auto& each : found.devices) {
            try {
                add(each);
            } catch (const failure& reason) {
                say("{}\n", reason.what());
                last_reason = std::current_exception();
            }
        }
        if (cameras.empty()) std::rethrow_exception(last_reason);
    }

    [[nodiscard]] std::vector<figures> counted() const {
        std::vector<figures> all;
        all.reserve(cameras.size());
        for (const auto& each : cameras) all.push_back(each->counted());
        return all;
    }

    static double per_second(uint64_t before, uint64_t after, double length) {
        return length > 0 ? static_cast<double>(after - before) / length : 0;
    }

    [[nodiscard]] std::string line_of(size_t i, const span_of_time& span) const {
        const camera_watch& camera = *cameras[i];
        const figures &from = span.before[i], &to = span.after[i];
        std::string line = camera.id() + ": ";
        if (camera.is() == camera_watch::state::held) {
            line += camera.reason().empty() ? "only read" : "somebody else has it";
            if (camera.frame_rate_set()) line += fmt::format(", AcquisitionFrameRate {:g}", *camera.frame_rate_set());
        } else if (camera.is() == camera_watch::state::lost) {
            line += camera.reason();
        } else {
            line += fmt::format("{} frames, {:.1f}/s, {:.1f} MB/s, {} incomplete, {} lost, {} packets asked again",
                                to.frames - from.frames, per_second(from.frames, to.frames, span.length),
                                per_second(from.bytes, to.bytes, span.length) / 1e6, to.incomplete - from.incomplete,
                                to.lost - from.lost, to.resend_packets - from.resend_packets);
        }
        if (camera.temperature()) line += fmt::format(", {:.1f} C", *camera.temperature());
        return line;
    }

    [[nodiscard]] nlohmann::json object_of(const span_of_time& span, const char* kind) const {
        nlohmann::json list = nlohmann::json::array();
        for (size_t i = 0; i < cameras.size(); ++i) {
            const camera_watch& camera = *cameras[i];
            const figures &from = span.before[i], &to = span.after[i];
            const auto temperature = camera.temperature();
            list.push_back({{"id", camera.id()},
                            {"state", text_of(camera.is())},
                            {"reason", camera.reason().empty() ? nlohmann::json{} : nlohmann::json(camera.reason())},
                            {"frames", to.frames - from.frames},
                            {"fps", per_second(from.frames, to.frames, span.length)},
                            {"mbytes_per_s", per_second(from.bytes, to.bytes, span.length) / 1e6},
                            {"incomplete", to.incomplete - from.incomplete},
                            {"lost", to.lost - from.lost},
                            {"resend_packets_requested", to.resend_packets - from.resend_packets},
                            {"temperature_c", temperature ? nlohmann::json(*temperature) : nlohmann::json{}}});
        }
        return {{"kind", kind}, {"seconds", span.length}, {"cameras", list}};
    }

    void show(const span_of_time& span, const char* kind) {
        if (common.json) return print_json(object_of(span, kind));
        // A terminal's lines are written again and again.
        const bool terminal = output_is_a_terminal();
        if (terminal && shown) print_text(fmt::format("\x1b[{}A", cameras.size()));
        for (size_t i = 0; i < cameras.size(); ++i)
            print_text(fmt::format("{}{}\n", terminal ? "\x1b[K" : "", printable(line_of(i, span))));
        flush_output();
        shown = true;
    }

    const common_options& common;
    const watch_limit& options;
    const found_devices found;
    std::vector<std::unique_ptr<camera_watch>> cameras;
    clock::time_point begin, last;
    std::vector<figures> at_begin, at_last;
    span_of_time whole;
    bool shown = false;
};

int watch(const common_options& common, const watch_limit& options) {
    watch_for_interruption();
    watcher run{common, options};
    std::exception_ptr reason;
    const auto attempt = [&reason](auto&& step) {
        try {
            step();
        } catch (...) {
            if (!reason) reason = std::current_exception();
        }
    };
    attempt([&] { run.run(); });
    attempt([&] { run.stop(); });
    if (!common.json) attempt([&] { run.show_sum(); });
    if (!reason) {
        if (common.json) print_json(run.sum());
        return 0;
    }
    try {
        std::rethrow_exception(reason);
    } catch (const std::exception& known) {
        return report_failure(known, common.json, run.sum());
    }
}

} // namespace

void add_watch_command(command_line& line) {
    auto given = std::make_shared<watch_limit>();
    auto& command = line.add("watch", "Streams from all cameras, or one, and shows their figures each second",
                             reach::opened_device, [&line, given] { return watch(line.options, *given); });
    command.add_option("--seconds", given->seconds, "End after so many; 0: at Ctrl-C")
        ->check(option_checks::whole_number(0, 1'000'000'000))
        ->capture_default_str();
    command.footer(
        "It takes control of each camera and starts it; the pictures are thrown away. Of a camera that somebody "
        "else has it\nshows what can be read beside them; --access readonly does that for all. Ctrl-C stops the "
        "cameras and sums up.\nWith --json one object each second, and one of the kind \"sum\" at the end.\n"
        "Examples: orv-gentl watch\n"
        "          orv-gentl watch --device left --seconds 60 --json");
}

} // namespace cli
