#include "picture_saver.h"

#include "../failure/failure.h"
#include "../posix/atomic_file.h"

#include <fmt/chrono.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <optional>

namespace cli {

namespace {

// Together: enough for a disk that pauses, no danger to the machine's memory.
constexpr size_t most_waiting = 16;
constexpr size_t most_bytes = size_t{512} << 20;

// Of the device's id what any file system takes.
std::string file_text(const std::string& id) {
    std::string text = id;
    for (char& c : text) {
        const bool plain = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '-' ||
                           c == '_' || c == '.';
        if (!plain) c = '_';
    }
    return text;
}

// "20260131-142530.123"
std::string time_text() {
    const auto now = std::chrono::system_clock::now();
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    return fmt::format("{:%Y%m%d-%H%M%S}.{:03}", fmt::localtime(std::chrono::system_clock::to_time_t(now)), ms);
}

} // namespace

picture_saver::picture_saver(options given) : chosen(std::move(given)) {
    make_folder(chosen.folder);
    writer = std::jthread{[this] { run(); }};
}

picture_saver::~picture_saver() { finish(); }

bool picture_saver::offer(const picture& shown, uint64_t frame_id, nlohmann::json about, bool whole) {
    job next;
    {
        const std::lock_guard lock{queue_mutex};
        const bool fits = waiting == 0 || (waiting < most_waiting && waiting_bytes + shown.data.size() <= most_bytes);
        if (!fits || problem) return false;
        if (!spare.empty()) {
            next.data = std::move(spare.back());
            spare.pop_back();
        }
        ++waiting;
        waiting_bytes += shown.data.size();
    }
    next.data.assign(shown.data.begin(), shown.data.end());
    next.shown = shown;
    next.shown.data = next.data;
    const std::string time = time_text();
    next.name = fmt::format("{}-{}-{:06}", file_text(chosen.device), time, frame_id);
    about["device"] = chosen.device;
    about["frame_id"] = frame_id;
    about["time"] = time;
    next.about = std::move(about);
    next.whole = whole;
    const std::lock_guard lock{queue_mutex};
    queue.push_back(std::move(next));
    queue_changed.notify_one();
    return true;
}

bool picture_saver::has_failed() const {
    const std::lock_guard lock{queue_mutex};
    return problem != nullptr;
}

void picture_saver::finish() {
    {
        const std::lock_guard lock{queue_mutex};
        ended = true;
        queue_changed.notify_one();
    }
    if (writer.joinable()) writer.join();
}

void picture_saver::run() {
    std::unique_lock lock{queue_mutex};
    for (;;) {
        queue_changed.wait(lock, [&] { return ended || !queue.empty(); });
        if (queue.empty() || problem) return;
        job next = std::move(queue.front());
        queue.pop_front();
        lock.unlock();
        std::exception_ptr failed;
        try {
            write(next);
        } catch (...) {
            failed = std::current_exception();
        }
        lock.lock();
        problem = failed;
        --waiting;
        waiting_bytes -= next.data.size();
        spare.push_back(std::move(next.data));
    }
}

std::optional<picture_format> picture_saver::nearest_storable(const picture_format& from) const {
    // All bits of grey and of a colour filter, and the colours of what has colours.
    const bool is_mosaic = from.name.starts_with("Bayer");
    const std::string same_filter = is_mosaic ? from.name.substr(0, 7) : "Mono";
    const std::array<std::string, 3> targets{same_filter + "16", same_filter + "8", "BGR8"};
    const bool is_grey = from.name.starts_with("Mono") || is_mosaic;
    for (const std::string& target : targets) {
        if (!is_grey && target != "BGR8") continue;
        picture_format to = format_from_text(target);
        if (find_way(from, to, true)) return to;
    }
    return std::nullopt;
}

void picture_saver::write(job& next) {
    picture shown = next.shown;
    const picture_format from = format_from_pfnc(shown.pfnc);
    std::string note;
    // A part of a frame is kept as it came, and so is what its owner wants raw.
    const bool as_it_came =
        !next.whole || (!chosen.wanted.known() && (chosen.kind == file_kind::raw || is_storable(shown.pfnc)));
    if (!as_it_came) {
        if (!converter || converter_source != shown.pfnc) {
            const auto target = chosen.wanted.known() ? std::optional{chosen.wanted} : nearest_storable(from);
            converter.reset();
            if (target) converter = std::make_unique<picture_converter>(from, *target);
            converter_target = target.value_or(from);
            converter_source = shown.pfnc;
        }
        if (converter) {
            shown.data = converter->convert(shown.data, shown.width, shown.height);
            shown.pfnc = converter_target.pfnc;
            if (from.name != converter_target.name)
                note = fmt::format("converted from {} to {}", from.name, converter_target.name);
        }
    }
    written_picture done =
        write_picture(chosen.folder / next.name, shown, next.whole ? chosen.kind : file_kind::raw, next.about);
    if (!next.whole) note = "incomplete: raw";
    if (!note.empty()) done.note = done.note.empty() ? note : note + "; " + done.note;
    files.push_back(std::move(done));
}

} // namespace cli
