#include "grabber.h"

#include "../consumer/bootstrap_register.h"
#include "../consumer/device_choice.h"
#include "../failure/first_failure.h"
#include "../losses/missing_frames.h"
#include "../output/output.h"
#include "../posix/interruption.h"
#include "../posix/standard_streams.h"
#include "../posix/this_process.h"
#include "path_probe.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gige/gvcp.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace cli {

using namespace GenTL;

namespace {

using seconds = std::chrono::duration<double>;
using std::chrono::milliseconds;

} // namespace

camera_session::camera_session(const common_options& common)
    : found(find_devices(common)),
      lib(*found.lib),
      chosen(choose_device(found, common)),
      device(open_chosen(found, chosen.first, chosen.second, access_flags_of(common.access))),
      remote(lib, remote_port(lib, *device)),
      stream(open_stream(lib, device)),
      stream_nodes(lib, stream->get()) {}

grabber::grabber(const common_options& common_given, const grab_options& given)
    : common(common_given),
      options(given),
      session(std::make_unique<camera_session>(common_given)),
      device_id(session->chosen.first.id) {}

grabber::~grabber() = default;

template <class T>
T grabber::stream_info(STREAM_INFO_CMD command) const {
    return ask_value<T>(session->lib, "DSGetInfo", [&](INFO_DATATYPE* type, void* value, size_t* size) {
        return session->lib.DSGetInfo(session->stream->get(), command, type, value, size);
    });
}

template <class T>
T grabber::buffer_info(BUFFER_HANDLE buffer, BUFFER_INFO_CMD command) const {
    return ask_value<T>(session->lib, "DSGetBufferInfo", [&](INFO_DATATYPE* type, void* value, size_t* size) {
        return session->lib.DSGetBufferInfo(session->stream->get(), buffer, command, type, value, size);
    });
}

template <class T>
T grabber::optional_info(BUFFER_HANDLE buffer, BUFFER_INFO_CMD command) const {
    T value{};
    INFO_DATATYPE type = 0;
    size_t size = sizeof value;
    const GC_ERROR error = session->lib.DSGetBufferInfo(session->stream->get(), buffer, command, &type, &value, &size);
    return error == GC_ERR_SUCCESS ? value : T{};
}

grabber::frame grabber::frame_of(BUFFER_HANDLE buffer) const {
    frame got;
    got.data = {static_cast<const std::byte*>(buffer_info<void*>(buffer, BUFFER_INFO_BASE)),
                buffer_info<size_t>(buffer, BUFFER_INFO_SIZE_FILLED)};
    got.width = static_cast<uint32_t>(buffer_info<size_t>(buffer, BUFFER_INFO_WIDTH));
    got.height = static_cast<uint32_t>(buffer_info<size_t>(buffer, BUFFER_INFO_HEIGHT));
    got.id = buffer_info<uint64_t>(buffer, BUFFER_INFO_FRAMEID);
    got.pixel_format = static_cast<uint32_t>(buffer_info<uint64_t>(buffer, BUFFER_INFO_PIXELFORMAT));
    // Not every producer knows these.
    got.line_padding = optional_info<size_t>(buffer, BUFFER_INFO_XPADDING);
    got.timestamp_ns = optional_info<uint64_t>(buffer, BUFFER_INFO_TIMESTAMP_NS);
    got.incomplete = buffer_info<bool8_t>(buffer, BUFFER_INFO_IS_INCOMPLETE) != 0;
    return got;
}

void grabber::announce_buffers() {
    payload_size = stream_info<bool8_t>(STREAM_INFO_DEFINES_PAYLOADSIZE) != 0
                       ? stream_info<size_t>(STREAM_INFO_PAYLOAD_SIZE)
                       : static_cast<size_t>(require_integer(session->remote, "PayloadSize"));
    const size_t count = std::max(options.buffers, stream_info<size_t>(STREAM_INFO_BUF_ANNOUNCE_MIN));
    announced = count;
    for (size_t i = 0; i < count; ++i) {
        BUFFER_HANDLE buffer = nullptr;
        session->lib.check("DSAllocAndAnnounceBuffer", session->lib.DSAllocAndAnnounceBuffer(
                                                           session->stream->get(), payload_size, nullptr, &buffer));
        session->lib.check("DSQueueBuffer", session->lib.DSQueueBuffer(session->stream->get(), buffer));
    }
}

// Not every document names it; the register is every camera's.
int64_t grabber::stream_packet_size() const {
    if (session->remote.document().find_node("GevSCPSPacketSize") != nullptr)
        return require_integer(session->remote, "GevSCPSPacketSize");
    std::array<std::byte, 4> word{};
    size_t size = word.size();
    if (session->lib.GCReadPort(remote_port(session->lib, *session->device), gige::gvcp::reg::stream_packet_size,
                                word.data(), &size) != GC_ERR_SUCCESS)
        return 0;
    return std::to_integer<int64_t>(word[2]) << 8 | std::to_integer<int64_t>(word[3]);
}

void grabber::start() {
    errors.emplace(session->lib, session->device);
    for (const setting& each : options.set) static_cast<void>(apply(session->remote, each));
    if (options.trigger_hz > 0)
        trigger = std::make_unique<software_trigger>(session->lib, remote_port(session->lib, *session->device),
                                                     options.trigger_hz);
    announce_buffers();
    session->lib.check("GCRegisterEvent",
                       session->lib.GCRegisterEvent(session->stream->get(), EVENT_NEW_BUFFER, &new_buffer));
    stop_if_interrupted();
    session->lib.check("DSStartAcquisition", session->lib.DSStartAcquisition(session->stream->get(),
                                                                             ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE));
    acquiring = true;
    packet_size = stream_packet_size();
    if (session->remote.document().find_node("TLParamsLocked") != nullptr) {
        set_from_text(require_node(session->remote, "TLParamsLocked"), "1");
    }
    stop_if_interrupted();
    if (options.explain) watch_losses();
    cpu_at_start = cpu_seconds();
    camera_started = ever_started = true;
    is_first_of_stream = true;
    execute(require_node(session->remote, "AcquisitionStart"));
    if (trigger) trigger->start();
}

// Everything is tried, whatever of it fails; the first reason is thrown in the end.
void grabber::stop() {
    first_failure failures;
    if (trigger) {
        trigger->stop();
        triggers_sent += trigger->sent();
        triggers_left_out += trigger->left_out();
    }
    // A frame that the stop cuts short is no loss.
    const bool watched = watch.has_value();
    if (watched) failures.attempt([&] { explain_losses(); });
    if (camera_started) failures.attempt([&] { execute(require_node(session->remote, "AcquisitionStop")); });
    if (acquiring && session->remote.document().find_node("TLParamsLocked") != nullptr)
        failures.attempt([&] { set_from_text(require_node(session->remote, "TLParamsLocked"), "0"); });
    if (acquiring) {
        failures.attempt([&] { read_counters(); });
        failures.attempt([&] {
            session->lib.check("DSStopAcquisition",
                               session->lib.DSStopAcquisition(session->stream->get(), ACQ_STOP_FLAGS_DEFAULT));
        });
    }
    if (new_buffer != nullptr)
        failures.attempt([&] {
            session->lib.check("GCUnregisterEvent",
                               session->lib.GCUnregisterEvent(session->stream->get(), EVENT_NEW_BUFFER));
        });
    failures.attempt([&] {
        session->lib.check("DSFlushQueue", session->lib.DSFlushQueue(session->stream->get(), ACQ_QUEUE_ALL_DISCARD));
    });
    if (trigger) failures.attempt([&] { trigger->put_back(); });
    trigger.reset();
    if (watched && evidence && complete == complete_before && packet_size > 0)
        failures.attempt([&] {
            evidence->largest_that_passes =
                largest_packet_that_passes(session->lib, remote_port(session->lib, *session->device), stream_address,
                                           static_cast<uint64_t>(packet_size));
        });
    errors.reset();
    new_buffer = nullptr;
    acquiring = camera_started = false;
    failures.rethrow();
}

int64_t grabber::stream_feature(const char* name) const {
    return session->stream_nodes.document().find_node(name) == nullptr ? 0
                                                                       : require_integer(session->stream_nodes, name);
}

void grabber::read_counters() {
    // Of our producer; another's number of this command means something else or nothing.
    INFO_DATATYPE type = 0;
    size_t size = sizeof current.lost;
    if (session->lib.DSGetInfo(session->stream->get(), STREAM_INFO_KRV_NUM_TRANSMISSION_DROP, &type, &current.lost,
                               &size) != GC_ERR_SUCCESS)
        current.lost = 0;
    current.underruns = stream_info<uint64_t>(STREAM_INFO_NUM_UNDERRUN);
    current.resend_packets = stream_feature("StreamResendRequestedPackets");
}

void grabber::watch_losses() {
    void* const port = remote_port(session->lib, *session->device);
    const auto address = read_register(session->lib, port, gige::gvcp::reg::stream_address);
    const auto to = read_register(session->lib, port, gige::gvcp::reg::stream_port);
    if (!address || !to) return; // no GigE Vision camera
    stream_address = *address;
    complete_before = complete;
    incomplete_before = incomplete;
    evidence.reset();
    watch.emplace(stream_address, static_cast<uint16_t>(*to), process_id());
}

// While the stream is open: its socket and its thread end with it.
void grabber::explain_losses() {
    read_counters();
    loss_evidence seen;
    watch->take(seen);
    watch.reset();
    seen.frames_complete = complete - complete_before;
    seen.frames_incomplete = incomplete - incomplete_before;
    seen.frames_lost = current.lost;
    seen.underruns = current.underruns;
    seen.payload_size = payload_size;
    seen.packet_size = static_cast<uint64_t>(packet_size);
    seen.buffers = announced;
    seen.packets_asked_again = static_cast<uint64_t>(current.resend_packets);
    const auto counter = [&](const char* name) -> std::optional<uint64_t> {
        if (session->stream_nodes.document().find_node(name) == nullptr) return std::nullopt;
        return static_cast<uint64_t>(require_integer(session->stream_nodes, name));
    };
    seen.packets_expected = counter("StreamExpectedPacketCount");
    seen.packets_received = counter("StreamReceivedPacketCount");
    seen.packets_late = counter("StreamLatePacketCount");
    evidence = std::move(seen);
}

std::string grabber::explanation() const {
    if (!evidence) return {};
    const loss_verdict verdict = judge(*evidence);
    return fmt::format("{}{}\n{}", evidence_text(*evidence), verdict.sentence,
                       verdict.remedy.empty() ? "" : fmt::format("  {}\n", verdict.remedy));
}

void grabber::throw_if_lost() const {
    errors->throw_if_lost(fmt::format("Camera '{}' or its service went after {} frames.", device_id, frames()));
}

void grabber::throw_time_out() {
    const milliseconds waited{options.frame_timeout_ms};
    // A camera that does not answer any more is lost, not late.
    PORT_HANDLE port = remote_port(session->lib, *session->device);
    std::array<std::byte, 4> word{};
    size_t size = word.size();
    if (const GC_ERROR code = session->lib.GCReadPort(port, 0, word.data(), &size); code != GC_ERR_SUCCESS)
        throw call_failed("GCReadPort", code, session->lib.last_error(code))
            .explained(cause::lost,
                       fmt::format("Camera '{}' does not answer any more after {} frames.", device_id, frames()));
    timed_out = true;
    throw failure(cause::timeout, fmt::format("No frame came within {} ms; {} of {} were received. Why:\n  {}",
                                              options.frame_timeout_ms, frames(), options.frames,
                                              fmt::join(why_no_frames(session->remote, session->stream_nodes, waited,
                                                                      frames(), packet_size),
                                                        "\n  ")));
}

EVENT_NEW_BUFFER_DATA grabber::next_buffer() {
    // In slices, so that Ctrl-C and the end of the camera are seen at once.
    constexpr uint64_t slice_ms = 100;
    const auto deadline = std::chrono::steady_clock::now() + milliseconds{options.frame_timeout_ms};
    for (;;) {
        stop_if_interrupted();
        const auto left = std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now()).count();
        EVENT_NEW_BUFFER_DATA event{};
        size_t size = sizeof event;
        const GC_ERROR code = session->lib.EventGetData(
            new_buffer, &event, &size, std::min<uint64_t>(slice_ms, static_cast<uint64_t>(std::max<int64_t>(left, 0))));
        if (code == GC_ERR_SUCCESS) return event;
        if (code != GC_ERR_TIMEOUT) {
            throw_if_lost();
            session->lib.check("EventGetData", code);
        }
        throw_if_lost();
        if (trigger) trigger->throw_if_failed();
        if (left <= 0) throw_time_out();
        show_progress(false);
    }
}

void grabber::receive() {
    while (frames() < options.frames) {
        const EVENT_NEW_BUFFER_DATA event = next_buffer();
        const frame got = frame_of(event.BufferHandle);
        handle(got);
        if (!sleep_until(std::chrono::steady_clock::now() + milliseconds{options.hold_ms})) stop_if_interrupted();
        if (options.chunks && frames() == options.frames) last_chunks = chunks_of(event.BufferHandle);
        session->lib.check("DSQueueBuffer", session->lib.DSQueueBuffer(session->stream->get(), event.BufferHandle));
        if (saver && saver->has_failed()) return; // stop() tells why
        // Without its service a camera goes on for some seconds, controlled by nobody.
        constexpr milliseconds pause{200};
        if (last_time - looked_time < pause) continue;
        looked_time = last_time;
        throw_if_lost();
        if (trigger) trigger->throw_if_failed();
    }
}

void grabber::handle(const frame& got) {
    const auto now = std::chrono::steady_clock::now();
    if (frames() == 0) {
        first_frame = got;
        first_frame.data = {};
        first_time = now;
    } else if (!is_first_of_stream) {
        const double interval = seconds{now - last_time}.count();
        const double before = interval_mean;
        interval_mean += (interval - before) / static_cast<double>(frames());
        interval_squares += (interval - before) * (interval - interval_mean);
        longest_interval = std::max(longest_interval, interval);
    }
    is_first_of_stream = false;
    last_time = now;
    ++(got.incomplete ? incomplete : complete);
    bytes += got.data.size();
    if (options.verify && !got.incomplete)
        check.check(picture_of(got), got.id, got.width, got.height, got.pixel_format);
    if (saver) save(got);
    show_progress(false);
}

std::span<const std::byte> grabber::picture_of(const frame& got) {
    if (got.line_padding == 0) return got.data;
    join_lines(got.data, got.width, got.height, got.pixel_format, got.line_padding, joined);
    return joined;
}

void grabber::save(const frame& got) {
    const uint64_t step = std::max<uint64_t>(1, options.frames / std::max<uint64_t>(1, options.save));
    // One that had to be skipped is made up for by the next.
    if (offered >= options.save || frames() - 1 < offered * step) return;
    // Packed lines run on from one to the next where nothing stands between them, and are read like that.
    if (got.line_padding != 0 && size_t{got.width} * (got.pixel_format >> 16 & 0xFF) % 8 != 0 &&
        (options.kind != file_kind::raw || !options.format.empty()))
        throw failure(cause::output, fmt::format("Lines of {} pixels in {} end inside a byte and have padding: such "
                                                 "pictures can only be kept as they come, with --raw.",
                                                 got.width, pixel_format_name(got.pixel_format)));
    const picture shown{picture_of(got), got.width, got.height, got.pixel_format};
    nlohmann::json about{{"timestamp_ns", got.timestamp_ns}, {"incomplete", got.incomplete}};
    ++(saver->offer(shown, got.id, std::move(about), !got.incomplete) ? offered : skipped);
}

double grabber::seconds_of_stream() const { return seconds{last_time - first_time}.count(); }

double grabber::frame_rate() const {
    const double time = seconds_of_stream();
    return time > 0 && frames() > 1 ? static_cast<double>(frames() - 1) / time : 0;
}

double grabber::megabytes_per_second() const {
    return frames() == 0 ? 0 : static_cast<double>(bytes) / static_cast<double>(frames()) * frame_rate() / 1e6;
}

double grabber::jitter_ms() const {
    return frames() < 3 ? 0 : std::sqrt(interval_squares / static_cast<double>(frames() - 1)) * 1e3;
}

void grabber::show_progress(bool last) {
    if (options.quiet) return;
    const bool terminal = errors_are_seen_on_a_terminal();
    const auto now = std::chrono::steady_clock::now();
    // A terminal's line is written again and again; elsewhere each is a line of a log.
    if (!last && now - shown_time < (terminal ? milliseconds{200} : milliseconds{2000})) return;
    shown_time = now;
    if (!last) current.resend_packets = stream_feature("StreamResendRequestedPackets");
    const std::string line =
        fmt::format("{}: {}/{} frames, {:.1f}/s, {:.1f} MB/s, {} incomplete, {} packets asked again, jitter {:.2f} ms",
                    device_id, frames(), options.frames, frame_rate(), megabytes_per_second(), incomplete,
                    former.resend_packets + current.resend_packets, jitter_ms());
    if (terminal)
        say_text(fmt::format("\r\x1b[K{}{}", printable(line), last ? "\n" : "")); // to the line's begin, its rest away
    else
        say("{}\n", line);
}

nlohmann::json grabber::chunks_of(BUFFER_HANDLE buffer) const {
    size_t count = 0;
    const GC_ERROR code = session->lib.DSGetBufferChunkData(session->stream->get(), buffer, nullptr, &count);
    if (code == GC_ERR_NO_DATA) return nlohmann::json::array();
    session->lib.check("DSGetBufferChunkData", code);
    std::vector<SINGLE_CHUNK_DATA> chunks(count);
    session->lib.check("DSGetBufferChunkData",
                       session->lib.DSGetBufferChunkData(session->stream->get(), buffer, chunks.data(), &count));
    nlohmann::json list = nlohmann::json::array();
    for (const SINGLE_CHUNK_DATA& chunk : chunks) {
        list.push_back({{"id", uint64_t{chunk.ChunkID}},
                        {"offset", ptrdiff_t{chunk.ChunkOffset}},
                        {"length", size_t{chunk.ChunkLength}}});
    }
    return list;
}

nlohmann::json grabber::result() const {
    const double gigabytes = static_cast<double>(bytes) / 1e9;
    nlohmann::json files = nlohmann::json::array();
    if (saver) {
        for (const written_picture& each : saver->written())
            files.push_back({{"path", each.path.string()}, {"pixel_format", each.pixel_format}, {"note", each.note}});
    }
    nlohmann::json object{
        {"device", device_id},
        {"width", first_frame.width},
        {"height", first_frame.height},
        {"pixel_format", nullptr}, // of the first frame
        {"payload_size", payload_size},
        {"packet_size", packet_size},
        {"frames_asked", options.frames},
        {"frames_delivered", frames()},
        {"frames_complete", complete},
        {"frames_incomplete", incomplete},
        {"frames_lost", former.lost + current.lost},
        {"underruns", former.underruns + current.underruns},
        {"resend_packets_requested", former.resend_packets + current.resend_packets},
        {"reconnects", reconnects},
        {"fps", frame_rate()},
        {"mbytes_per_s", megabytes_per_second()},
        {"jitter_ms", jitter_ms()},
        {"longest_interval_ms", longest_interval * 1e3},
        {"cpu_s_per_gbyte", gigabytes > 0 ? cpu_used / gigabytes : 0.0},
        {"timed_out", timed_out},
        {"interrupted", interrupted},
        {"files", files},
        {"pictures_skipped", skipped},
    };
    if (frames() != 0) object["pixel_format"] = pixel_format_name(first_frame.pixel_format);
    // Null when nobody asked.
    object["verified"] = nullptr;
    if (options.verify) {
        object["verified"] = frames() > 0 && incomplete == 0 && check.wrong() == 0 && check.out_of_order() == 0;
        object["verify_failures"] = check.wrong();
        object["out_of_order"] = check.out_of_order();
    }
    if (options.chunks) object["chunks"] = last_chunks;
    if (options.trigger_hz > 0) {
        object["triggers_sent"] = triggers_sent;
        object["triggers_left_out"] = triggers_left_out;
    }
    if (options.explain) {
        object["explain"] = nullptr; // the camera never started
        if (evidence) {
            object["explain"] = to_json(judge(*evidence));
            object["explain"]["evidence"] = to_json(*evidence);
        }
    }
    return object;
}

std::string grabber::summary() const {
    if (!ever_started) return {};
    std::string text = fmt::format("{:<40} {:>11} {:<12} {:>8} {:>8} {:>9} {:>6} {:>9} {:>9}\n", "device", "size",
                                   "format", "packet", "frames", "complete", "lost", "rate/s", "MB/s");
    text += fmt::format("{:<40} {:>11} {:<12} {:>8} {:>8} {:>9} {:>6} {:>9.2f} {:>9.2f}\n", device_id,
                        fmt::format("{}x{}", first_frame.width, first_frame.height),
                        frames() == 0 ? "-" : pixel_format_name(first_frame.pixel_format), packet_size, frames(),
                        complete, former.lost + current.lost, frame_rate(), megabytes_per_second());
    if (saver) {
        for (const written_picture& each : saver->written())
            text +=
                fmt::format("written: {}{}\n", each.path.string(), each.note.empty() ? "" : "  (" + each.note + ")");
        if (skipped != 0)
            text += fmt::format("not written: {} pictures were due while the disk was still busy with those before\n",
                                skipped);
    }
    if (options.verify) text += fmt::format("verified: {}\n", result()["verified"] == true ? "yes" : "NO");
    return text;
}

void grabber::throw_if_wrong() const {
    if (!options.verify) return;
    if (check.wrong() != 0 || check.out_of_order() != 0)
        throw failure(cause::verification,
                      fmt::format("{} of {} whole frames are not the camera's picture, {} came out of order.",
                                  check.wrong(), complete, check.out_of_order()));
    if (incomplete != 0)
        throw failure(cause::incomplete, fmt::format("{} of {} frames came incomplete.", incomplete, frames()));
}

// One stream from start to stop; the first reason that ended it.
void grabber::run_once(std::exception_ptr& first) {
    try {
        start();
        receive();
    } catch (const failure& reason) {
        interrupted = reason.why() == cause::interrupted;
        first = std::current_exception();
    } catch (...) {
        first = std::current_exception();
    }
    cpu_used += camera_started ? cpu_seconds() - cpu_at_start : 0;
    try {
        stop();
    } catch (...) {
        // Of a camera that has gone each step fails, for the reason that is known already.
        if (!first) first = std::current_exception();
    }
    former.lost += current.lost;
    former.underruns += current.underruns;
    former.resend_packets += current.resend_packets;
    current = {};
}

void grabber::open_again(const failure& reason) {
    session.reset(); // the connection to a service that went is of no use
    say("{}\nWaiting for camera '{}'{}.\n", reason.what(), device_id,
        options.reconnect_s == 0 ? "" : fmt::format(", {} s at most", options.reconnect_s));
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds{options.reconnect_s};
    constexpr milliseconds pause{200};
    for (;;) {
        stop_if_interrupted();
        try {
            session = std::make_unique<camera_session>(common);
            break;
        } catch (const failure& again) {
            // All that a camera or a service on its way back may be meanwhile; what the user gave is right already.
            if (again.why() == cause::ambiguous || again.why() == cause::arguments) throw;
        }
        if (options.reconnect_s != 0 && std::chrono::steady_clock::now() >= until)
            throw failure(reason.why(),
                          fmt::format("{} It did not come back within {} s.", reason.what(), options.reconnect_s));
        std::this_thread::sleep_for(pause);
    }
    ++reconnects;
    check.begin_anew();
    say("Camera '{}' is back; {} of {} frames are there.\n", device_id, frames(), options.frames);
}

void grabber::run() {
    std::exception_ptr first;
    try {
        if (!options.output.empty()) {
            picture_saver::options saving{options.output, device_id, options.kind, {}};
            if (!options.format.empty()) saving.wanted = format_from_text(options.format);
            saver = std::make_unique<picture_saver>(std::move(saving));
        }
        for (;;) {
            first = nullptr;
            run_once(first);
            if (!first || !options.reconnect) break;
            try {
                std::rethrow_exception(first);
            } catch (const failure& reason) {
                if (reason.why() != cause::lost) break;
                open_again(reason);
            }
        }
    } catch (const failure& reason) {
        interrupted = reason.why() == cause::interrupted;
        first = std::current_exception();
    } catch (...) {
        first = std::current_exception();
    }
    if (saver) saver->finish();
    if (!first && saver && saver->why_failed()) first = saver->why_failed();
    if (ever_started) show_progress(true);
    if (first) std::rethrow_exception(first);
    throw_if_wrong();
}

} // namespace cli
