// Pictures to files on a thread of their own, so that a slow disk costs pictures and never frames.
#pragma once

#include "picture_converter.h"
#include "picture_file.h"

#include <condition_variable>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace cli {

// Thread-bound: one thread offers, asks and finishes; the saver's own writes.
class picture_saver final {
public:
    struct options {
        std::filesystem::path folder;
        std::string device; // in the files' names
        file_kind kind = file_kind::png;
        picture_format wanted; // unknown: what the camera sends, or the nearest that the kind of file holds
    };
    // Makes the folder; throws failure(cause::output).
    explicit picture_saver(options given);
    ~picture_saver();
    picture_saver(const picture_saver&) = delete;
    picture_saver& operator=(const picture_saver&) = delete;

    // Copies the picture and returns at once. False when as much waits as may: it is then not written.
    [[nodiscard]] bool offer(const picture& shown, uint64_t frame_id, nlohmann::json about, bool whole);
    // Whether a write failed; nothing more is written then.
    [[nodiscard]] bool has_failed() const;
    // Writes what waits and ends the thread.
    void finish();
    // After finish: what was written, and what stopped it, if anything did.
    [[nodiscard]] const std::vector<written_picture>& written() const noexcept { return files; }
    [[nodiscard]] std::exception_ptr why_failed() const noexcept { return problem; }

private:
    struct job {
        std::vector<std::byte> data;
        picture shown;
        std::string name;
        nlohmann::json about;
        bool whole = true;
    };
    void run();
    void write(job& next);
    [[nodiscard]] std::optional<picture_format> nearest_storable(const picture_format& from) const;

    // Constant after construction.
    const options chosen;
    // The thread's own until it ended.
    std::vector<written_picture> files;
    std::unique_ptr<picture_converter> converter;
    uint32_t converter_source = 0;
    picture_format converter_target;
    // Guarded by queue_mutex.
    mutable std::mutex queue_mutex;
    std::condition_variable queue_changed;
    std::deque<job> queue;
    std::vector<std::vector<std::byte>> spare; // memory of pictures that were written
    size_t waiting_bytes = 0;                  // with the one being written
    size_t waiting = 0;
    bool ended = false;
    std::exception_ptr problem;
    std::jthread writer; // last: it uses all of the above
};

} // namespace cli
