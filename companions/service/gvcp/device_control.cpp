#include "device_control.h"

#include <gds_shared/gigecam_error.h>

#include <algorithm>
#include <array>
#include <utility>

namespace gvcp_master {

namespace gvcp = gige::gvcp;
namespace reg = gige::gvcp::reg;
namespace bits = gige::gvcp::bits;
using gds_shared::gigecam_errc;
using clock = std::chrono::steady_clock;

namespace {

// Cameras are to take no less than half a second; one that takes less shall not be lost for it.
constexpr uint32_t shortest_heartbeat_ms = 30;
constexpr uint32_t longest_heartbeat_ms = 3'600'000;
// A camera that is slow, but reads its memory, takes no longer for a request of a long transfer, on the average.
constexpr milliseconds slow_read{50};

int64_t requests_of(std::size_t bytes, std::size_t each) { return static_cast<int64_t>(bytes / each + 1); }

} // namespace

device_control::device_control(options from, std::unique_ptr<control_channel> opened)
    : chosen{std::move(from)}, channel{std::move(opened)} {}

std::expected<std::unique_ptr<device_control>, std::error_code> device_control::open(options chosen) {
    auto channel = control_channel::open(chosen.device, {chosen.local_address, chosen.port},
                                         {.attempt = chosen.attempt, .pending = chosen.pending});
    if (!channel) return std::unexpected(channel.error());
    std::unique_ptr<device_control> opened{new device_control{std::move(chosen), std::move(*channel)}};
    opened->on_cancel.emplace(opened->cancelled(), [self = opened.get()] { self->channel->cancel(); });
    opened->on_stop.emplace(opened->chosen.stop, [self = opened.get()] { self->cancel(); });
    {
        const on_request on_opening{opened->chosen.opening, [self = opened.get()] { self->channel->cancel(); }};
        if (const auto error = opened->take_privilege()) return std::unexpected(error);
    }
    if (opened->chosen.opening.stop_requested())
        return std::unexpected(std::make_error_code(std::errc::operation_canceled));
    opened->thread = std::thread{[self = opened.get()] { self->run_heartbeat(); }};
    return opened;
}

std::error_code device_control::take_privilege() {
    const auto wanted = chosen.access == access_mode::exclusive ? bits::exclusive
                        : chosen.access == access_mode::control ? bits::control
                                                                : 0;
    // One that is exclusively another's says nothing: who waits for it looks when it is ours.
    auto stranger = check_identity();
    const bool looks_later = wanted != 0 && stranger == make_error_code(gigecam_errc::access_denied);
    if (stranger && !looks_later) return stranger;
    if (wanted != 0) {
        if (const auto error = claim(wanted)) {
            // The camera may have given control, in an answer that was lost or that nobody waited for.
            if (error == std::errc::operation_canceled || error == make_error_code(gigecam_errc::timeout))
                (void)post_register(reg::privilege, 0);
            return error;
        }
        privileged = true;
        last_privilege = wanted;
        if (looks_later) stranger = check_identity();
        if (stranger) return stranger;
    } else if (const auto held = channel->read_register(reg::privilege, default_timeout); !held) {
        return held.error();
    }
    control_capability = channel->read_register(reg::control_capability, default_timeout).value_or(0);
    if (wanted != 0 && chosen.heartbeat_timeout.count() > 0) {
        const auto value = static_cast<uint32_t>(chosen.heartbeat_timeout.count());
        if (const auto error = channel->write_register(reg::heartbeat_timeout, value, default_timeout)) return error;
    }
    if (wanted != 0 && (control_capability & bits::can_pending_ack) != 0) {
        // A camera that refuses simply answers late.
        if (const auto now = channel->read_register(reg::control_configuration, default_timeout))
            (void)channel->write_register(reg::control_configuration, *now | bits::pending_ack_on, default_timeout);
    }
    if (const auto now = channel->read_register(reg::heartbeat_timeout, default_timeout)) take_heartbeat_timeout(*now);
    return {};
}

std::error_code device_control::check_identity() {
    if (!chosen.mac) return {};
    std::array<std::byte, 8> mac;
    if (const auto error = channel->read_block(reg::mac_high, mac, default_timeout)) return error;
    if ((gige::load64(mac.data()) & 0xFFFF'FFFF'FFFF) == *chosen.mac) return {};
    // This is the first link's; one that was found by another link has that one's.
    if (channel->read_register(reg::interface_count, default_timeout).value_or(1) > 1) return {};
    return std::make_error_code(std::errc::host_unreachable);
}

std::error_code device_control::claim(uint32_t wanted) {
    // To the camera we are the session before; giving its control back ends what that one left running.
    if (chosen.port != 0 && channel->local().port == chosen.port)
        (void)channel->write_register(reg::privilege, 0, default_timeout);
    auto error = channel->write_register(reg::privilege, wanted, default_timeout);
    if (!chosen.patient || error != make_error_code(gigecam_errc::access_denied)) return error;
    // Perhaps of one who ended without giving it back: then the camera drops it when its heartbeats are missed.
    const auto theirs = channel->read_register(reg::heartbeat_timeout, default_timeout);
    const auto wait = std::min(milliseconds{theirs.value_or(3000)} + 2 * chosen.attempt, longest_patience);
    const auto until = clock::now() + wait;
    while (error == make_error_code(gigecam_errc::access_denied) && clock::now() < until) {
        if (!channel->pause(chosen.attempt)) return std::make_error_code(std::errc::operation_canceled);
        error = channel->write_register(reg::privilege, wanted, default_timeout);
    }
    return error;
}

void device_control::take_heartbeat_timeout(uint32_t ms) {
    const std::lock_guard guard{mutex};
    heartbeat = milliseconds{std::clamp(ms, shortest_heartbeat_ms, longest_heartbeat_ms)};
}

device_control::~device_control() {
    {
        const std::lock_guard guard{mutex};
        quit = true;
    }
    changed.notify_all();
    on_stop.reset();
    on_cancel.reset();
    channel->cancel(); // a heartbeat that waits for its answer
    if (thread.joinable()) thread.join();
    channel->go_on();
    if (!privileged) return;
    // A lost one may be the controller to the camera yet. If another is, also one of this process, that one has another
    // port, and is not ended by it.
    if (lost_flag || chosen.stop.stop_requested())
        (void)post_register(reg::privilege, 0);
    else
        (void)channel->write_register(reg::privilege, 0, milliseconds{500});
}

void device_control::run_heartbeat() {
    std::unique_lock lock{mutex};
    for (;;) {
        // Any answered request is a heartbeat.
        const auto interval = heartbeat / 3;
        const bool asked = changed.wait_until(lock, channel->last_answer() + interval,
                                              [&] { return quit || doubtful || times_written; });
        if (quit || lost_flag) return;
        if (!asked && clock::now() - channel->last_answer() < interval) continue;
        const bool refused = std::exchange(doubtful, false);
        const bool times = std::exchange(times_written, false);
        lock.unlock();
        const auto found = beat(interval, refused, times);
        const bool silent = clock::now() - channel->last_answer() >= 3 * interval;
        if (found == session::lost || (found == session::unanswered && silent)) {
            report_loss();
            return;
        }
        lock.lock();
        if (found == session::alive) continue;
        // The questions stay. Callers that were given way to come first, and a socket that fails at once must not turn
        // this into a busy loop.
        doubtful = doubtful || refused;
        times_written = times_written || times;
        const auto has_quit = [this] { return quit; };
        if (found == session::ended)
            changed.wait(lock, has_quit);
        else
            changed.wait_for(lock, std::min(chosen.attempt, interval), has_quit);
    }
}

// All in one turn: what callers write to these registers meanwhile is not undone.
device_control::session device_control::beat(milliseconds interval, bool refused, bool times) {
    const auto heard = channel->last_answer();
    control_channel::turn turn{*channel, interval, control_channel::turn::gives_way};
    if (!turn) return session::not_asked; // the request under way is as good
    if (!refused && !times && clock::now() - channel->last_answer() < interval)
        return session::alive; // so was the last
    const auto outcome_of = [&](const std::error_code& error) {
        if (error == std::errc::operation_canceled) return session::ended;
        if (error == make_error_code(gigecam_errc::access_denied) && privileged) return session::lost;
        const bool answered = !error || (error.category() == gds_shared::gigecam_error_category() &&
                                         error != make_error_code(gigecam_errc::timeout));
        return answered ? session::alive : session::unanswered;
    };
    const auto held = turn.read_register(reg::privilege);
    if (!held) return outcome_of(held.error()); // denied when it is exclusively another's
    if (times) {
        // Cameras round it, so it is read back.
        const auto now = turn.read_register(reg::heartbeat_timeout);
        if (!now) return outcome_of(now.error());
        take_heartbeat_timeout(*now);
    }
    if (!privileged) return session::alive;
    if ((*held & (bits::exclusive | bits::control)) == 0) return session::lost; // it restarted or missed us
    const bool changed_hands = *held != last_privilege;
    const bool was_away = channel->last_answer() - heard > interval + interval / 2;
    const bool open_to_others = (*held & bits::switchover) != 0;
    if (refused || changed_hands || was_away || open_to_others) {
        const auto outcome = outcome_of(write_as_controller(turn, *held));
        if (outcome != session::alive) return outcome;
    }
    last_privilege = *held;
    return session::alive;
}

// Anyone may read the privilege, and another's looks like ours. Only the controller may write: something that changes
// nothing is written.
std::error_code device_control::write_as_controller(control_channel::turn& turn, uint32_t privilege) {
    if ((privilege & bits::switchover) == 0) return turn.write_register(reg::privilege, privilege);
    // Writing the privilege would take it back from one who has it by right.
    const auto timeout = turn.read_register(reg::heartbeat_timeout);
    return timeout ? turn.write_register(reg::heartbeat_timeout, *timeout) : timeout.error();
}

void device_control::report_loss() {
    if (lost_flag.exchange(true)) return;
    changed.notify_all();
    if (!chosen.lost) return;
    try {
        chosen.lost(make_error_code(gigecam_errc::device_lost));
    } catch (const std::exception&) {
        // No memory for a word about it.
    }
}

std::error_code device_control::check_range(uint64_t address, std::size_t size) const {
    if (lost_flag) return make_error_code(gigecam_errc::device_lost);
    if (address > 0xFFFFFFFF || size > 0x100000000 - address) return make_error_code(gigecam_errc::invalid_address);
    return {};
}

std::error_code device_control::read_memory(uint64_t address, std::span<std::byte> to, milliseconds timeout) {
    if (const auto error = check_range(address, to.size())) return error;
    // What lies in a block may be no register.
    const bool single = to.size() == 4;
    const auto requests = requests_of(to.size(), gvcp::max_memory_access);
    const auto give_up = clock::now() + std::max(timeout, chosen.transfer) + requests * slow_read;
    while (!to.empty()) {
        if (clock::now() > give_up) return make_error_code(gigecam_errc::timeout);
        const auto lead = static_cast<std::size_t>(address % 4);
        const auto start = static_cast<uint32_t>(address - lead);
        const std::size_t count = std::min(to.size(), gvcp::max_memory_access - lead);
        const std::size_t whole = (lead + count + 3) / 4 * 4;
        if (lead == 0 && whole == count) {
            if (single) {
                const auto value = channel->read_register(start, timeout);
                if (!value) return value.error();
                gige::store32(to.data(), *value);
            } else if (const auto error = channel->read_block(start, to.first(count), timeout)) {
                return error;
            }
        } else {
            std::array<std::byte, gvcp::max_memory_access> words;
            if (const auto error = channel->read_block(start, std::span{words}.first(whole), timeout)) return error;
            std::copy_n(&words[lead], count, to.begin());
        }
        address += count;
        to = to.subspan(count);
    }
    return {};
}

template <class Write>
std::error_code device_control::guarded(uint64_t address, std::size_t size, Write write) {
    const auto covers = [&](uint32_t at) { return address < at + 4 && at < address + size; };
    const bool times = covers(reg::heartbeat_timeout);
    const auto error = write();
    const bool refused = privileged && error == make_error_code(gigecam_errc::access_denied);
    if (times || refused) {
        {
            const std::lock_guard guard{mutex};
            times_written = times_written || times;
            doubtful = doubtful || refused;
        }
        changed.notify_all();
    }
    return error;
}

std::error_code device_control::write_memory(uint64_t address, std::span<const std::byte> from, milliseconds timeout) {
    if (chosen.access == access_mode::read_only) return make_error_code(gigecam_errc::access_denied);
    if (const auto error = check_range(address, from.size())) return error;
    return guarded(address, from.size(), [&] { return write_words(address, from, timeout); });
}

std::error_code device_control::write_words(uint64_t address, std::span<const std::byte> from, milliseconds timeout) {
    const bool blocks = (control_capability & bits::can_write_mem) != 0;
    const bool single = !blocks || from.size() <= 4;
    const std::size_t limit = blocks ? gvcp::max_memory_access : 4;
    // What is half written is worse than what is late: flash memory may take seconds for each request.
    const auto requests = requests_of(from.size(), limit);
    const auto give_up =
        clock::now() + std::max(timeout, chosen.transfer) + requests * std::max(timeout, default_timeout);
    while (!from.empty()) {
        if (clock::now() > give_up) return make_error_code(gigecam_errc::timeout);
        const auto lead = static_cast<std::size_t>(address % 4);
        const auto start = static_cast<uint32_t>(address - lead);
        const std::size_t count = std::min(from.size(), limit - lead);
        const std::size_t whole = (lead + count + 3) / 4 * 4;
        std::array<std::byte, gvcp::max_memory_access> words;
        const auto used = std::span{words}.first(whole);
        if (lead != 0)
            if (const auto error = channel->read_block(start, used.first(4), timeout)) return error;
        if (lead + count != whole && (lead == 0 || whole > 4)) {
            const auto last = static_cast<uint32_t>(start + whole - 4);
            if (const auto error = channel->read_block(last, used.last(4), timeout)) return error;
        }
        std::copy_n(from.begin(), count, &words[lead]);
        const auto error = whole == 4 && single ? channel->write_register(start, gige::load32(words.data()), timeout)
                                                : channel->write_block(start, used, timeout);
        if (error) return error;
        address += count;
        from = from.subspan(count);
    }
    return {};
}

std::expected<uint32_t, std::error_code> device_control::read_register(uint64_t address, milliseconds timeout) {
    if (const auto error = check_range(address, 4)) return std::unexpected(error);
    return channel->read_register(static_cast<uint32_t>(address), timeout);
}

std::error_code device_control::write_register(uint64_t address, uint32_t value, milliseconds timeout) {
    if (chosen.access == access_mode::read_only) return make_error_code(gigecam_errc::access_denied);
    if (const auto error = check_range(address, 4)) return error;
    return guarded(address, 4, [&] { return channel->write_register(static_cast<uint32_t>(address), value, timeout); });
}

std::error_code device_control::post_register(uint32_t address, uint32_t value) {
    std::array<std::byte, 8> body;
    gige::store32(&body[0], address);
    gige::store32(&body[4], value);
    return channel->send_only(gvcp::command::write_reg, 0, body);
}

std::error_code device_control::request_resend(uint32_t stream, uint64_t block_id, uint32_t first, uint32_t last,
                                               bool extended) {
    if (lost_flag) return make_error_code(gigecam_errc::device_lost); // a request would keep control
    std::array<std::byte, 20> body{};
    gige::store16(&body[0], static_cast<uint16_t>(stream));
    if (extended) {
        gige::store32(&body[4], first);
        gige::store32(&body[8], last);
        gige::store64(&body[12], block_id);
        return channel->send_only(gvcp::command::packet_resend, gvcp::flag::extended_ids, body);
    }
    gige::store16(&body[2], static_cast<uint16_t>(block_id));
    gige::store32(&body[4], first & 0xFFFFFF);
    gige::store32(&body[8], last & 0xFFFFFF);
    return channel->send_only(gvcp::command::packet_resend, 0, std::span{body}.first(12));
}

std::expected<std::string, std::error_code> device_control::read_text(uint64_t address, std::size_t capacity) {
    std::string text(capacity, '\0');
    if (const auto error = read_memory(address, std::as_writable_bytes(std::span{text}))) return std::unexpected(error);
    text.resize(std::min(text.find('\0'), text.size()));
    return text;
}

std::error_code device_control::write_user_name(const std::string& name) {
    if ((control_capability & bits::has_user_name) == 0) return make_error_code(gigecam_errc::not_implemented);
    constexpr std::size_t capacity = 16;
    if (name.size() >= capacity || name.find('\0') != std::string::npos)
        return make_error_code(gigecam_errc::invalid_parameter);
    std::array<char, capacity> padded{};
    std::ranges::copy(name, padded.begin());
    return write_memory(reg::user_name, std::as_bytes(std::span{padded}));
}

std::error_code device_control::write_persistent_ip(bool use, uint32_t address, uint32_t mask, uint32_t gateway) {
    const auto current = read_register(reg::ip_config_current);
    if (!current) return current.error();
    if (use) {
        if (const auto error = write_register(reg::persistent_address, address)) return error;
        if (const auto error = write_register(reg::persistent_mask, mask)) return error;
        if (const auto error = write_register(reg::persistent_gateway, gateway)) return error;
    }
    const uint32_t wanted = use ? *current | bits::ip_persistent : *current & ~bits::ip_persistent;
    return write_register(reg::ip_config_current, wanted);
}

std::error_code device_control::use_dhcp() {
    const auto current = read_register(reg::ip_config_current);
    if (!current) return current.error();
    return write_register(reg::ip_config_current, (*current & ~bits::ip_persistent) | bits::ip_dhcp);
}

} // namespace gvcp_master
