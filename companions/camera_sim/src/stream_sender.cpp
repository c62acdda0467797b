#include "stream_sender.h"

#include <camera_sim/registers.h>
#include <gige/ethernet.h>
#include <gige/test_picture.h>

#include <algorithm>
#include <bit>
#include <cmath>

namespace camera_sim {

namespace boot = gige::gvcp::reg;
namespace bits = gige::gvcp::bits;
using gige::gvcp::status;

namespace {

constexpr auto batch_span = std::chrono::microseconds{200}; // paced packets go out in groups of about this time
constexpr double neutral_exposure = 10000;                  // microseconds
constexpr uint32_t max_resends = 0x10000;                   // packets answered per request

std::size_t on_wire(const packet& one) { return gige::wire_bytes(one.size() + gige::gvsp::ip_udp_header); }

uint64_t count_ns(auto duration) {
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(duration).count());
}

} // namespace

stream_sender::stream_sender(device_state& shared, event_function raise_event)
    : device{shared},
      raise{std::move(raise_event)},
      link{shared.options.link.get()},
      link_sender{link != nullptr ? link->add_sender() : 0},
      scene{shared.options.scene.what == scene_kind::none ? std::nullopt : std::make_optional<optics>(shared.options)},
      stream_dice{shared.options.faults.seed},
      batch(gige::udp_socket::max_batch),
      resend_dice{~shared.options.faults.seed} {}

stream_sender::~stream_sender() {
    abort();
    {
        const std::lock_guard guard{mutex};
        quit = true;
    }
    changed.notify_all();
    if (thread.joinable()) thread.join();
}

std::error_code stream_sender::open(uint32_t address) {
    auto opened = gige::udp_socket::open({address, 0});
    if (!opened) return opened.error();
    // The kernel may grant less; a send then waits for room.
    [[maybe_unused]] const auto granted = opened->set_send_buffer(4 << 20);
    socket = std::move(*opened);
    fragmentation = -1;
    if (!thread.joinable()) thread = std::thread{[this] { run(); }};
    return {};
}

void stream_sender::start_acquisition() {
    {
        const std::lock_guard guard{mutex};
        wanted = true;
        ++orders;
        device.acquiring = true;
        triggers = 0;
        aborting = false;
    }
    changed.notify_all();
}

void stream_sender::stop_acquisition() {
    {
        const std::lock_guard guard{mutex};
        wanted = false;
        device.acquiring = false;
    }
    changed.notify_all();
}

void stream_sender::abort() {
    std::unique_lock lock{mutex};
    wanted = false;
    device.acquiring = false;
    aborting = true;
    changed.notify_all();
    changed.wait(lock, [this] { return !running; });
    ring.clear();
}

void stream_sender::trigger() {
    {
        const std::lock_guard guard{mutex};
        ++triggers;
    }
    changed.notify_all();
}

void stream_sender::reseed(uint64_t seed) {
    resend_dice = dice{~seed};
    new_seed = seed;
}

void stream_sender::run() {
    std::unique_lock lock{mutex};
    for (;;) {
        changed.wait(lock, [this] { return quit || wanted; });
        if (quit) return;
        running = true;
        const uint64_t order = orders;
        lock.unlock();
        acquire(order);
        lock.lock();
        running = false;
        if (order == orders) {
            wanted = false;
            device.acquiring = false;
        }
        changed.notify_all();
    }
}

stream_sender::settings stream_sender::snapshot(uint64_t number, std::shared_ptr<frame> reused) {
    settings current;
    current.next = reused ? std::move(reused) : ring.take(device.options.ring_frames);
    frame& next = *current.next;
    const std::lock_guard guard{device.mutex};
    const auto& memory = device.memory;
    next.number = number;
    next.extended = (memory.get(boot::stream_configuration) & bits::stream_extended_ids) != 0;
    next.block_id = gige::block_of_frame(number, next.extended);
    next.width = memory.get(reg::width);
    next.height = memory.get(reg::height);
    next.offset_x = memory.get(reg::offset_x);
    next.offset_y = memory.get(reg::offset_y);
    next.pixel_format = memory.get(reg::pixel_format);
    next.line_padding = line_padding(device.options, next.width, next.height, next.pixel_format);
    const uint32_t packet_size = memory.get(boot::stream_packet_size);
    next.packet_size = packet_size & 0xFFFF;
    next.dont_fragment = (packet_size & bits::do_not_fragment) != 0;
    next.destination = {memory.get(boot::stream_address), static_cast<uint16_t>(memory.get(boot::stream_port))};
    next.chunk_length = memory.get(reg::chunk_mode) != 0 ? 1 : 0; // the length follows with the chunks
    next.chunk_payload_type = static_cast<uint16_t>(device.options.chunk_payload_type);
    for (uint32_t i = 0; i < reg::chunks.size(); ++i) current.chunks[i] = memory.get(reg::chunk_enable + 4 * i) != 0;
    current.faults = device.faults;
    const double rate = memory.get(reg::frame_rate_enable) != 0 ? memory.get_float(reg::frame_rate) : 0;
    if (rate > 0) current.period = std::chrono::duration_cast<clock::duration>(std::chrono::duration<double>{1 / rate});
    current.packet_time = packet_time_of(next.packet_size);
    current.triggered = memory.get(reg::trigger_mode) != 0;
    current.events_exposure_end = memory.get(reg::event_notification + 4) != 0;
    current.events_frame_start = memory.get(reg::event_notification + 8) != 0;
    current.events_acquisition_end = memory.get(reg::event_notification + 12) != 0;
    current.exposure = memory.get_double(reg::exposure_time);
    current.gain = memory.get(reg::gain_raw) / 10.0;
    current.pattern = memory.get(reg::test_pattern);
    if (scene) {
        sensor_settings& sensor = current.sensor;
        sensor = {next.width,
                  next.height,
                  next.offset_x,
                  next.offset_y,
                  next.pixel_format,
                  current.exposure,
                  {},
                  {},
                  memory.get(reg::black_level_raw),
                  memory.get(reg::iris),
                  memory.get(reg::focus)};
        for (uint32_t i = 0; i < 3; ++i) {
            sensor.gain[i] = current.gain + memory.get(reg::gain_raw + 4 + 4 * i) / 10.0;
            sensor.balance[i] = static_cast<double>(memory.get_float(reg::balance_ratio + 4 * i));
        }
    }
    const uint32_t mode = memory.get(reg::acquisition_mode);
    current.frames_wanted = mode == 1 ? 1 : mode == 2 ? memory.get(reg::acquisition_frame_count) : 0;
    return current;
}

// The delay stands between the end of a packet and the begin of the next; where there is no link packets take no time.
stream_sender::clock::duration stream_sender::packet_time_of(uint32_t packet_size) const {
    const auto& memory = device.memory;
    const std::size_t bytes = gige::wire_bytes(packet_size);
    clock::duration time = device.time_of(memory.get(boot::stream_packet_delay));
    if (link != nullptr) time += link->time_of(bytes);
    if (memory.get(reg::throughput_limit_mode) == 0) return time;
    const std::chrono::duration<double> limited{static_cast<double>(bytes) / memory.get(reg::throughput_limit)};
    return std::max(time, std::chrono::ceil<clock::duration>(limited));
}

bool stream_sender::wait_for_turn(const settings& current, clock::time_point due, uint64_t order) {
    std::unique_lock lock{mutex};
    for (;;) {
        if (quit || aborting || !wanted || orders != order) return false;
        const auto now = clock::now();
        if (!late.empty() && late.front().due <= now) {
            lock.unlock();
            send_late(now);
            lock.lock();
            continue;
        }
        if (current.triggered ? triggers > 0 : now >= due) break;
        if (!late.empty() && (current.triggered || late.front().due < due))
            changed.wait_until(lock, late.front().due);
        else if (current.triggered)
            changed.wait(lock);
        else
            changed.wait_until(lock, due);
    }
    if (current.triggered) --triggers;
    return true;
}

void stream_sender::acquire(uint64_t order) {
    ring.clear(); // its frames have the ids of those to come
    const auto begin = [this] { return link != nullptr ? link->join(link_sender) : clock::now(); };
    auto due = begin();
    clock::time_point free_from; // when the frame before has left, by the schedule
    uint64_t number = 0;
    for (;; ++number) {
        // A camera that waits takes its settings when the turn comes, not when the wait began.
        settings current = snapshot(number, nullptr);
        if (current.frames_wanted != 0 && number >= current.frames_wanted) {
            if (current.events_acquisition_end) raise(0x9003, 0, device.timestamp(), number);
            break;
        }
        if (link != nullptr && current.triggered) link->leave(link_sender);
        if (link != nullptr && !current.triggered) link->promise(link_sender, std::max(due, free_from));
        if (!wait_for_turn(current, due, order)) break;
        if (const auto seed = new_seed.exchange(0)) {
            stream_dice = dice{seed};
            losses = {};
        }
        current = snapshot(number, std::move(current.next));
        current.start = std::max(current.triggered ? begin() : due, free_from);
        if (!device.silent && current.next->destination.port != 0) {
            if (current.events_frame_start) raise(0x9002, current.next->block_id, device.timestamp(), number);
            fill(current);
            ring.put(current.next);
            plan(current);
            free_from = send_planned(current);
            ++device.counted.frames_sent;
            ++frames_since_start;
            if (current.events_exposure_end) raise(0x9001, current.next->block_id, device.timestamp(), number);
            if (after_frame) after_frame(frames_since_start);
        }
        due += current.period;
        const auto now = clock::now();
        if (current.period.count() > 0 && now > due + current.period) {
            device.counted.frames_skipped += static_cast<uint64_t>((now - due) / current.period);
            due = now;
        }
    }
    if (link != nullptr) link->leave(link_sender);
    while (!late.empty() && !aborting) {
        std::this_thread::sleep_until(late.front().due);
        send_late(clock::now());
    }
    late.clear();
}

namespace {

// No picture has such bytes all over.
constexpr auto padding_byte = std::byte{0xA5};

void pad_lines(frame& picture) {
    if (picture.line_padding == 0 || picture.height == 0) return;
    const std::size_t line = picture.data.size() / picture.height, pitch = line + picture.line_padding;
    picture.data.resize(pitch * picture.height);
    for (std::size_t y = picture.height; y-- > 0;) {
        const auto to = picture.data.begin() + static_cast<std::ptrdiff_t>(y * pitch);
        const auto from = picture.data.begin() + static_cast<std::ptrdiff_t>(y * line);
        std::copy_backward(from, from + static_cast<std::ptrdiff_t>(line), to + static_cast<std::ptrdiff_t>(line));
        std::fill_n(to + static_cast<std::ptrdiff_t>(line), picture.line_padding, padding_byte);
    }
}

} // namespace

void stream_sender::fill(const settings& current) {
    frame& next = *current.next;
    const std::size_t picture = gige::test_picture_size(next.width, next.height, next.pixel_format);
    next.timestamp = device.timestamp();
    if (next.data.size() != picture) next.data.resize(picture);
    if (scene && current.pattern == 0 && optics::shows(next.pixel_format)) {
        const double since = static_cast<double>(next.number) * std::chrono::duration<double>{current.period}.count();
        scene->expose(next.number, since, current.sensor, next.data);
        pad_lines(next);
        if (next.chunk_length != 0) append_chunks(current);
        return;
    }
    double brightness = current.exposure / neutral_exposure;
    if (current.gain != 0) brightness *= std::pow(10.0, current.gain / 20);
    if (current.pattern == 1) brightness = 0;
    if (current.pattern == 2) brightness = 1e9;
    gige::fill_test_picture(current.pattern == 3 ? 0 : next.number, next.width, next.height, next.pixel_format,
                            next.data, brightness);
    pad_lines(next);
    if (next.chunk_length != 0) append_chunks(current);
}

void stream_sender::append_chunks(const settings& current) {
    frame& next = *current.next;
    auto& data = next.data;
    const auto put = [&](uint32_t value) {
        data.resize(data.size() + 4);
        gige::store32(&data[data.size() - 4], value);
    };
    const auto put64 = [&](uint64_t value) {
        put(static_cast<uint32_t>(value >> 32));
        put(static_cast<uint32_t>(value));
    };
    data.resize((data.size() + 3) / 4 * 4);
    const auto picture = static_cast<uint32_t>(data.size());
    put(reg::image_chunk_id);
    put(picture);
    for (std::size_t i = 0; i < reg::chunks.size(); ++i) {
        if (!current.chunks[i]) continue;
        const std::size_t before = data.size();
        switch (i) {
        case 0:
            put64(next.timestamp);
            break;
        case 1:
            put64(next.number);
            break;
        case 2:
            put64(std::bit_cast<uint64_t>(current.exposure));
            break;
        case 3:
            put64(std::bit_cast<uint64_t>(current.gain));
            break;
        case 4:
            put(next.width);
            break;
        case 5:
            put(next.height);
            break;
        default:
            put(next.pixel_format);
            break;
        }
        const auto length = static_cast<uint32_t>(data.size() - before);
        put(reg::chunks[i].id);
        put(length);
    }
    next.chunk_length = static_cast<uint32_t>(data.size());
}

void stream_sender::plan(const settings& current) {
    const auto& faults = current.faults;
    auto& counted = device.counted;
    const uint32_t count = current.next->trailer_id() + 1;
    planned.clear();
    for (uint32_t id = 0; id < count; ++id) {
        if (losses.lose(stream_dice, faults.loss, faults.burst_length)) {
            ++counted.packets_lost;
            planned.push_back({id, item::kind::lost});
            continue;
        }
        if (stream_dice.happens(faults.garbage)) {
            planned.push_back({id, item::kind::noise});
            ++counted.garbage_sent;
        }
        if (stream_dice.happens(faults.delay)) {
            planned.push_back({id, item::kind::late});
            ++counted.packets_delayed;
            continue;
        }
        const bool half = stream_dice.happens(faults.truncate);
        if (half) ++counted.packets_truncated;
        planned.push_back({id, half ? item::kind::half : item::kind::whole});
        if (stream_dice.happens(faults.duplicate)) {
            planned.push_back({id, item::kind::whole});
            ++counted.packets_duplicated;
        }
    }
    if (faults.reorder > 0 && planned.size() > 1) {
        for (std::size_t i = 0; i + 1 < planned.size(); ++i) {
            if (!stream_dice.happens(faults.reorder)) continue;
            std::swap(planned[i], planned[std::min(planned.size() - 1, i + 1 + stream_dice.below(8))]);
            ++counted.packets_reordered;
        }
    }
}

void stream_sender::set_fragmentation(bool forbidden) {
    if (fragmentation.exchange(forbidden ? 1 : 0) == (forbidden ? 1 : 0)) return;
    // Without the bit oversized packets are cut; there is nothing better to do than to send them all the same.
    [[maybe_unused]] const auto set = socket.set_dont_fragment(forbidden);
}

void stream_sender::transmit(std::span<packet> packets, std::size_t count, const frame& from) {
    std::array<gige::udp_socket::datagram, gige::udp_socket::max_batch> pieces;
    std::size_t bytes = 0;
    std::size_t used = 0;
    for (const packet& each : packets.first(count)) {
        if (from.dont_fragment && each.size() + gige::gvsp::ip_udp_header > device.options.mtu) continue;
        pieces[used++] = each.pieces;
        bytes += each.size();
    }
    if (used == 0 || device.silent) return;
    set_fragmentation(from.dont_fragment);
    for (std::size_t done = 0; done < used;) {
        const auto [sent, error] = socket.send_batch(from.destination, std::span{pieces}.subspan(done, used - done),
                                                     device.options.segmentation);
        done += sent;
        if (error) {
            ++device.counted.send_errors;
            ++done; // the one that could not be sent is lost like on any line
        }
    }
    device.counted.packets_sent += used;
    device.counted.bytes_sent += bytes;
}

void stream_sender::transmit_unscheduled(packet& one, const frame& from) {
    if (link == nullptr || link->pass_unscheduled(on_wire(one)))
        transmit({&one, 1}, 1, from);
    else
        ++device.counted.link_dropped;
}

stream_sender::clock::time_point stream_sender::send_planned(const settings& current) {
    frame& sending = *current.next;
    const auto paced = std::chrono::duration_cast<clock::duration>(current.period * device.options.pacing) /
                       static_cast<int64_t>(std::max<std::size_t>(1, planned.size()));
    const auto packet_time = std::max<clock::duration>(current.packet_time, paced);
    std::size_t group = gige::udp_socket::max_batch;
    if (packet_time.count() > 0)
        group = std::clamp<std::size_t>(count_ns(batch_span) / count_ns(packet_time), 1, group);
    if (current.packet_time.count() > 0 && current.packet_time >= batch_span) group = 1;

    const std::chrono::duration<double, std::milli> delay{current.faults.delay_ms};
    const auto start = link != nullptr ? current.start : clock::now();
    const bool timed = device.options.frame_sent != nullptr;
    int64_t last_sent = 0;
    for (std::size_t done = 0; done < planned.size() && !aborting;) {
        std::size_t count = std::min(group, planned.size() - done);
        if (timed && count > 1 && done + count == planned.size()) --count;
        std::size_t built = 0;
        uint32_t highest = 0;
        for (std::size_t i = 0; i < count; ++i) {
            const auto& [id, what] = planned[done + i];
            highest = std::max(highest, id);
            if (what == item::kind::lost) continue;
            if (what == item::kind::late) {
                late.push_back({clock::now() + std::chrono::duration_cast<clock::duration>(delay), current.next, id});
                continue;
            }
            packet& next = batch[built];
            build_packet(next, sending, id, false);
            auto& [head, body] = next.pieces;
            if (what == item::kind::half) {
                if (body.empty())
                    head = head.first(head.size() / 2);
                else
                    body = body.first(body.size() / 2);
            } else if (what == item::kind::noise) {
                for (std::size_t at = 0; at < 64; at += 8) gige::store64(&next.head[at], stream_dice.word());
                next.pieces = {std::span{next.head}.first(1 + stream_dice.below(64)), {}};
            }
            const auto due = start + packet_time * static_cast<int64_t>(done + i);
            if (link == nullptr || link->pass(link_sender, due, on_wire(next), aborting))
                ++built;
            else
                ++device.counted.link_dropped;
        }
        if (timed) last_sent = device_state::steady_ns();
        transmit(batch, built, sending);
        done += count;
        sending.sent_ids = std::max(sending.sent_ids.load(), highest + 1);
        if (!late.empty()) send_late(clock::now());
        if (packet_time.count() > 0) {
            const auto next = start + packet_time * static_cast<int64_t>(done);
            if (link != nullptr) link->promise(link_sender, next);
            if (next > clock::now() + std::chrono::microseconds{20}) std::this_thread::sleep_until(next);
        }
    }
    sending.sent_ids = sending.trailer_id() + 1;
    if (timed) device.options.frame_sent(sending.block_id, last_sent);
    return start + packet_time * static_cast<int64_t>(planned.size());
}

void stream_sender::send_late(clock::time_point now) {
    while (!late.empty() && late.front().due <= now) {
        packet each;
        build_packet(each, *late.front().from, late.front().id, false);
        transmit_unscheduled(each, *late.front().from);
        late.pop_front();
    }
}

void stream_sender::fire_test_packet() {
    uint32_t size_register = 0;
    gige::endpoint to;
    bool extended = false;
    {
        const std::lock_guard guard{device.mutex};
        size_register = device.memory.get(boot::stream_packet_size);
        to = {device.memory.get(boot::stream_address), static_cast<uint16_t>(device.memory.get(boot::stream_port))};
        extended = (device.memory.get(boot::stream_configuration) & bits::stream_extended_ids) != 0;
    }
    const std::size_t size = size_register & 0xFFFF;
    if (to.port == 0 || size <= gige::gvsp::ip_udp_header + gige::gvsp::extended_header) return;
    ++device.counted.test_packets;
    if (size > device.options.mtu || device.silent) return; // sent with don't-fragment: it vanishes
    std::vector<std::byte> bytes(size - gige::gvsp::ip_udp_header);
    const auto header =
        gige::gvsp::store_header(bytes.data(), {extended, false, 0, 0, gige::gvsp::format::payload, {}});
    for (std::size_t i = header; i < bytes.size(); ++i) bytes[i] = static_cast<std::byte>(i);
    set_fragmentation(true);
    if (socket.send(to, bytes)) ++device.counted.send_errors;
}

void stream_sender::count_refused_frame(uint64_t block_id) {
    if (std::ranges::find(refused_blocks, block_id) != refused_blocks.end()) return;
    refused_blocks[device.counted.frames_refused++ % refused_blocks.size()] = block_id;
}

void stream_sender::answer(const resend_request& request) {
    auto& counted = device.counted;
    ++counted.resend_requests;
    fault_options faults;
    gige::endpoint to;
    {
        const std::lock_guard guard{device.mutex};
        faults = device.faults;
        to = {device.memory.get(boot::stream_address), static_cast<uint16_t>(device.memory.get(boot::stream_port))};
    }
    if (request.last >= request.first) counted.resend_packets_requested += request.last - request.first + 1;
    if (resend_dice.happens(faults.resend_request_loss)) {
        ++counted.resend_requests_lost;
        return;
    }
    if (!device.options.resend || to.port == 0 || request.last < request.first) return;
    const auto [from, result] = ring.find(request.block_id, request.extended);
    packet built;
    const auto refuse = [&](uint32_t id, status why) {
        build_status(built, request.extended, request.block_id, id, why);
        ++counted.resends_refused;
        if (why != status::packet_not_yet_available) count_refused_frame(request.block_id);
        if (!device.silent && socket.send(to, built.pieces.head)) ++counted.send_errors;
    };
    if (!from) {
        refuse(result == status::packet_and_previous_removed ? request.last : request.first, result);
        return;
    }
    const uint32_t trailer = from->trailer_id();
    if (request.first > trailer) {
        refuse(request.first, status::packet_unavailable);
        return;
    }
    // The largest id asks for the rest of the block.
    const uint32_t last = std::min({request.last, trailer, request.first + max_resends});
    for (uint32_t id = request.first; id <= last; ++id) {
        if (id >= from->sent_ids) {
            refuse(id, status::packet_not_yet_available);
            return;
        }
        if (resend_dice.happens(faults.resend_refuse)) {
            refuse(id, status::packet_unavailable);
            continue;
        }
        if (resend_dice.happens(faults.resend_loss)) {
            ++counted.resends_lost;
            continue;
        }
        build_packet(built, *from, id, true);
        ++counted.packets_resent;
        transmit_unscheduled(built, *from);
    }
}

} // namespace camera_sim
