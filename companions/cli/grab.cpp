#include "grab.h"

#include "image_file.h"
#include "picture_converter.h"

#include <gige/test_picture.h>

#include <fmt/format.h>

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <optional>

namespace cli {

using namespace GenTL;

namespace {

using seconds = std::chrono::duration<double>;

double cpu_seconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto of = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return of(usage.ru_utime) + of(usage.ru_stime);
}

struct frame {
    const std::byte* data = nullptr;
    size_t filled = 0;
    size_t width = 0;
    size_t height = 0;
    uint64_t id = 0;
    uint32_t pixel_format = 0;
    bool incomplete = false;
};

// Compares frames with the simulated camera's picture and counts what is not as it should be.
class verifier {
public:
    void check(const frame& got) {
        if (got.incomplete) {
            ++failures;
            return;
        }
        extended = extended || got.id > 65535;
        const uint64_t number = gige::frame_of_block(got.id, extended, last.value_or(0));
        if (last && number <= *last) ++out_of_order;
        last = number;
        const auto width = static_cast<uint32_t>(got.width);
        const auto height = static_cast<uint32_t>(got.height);
        const size_t size = gige::test_picture_size(width, height, got.pixel_format);
        expected.resize(size);
        gige::fill_test_picture(number, width, height, got.pixel_format, expected);
        if (size == 0 || got.filled < size || std::memcmp(expected.data(), got.data, size) != 0) ++failures;
    }
    uint64_t failures = 0;
    uint64_t out_of_order = 0;

private:
    std::vector<std::byte> expected;
    std::optional<uint64_t> last;
    bool extended = false;
};

class grabber {
public:
    grabber(const common_options& common_given, const grab_options& given)
        : common(common_given),
          options(given),
          found(find_devices(common_given)),
          lib(*found.lib),
          chosen(choose_device(found, common_given)),
          device(open_device(lib, chosen.second, chosen.first.id, access_flags_of(common_given.access))),
          remote(lib, remote_port(lib, *device)),
          stream(open_stream(lib, device)) {}

    int run();

private:
    template <class T>
    [[nodiscard]] T stream_info(STREAM_INFO_CMD command) const {
        return ask_value<T>(lib, "DSGetInfo", [&](INFO_DATATYPE* type, void* value, size_t* size) {
            return lib.DSGetInfo(stream->get(), command, type, value, size);
        });
    }
    template <class T>
    [[nodiscard]] T buffer_info(BUFFER_HANDLE buffer, BUFFER_INFO_CMD command) const {
        return ask_value<T>(lib, "DSGetBufferInfo", [&](INFO_DATATYPE* type, void* value, size_t* size) {
            return lib.DSGetBufferInfo(stream->get(), buffer, command, type, value, size);
        });
    }
    [[nodiscard]] frame frame_of(BUFFER_HANDLE buffer) const;
    void announce_buffers();
    void start();
    [[nodiscard]] int64_t stream_packet_size();
    void stop();
    void receive();
    void handle(const frame& got);
    void save_picture(const frame& got);
    void report_progress(bool last);
    [[nodiscard]] nlohmann::json chunks_of(BUFFER_HANDLE buffer) const;
    [[nodiscard]] nlohmann::json result() const;
    [[nodiscard]] int64_t stream_feature(const std::string& name) const;

    const common_options& common;
    const grab_options& options;
    found_devices found;
    const gentl_library& lib;
    const std::pair<device_entry, std::shared_ptr<const tl_interface>>& chosen;
    std::shared_ptr<const tl_device> device;
    node_map remote;
    std::shared_ptr<const tl_stream> stream;
    EVENT_HANDLE new_buffer = nullptr;

    size_t payload_size = 0;
    frame first_frame;
    uint64_t delivered = 0;
    uint64_t incomplete = 0;
    uint64_t bytes = 0;
    std::vector<std::string> pictures;
    picture_format wanted;
    std::optional<picture_converter> converter; // for frames of converter_source
    uint32_t converter_source = 0;
    nlohmann::json last_chunks;
    verifier check;
    std::chrono::steady_clock::time_point first_time, last_time, shown_time;
    double cpu_at_start = 0;
    double cpu_used = 0;
    int64_t packet_size = 0;
    int64_t resend_packets = 0;
    uint64_t lost = 0;
    uint64_t underruns = 0;
    bool timed_out = false;
};

frame grabber::frame_of(BUFFER_HANDLE buffer) const {
    frame got;
    got.data = static_cast<const std::byte*>(buffer_info<void*>(buffer, BUFFER_INFO_BASE));
    got.filled = buffer_info<size_t>(buffer, BUFFER_INFO_SIZE_FILLED);
    got.width = buffer_info<size_t>(buffer, BUFFER_INFO_WIDTH);
    got.height = buffer_info<size_t>(buffer, BUFFER_INFO_HEIGHT);
    got.id = buffer_info<uint64_t>(buffer, BUFFER_INFO_FRAMEID);
    got.pixel_format = static_cast<uint32_t>(buffer_info<uint64_t>(buffer, BUFFER_INFO_PIXELFORMAT));
    got.incomplete = buffer_info<bool8_t>(buffer, BUFFER_INFO_IS_INCOMPLETE) != 0;
    return got;
}

void grabber::announce_buffers() {
    payload_size = stream_info<bool8_t>(STREAM_INFO_DEFINES_PAYLOADSIZE) != 0
                       ? stream_info<size_t>(STREAM_INFO_PAYLOAD_SIZE)
                       : static_cast<size_t>(require_integer(remote, "PayloadSize"));
    const size_t count = std::max(options.buffers, stream_info<size_t>(STREAM_INFO_BUF_ANNOUNCE_MIN));
    for (size_t i = 0; i < count; ++i) {
        BUFFER_HANDLE buffer = nullptr;
        lib.check("DSAllocAndAnnounceBuffer",
                  lib.DSAllocAndAnnounceBuffer(stream->get(), payload_size, nullptr, &buffer));
        lib.check("DSQueueBuffer", lib.DSQueueBuffer(stream->get(), buffer));
    }
}

// Not every document names it; the register is every camera's.
int64_t grabber::stream_packet_size() {
    if (remote.document().find_node("GevSCPSPacketSize") != nullptr)
        return require_integer(remote, "GevSCPSPacketSize");
    constexpr uint64_t register_address = 0x0D04; // of the first stream channel
    std::array<std::byte, 4> word{};
    size_t size = word.size();
    if (lib.GCReadPort(remote_port(lib, *device), register_address, word.data(), &size) != GC_ERR_SUCCESS) return 0;
    return std::to_integer<int64_t>(word[2]) << 8 | std::to_integer<int64_t>(word[3]);
}

void grabber::start() {
    for (const auto& [name, value] : options.set) set_from_text(require_node(remote, name), value);
    announce_buffers();
    lib.check("GCRegisterEvent", lib.GCRegisterEvent(stream->get(), EVENT_NEW_BUFFER, &new_buffer));
    lib.check("DSStartAcquisition", lib.DSStartAcquisition(stream->get(), ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE));
    packet_size = stream_packet_size();
    if (remote.document().find_node("TLParamsLocked") != nullptr) {
        set_from_text(require_node(remote, "TLParamsLocked"), "1");
    }
    cpu_at_start = cpu_seconds();
    execute(require_node(remote, "AcquisitionStart"));
}

void grabber::stop() {
    execute(require_node(remote, "AcquisitionStop"));
    if (remote.document().find_node("TLParamsLocked") != nullptr) {
        set_from_text(require_node(remote, "TLParamsLocked"), "0");
    }
    lost = stream_info<uint64_t>(STREAM_INFO_KRV_NUM_TRANSMISSION_DROP);
    underruns = stream_info<uint64_t>(STREAM_INFO_NUM_UNDERRUN);
    resend_packets = stream_feature("StreamResendRequestedPackets");
    lib.check("DSStopAcquisition", lib.DSStopAcquisition(stream->get(), ACQ_STOP_FLAGS_DEFAULT));
    lib.check("GCUnregisterEvent", lib.GCUnregisterEvent(stream->get(), EVENT_NEW_BUFFER));
    lib.check("DSFlushQueue", lib.DSFlushQueue(stream->get(), ACQ_QUEUE_ALL_DISCARD));
}

int64_t grabber::stream_feature(const std::string& name) const {
    const node_map nodes{lib, stream->get()};
    return nodes.document().find_node(name) == nullptr ? 0 : require_integer(nodes, name);
}

void grabber::receive() {
    while (delivered + incomplete < options.frames) {
        EVENT_NEW_BUFFER_DATA event{};
        size_t size = sizeof event;
        const GC_ERROR code = lib.EventGetData(new_buffer, &event, &size, options.frame_timeout_ms);
        if (code == GC_ERR_TIMEOUT) {
            timed_out = true;
            return;
        }
        lib.check("EventGetData", code);
        const frame got = frame_of(event.BufferHandle);
        handle(got);
        if (options.chunks && delivered + incomplete == options.frames) last_chunks = chunks_of(event.BufferHandle);
        lib.check("DSQueueBuffer", lib.DSQueueBuffer(stream->get(), event.BufferHandle));
    }
}

void grabber::handle(const frame& got) {
    last_time = std::chrono::steady_clock::now();
    if (delivered + incomplete == 0) {
        first_frame = got;
        first_time = last_time;
    }
    ++(got.incomplete ? incomplete : delivered);
    bytes += got.filled;
    if (options.verify) check.check(got);
    const uint64_t step = std::max<uint64_t>(1, options.frames / std::max<uint64_t>(1, options.save));
    const bool is_due = pictures.size() < options.save && (delivered + incomplete - 1) % step == 0;
    // A part of a frame cannot be converted.
    if (!options.output.empty() && is_due && (options.format.empty() || !got.incomplete)) {
        save_picture(got);
    }
    report_progress(false);
}

void grabber::save_picture(const frame& got) {
    std::filesystem::create_directories(options.output);
    std::span<const std::byte> data{got.data, got.filled};
    uint32_t pixel_format = got.pixel_format;
    const auto width = static_cast<uint32_t>(got.width), height = static_cast<uint32_t>(got.height);
    if (!options.format.empty()) {
        if (!converter || converter_source != pixel_format) {
            converter.emplace(format_from_pfnc(pixel_format), wanted);
            converter_source = pixel_format;
        }
        data = converter->convert(data, width, height);
        pixel_format = wanted.pfnc;
    }
    const auto path = write_picture(options.output / fmt::format("frame-{:06}", got.id), data, width, height,
                                    pixel_format, options.raw);
    pictures.push_back(path.string());
}

void grabber::report_progress(bool last) {
    if (options.quiet) return;
    const auto now = std::chrono::steady_clock::now();
    if (!last && now - shown_time < std::chrono::milliseconds{500}) return;
    shown_time = now;
    const double time = seconds{last_time - first_time}.count();
    const double rate = time > 0 ? static_cast<double>(delivered + incomplete - 1) / time : 0;
    fmt::print(stderr, "{}{}: {}/{} frames, {:.1f}/s, {} incomplete, {} not as they should be\n", last ? "" : "  ",
               chosen.first.id, delivered + incomplete, options.frames, rate, incomplete, check.failures);
}

nlohmann::json grabber::chunks_of(BUFFER_HANDLE buffer) const {
    size_t count = 0;
    const GC_ERROR code = lib.DSGetBufferChunkData(stream->get(), buffer, nullptr, &count);
    if (code == GC_ERR_NO_DATA) return nlohmann::json::array();
    lib.check("DSGetBufferChunkData", code);
    std::vector<SINGLE_CHUNK_DATA> chunks(count);
    lib.check("DSGetBufferChunkData", lib.DSGetBufferChunkData(stream->get(), buffer, chunks.data(), &count));
    nlohmann::json list = nlohmann::json::array();
    for (const SINGLE_CHUNK_DATA& chunk : chunks) {
        list.push_back({{"id", uint64_t{chunk.ChunkID}},
                        {"offset", ptrdiff_t{chunk.ChunkOffset}},
                        {"length", size_t{chunk.ChunkLength}}});
    }
    return list;
}

nlohmann::json grabber::result() const {
    const uint64_t frames = delivered + incomplete;
    const double time = seconds{last_time - first_time}.count();
    const double gigabytes = static_cast<double>(bytes) / 1e9;
    nlohmann::json object{
        {"device", chosen.first.id},
        {"width", first_frame.width},
        {"height", first_frame.height},
        {"pixel_format", pixel_format_name(first_frame.pixel_format)},
        {"payload_size", payload_size},
        {"packet_size", packet_size},
        {"frames_delivered", frames},
        {"frames_complete", delivered},
        {"frames_incomplete", incomplete},
        {"frames_lost", lost},
        {"underruns", underruns},
        {"resend_packets_requested", resend_packets},
        {"fps", time > 0 && frames > 1 ? static_cast<double>(frames - 1) / time : 0.0},
        {"mbytes_per_s", time > 0 && frames > 1 ? static_cast<double>(bytes) / 1e6 / time *
                                                      static_cast<double>(frames - 1) / static_cast<double>(frames)
                                                : 0.0},
        {"cpu_s_per_gbyte", gigabytes > 0 ? cpu_used / gigabytes : 0.0},
        {"timed_out", timed_out},
        {"files", pictures},
    };
    // Null when nobody asked.
    object["verified"] = nullptr;
    if (options.verify) {
        object["verified"] = frames > 0 && check.failures == 0 && check.out_of_order == 0;
        object["verify_failures"] = check.failures;
        object["out_of_order"] = check.out_of_order;
    }
    if (options.chunks) object["chunks"] = last_chunks;
    return object;
}

int grabber::run() {
    if (!options.format.empty()) {
        wanted = format_from_text(options.format);
        if (!wanted.known()) throw std::runtime_error(fmt::format("'{}' is no pixel format.", options.format));
    }
    start();
    receive();
    cpu_used = cpu_seconds() - cpu_at_start;
    stop();
    report_progress(true);
    const nlohmann::json object = result();
    if (common.json) {
        fmt::print("{}\n", object.dump());
    } else {
        fmt::print("{:<40} {:>11} {:<12} {:>8} {:>8} {:>9} {:>6} {:>9} {:>9}\n", "device", "size", "format", "packet",
                   "frames", "complete", "lost", "rate/s", "MB/s");
        fmt::print("{:<40} {:>11} {:<12} {:>8} {:>8} {:>9} {:>6} {:>9.2f} {:>9.2f}\n", chosen.first.id,
                   fmt::format("{}x{}", first_frame.width, first_frame.height),
                   pixel_format_name(first_frame.pixel_format), packet_size, delivered + incomplete, delivered, lost,
                   object["fps"].get<double>(), object["mbytes_per_s"].get<double>());
        for (const std::string& path : pictures) fmt::print("written: {}\n", path);
        if (options.verify) fmt::print("verified: {}\n", object["verified"].get<bool>() ? "yes" : "NO");
    }
    if (timed_out) {
        fmt::print(stderr, "No frame came within {} ms: {} of {} frames were received.\n", options.frame_timeout_ms,
                   delivered + incomplete, options.frames);
    }
    return timed_out || (options.verify && object["verified"] != true) ? 1 : 0;
}

} // namespace

int grab(const common_options& common, const grab_options& options) { return grabber{common, options}.run(); }

} // namespace cli
