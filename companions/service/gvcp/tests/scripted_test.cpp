// The control master against a camera that misbehaves.
#include "test_cameras.h"

#include <gvcp/device_document.h>
#include <gvcp/discovery.h>
#include <gvcp/message_receiver.h>

#include <algorithm>
#include <future>

namespace {

using namespace gvcp_master;
using gds_shared::gigecam_errc;
using gige::gvcp::command;
using gige::gvcp::status;
namespace boot = gige::gvcp::reg;
namespace bits = gige::gvcp::bits;
using camera = scripted_camera;

constexpr uint32_t plain = 0x8000; // a register of the test's
constexpr uint32_t table = 0x9000; // memory that is no register

std::expected<std::unique_ptr<device_control>, std::error_code> try_open(device_control::options chosen = {}) {
    chosen.device = {own_address(1), gige::gvcp::port};
    chosen.local_address = own_address(250);
    return device_control::open(std::move(chosen));
}

std::unique_ptr<device_control> open_scripted(device_control::options chosen = {}) {
    auto opened = try_open(std::move(chosen));
    if (!opened) throw std::system_error(opened.error());
    return std::move(*opened);
}

TEST(ScriptedCamera, answers_that_are_not_ours_are_passed_over) {
    int seen = 0;
    std::optional<camera::request> first;
    const auto foreign = [&](camera& self, const camera::request& got) {
        if (seen++ == 0) { // a repetition's would come behind the answer, when the next request has that id
            self.answer_word(got, 0xBAD, static_cast<uint16_t>(got.header.request_id + 1));
            self.answer(got, status::access_denied, {}, static_cast<uint16_t>(got.header.request_id - 1));
        }
        self.answer_word(got, 7);
    };
    const auto twice = [](camera& self, const camera::request& got) {
        self.answer_word(got, 7);
        self.answer_word(got, 0xBAD);
    };
    const auto late = [&](camera& self, const camera::request& got) {
        if (seen++ == 0) {
            first = got;
            return;
        }
        EXPECT_EQ(got.header.request_id, first->header.request_id) << "a repetition keeps its id";
        self.answer_word(*first, 7);
        self.answer_word(got, 0xBAD);
    };
    const auto lost_after_pending = [&](camera& self, const camera::request& got) {
        if (seen++ == 0) return self.ask_for_patience(got, 30); // and then nothing
        self.answer_word(got, 7);
    };
    const auto wrong_kind = [](camera& self, const camera::request& got) {
        self.answer(got, status::success, std::array<std::byte, 4>{}, {}, command::read_mem_ack);
        self.answer_word(got, 7);
    };
    const auto stranger = [](camera& self, const camera::request& got) {
        const auto other = gige::udp_socket::open({own_address(2), gige::gvcp::port});
        std::array<std::byte, 12> lie{};
        gige::gvcp::store_ack(lie.data(), {status::success, command::read_reg_ack, 4, got.header.request_id});
        EXPECT_FALSE(other->send(got.from, lie));
        self.answer_word(got, 7);
    };
    for (const auto& script : std::initializer_list<std::function<void(camera&, const camera::request&)>>{
             foreign, twice, late, lost_after_pending, wrong_kind, stranger}) {
        seen = 0;
        camera cam{own_address(1), [&](camera& self, const camera::request& got) {
                       if (!got.is(command::read_reg, plain)) return false;
                       script(self, got);
                       return true;
                   }};
        cam.set(plain + 4, 8);
        const auto device = open_scripted({.attempt = milliseconds{100}});
        EXPECT_EQ(device->read_register(plain).value_or(0), 7U);
        EXPECT_EQ(device->read_register(plain + 4).value_or(0), 8U) << "what is left over answers no other request";
    }
}

TEST(ScriptedCamera, answers_too_short_are_errors) {
    camera cam{own_address(1), [](camera& self, const camera::request& got) {
                   if (got.is(command::read_reg, plain)) self.answer(got, status::success, std::array<std::byte, 2>{});
                   std::array<std::byte, 9> three_too_few{};
                   gige::store32(three_too_few.data(), table);
                   if (got.is(command::read_mem, table)) self.answer(got, status::success, three_too_few);
                   return got.is(command::read_reg, plain) || got.is(command::read_mem, table);
               }};
    const auto device = open_scripted();
    EXPECT_EQ(device->read_register(plain).error(), gigecam_errc::parsing_ack_packet_failed);
    std::array<std::byte, 8> bytes;
    EXPECT_EQ(device->read_memory(table, bytes), gigecam_errc::parsing_ack_packet_failed);
    EXPECT_EQ(device->write_user_name("x"), gigecam_errc::not_implemented) << "it has none";
    EXPECT_EQ(fetch_document(*device, parse_document_url("local:a.xml;0;4000001"), {}).error(),
              std::errc::file_too_large);
}

// Each is to take its own time or 300 ms in all, and may not take for ever. What works on it has more: a busy machine
// may take some of it away.
TEST(ScriptedCamera, patience_is_granted_and_has_an_end) {
    std::atomic<bool> over = false;
    const auto works_on_it = [](camera& self, const camera::request& got) {
        self.ask_for_patience(got, 10'000);
        std::this_thread::sleep_for(milliseconds{1200});
        self.answer_word(got, 7);
    };
    const auto says_nothing = [](camera&, const camera::request&) {};
    const auto asks_and_dies = [](camera& self, const camera::request& got) { self.ask_for_patience(got, 65'000); };
    const auto asks_again = [](camera& self, const camera::request& got) { self.ask_for_patience(got, 1); };
    const auto asks_without_a_pause = [&](camera& self, const camera::request& got) {
        while (!over) self.ask_for_patience(got, 1);
    };
    const auto answers_something_else = [&](camera& self, const camera::request& got) {
        while (!over) self.answer(got, status::success, std::array<std::byte, 4>{}, {}, command::read_mem_ack);
    };
    const std::pair<const char*, std::function<void(camera&, const camera::request&)>> rows[]{
        {"works on it", works_on_it},
        {"says nothing", says_nothing},
        {"asks and dies", asks_and_dies},
        {"asks again", asks_again},
        {"asks without a pause", asks_without_a_pause},
        {"answers something else", answers_something_else},
    };
    for (const auto& [name, script] : rows) {
        SCOPED_TRACE(name);
        over = false;
        camera cam{own_address(1), [&](camera& self, const camera::request& got) {
                       if (!got.is(command::read_reg, plain)) return false;
                       script(self, got);
                       return true;
                   }};
        const bool works = std::string_view{name} == "works on it";
        const milliseconds time{works ? 1000 : 50};
        const auto device = works ? open_scripted({.attempt = time})
                                  : open_scripted({.attempt = milliseconds{20}, .pending = milliseconds{300}});
        auto got = std::async(std::launch::async, [&] { return device->read_register(plain, time); });
        EXPECT_EQ(got.wait_for(std::chrono::seconds{20}), std::future_status::ready) << "it waits for ever";
        over = true;
        const auto value = got.get();
        if (works) {
            EXPECT_EQ(value.value_or(0), 7U);
            EXPECT_EQ(cam.count(command::read_reg, plain), 1U) << "no repetition while it works";
        } else {
            EXPECT_EQ(value.error(), gigecam_errc::timeout);
        }
    }
}

TEST(ScriptedCamera, blocks_never_touch_memory_as_registers) {
    camera cam{own_address(1), [](camera& self, const camera::request& got) {
                   const bool reg = got.header.code == command::read_reg || got.header.code == command::write_reg;
                   if (!reg || got.word(0) < table) return false;
                   self.refuse(got, status::invalid_address);
                   return true;
               }};
    const auto device = open_scripted();
    for (const std::size_t size : {8U, 540U, 1076U, 541U, 537U}) {
        std::vector<std::byte> bytes(size);
        for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::byte>(i * 3 + 1);
        EXPECT_FALSE(device->write_memory(table, bytes)) << size;
        std::vector<std::byte> got(size);
        EXPECT_FALSE(device->read_memory(table, got)) << size;
        EXPECT_EQ(got, bytes) << size;
    }
}

TEST(ScriptedCamera, the_heartbeat_follows_its_register) {
    for (const bool by_memory : {false, true}) {
        camera cam{own_address(1)};
        cam.set(boot::heartbeat_timeout, 600'000);
        const auto device = open_scripted();
        if (by_memory) {
            std::array<std::byte, 8> around{};
            gige::store32(&around[4], 500);
            ASSERT_FALSE(device->write_memory(boot::heartbeat_timeout - 4, around));
        } else {
            ASSERT_FALSE(device->write_register(boot::heartbeat_timeout, 500));
        }
        EXPECT_TRUE(eventually([&] { return cam.count(command::read_reg, boot::privilege) >= 3; })) << by_memory;
    }
}

TEST(ScriptedCamera, callers_keep_their_time_whatever_the_heartbeat_waits_for) {
    std::atomic<bool> mute = false;
    camera cam{own_address(1), [&](camera& self, const camera::request& got) {
                   if (got.is(command::write_reg, plain)) self.refuse(got, status::access_denied);
                   return got.is(command::write_reg, plain) || (mute && got.is(command::read_reg, boot::privilege));
               }};
    cam.set(boot::heartbeat_timeout, 3'600'000); // a heartbeat waits for 20 minutes
    cam.set(plain + 4, 8);
    const auto device = open_scripted();
    mute = true;
    EXPECT_EQ(device->write_register(plain, 1), gigecam_errc::access_denied); // makes it ask at once
    ASSERT_TRUE(eventually([&] { return cam.count(command::read_reg, boot::privilege) > 0; }));
    auto done = std::async(std::launch::async, [&] {
        EXPECT_EQ(device->read_register(plain + 4).value_or(0), 8U);
        EXPECT_FALSE(device->write_register(boot::heartbeat_timeout, 3'000'000)) << "one of the heartbeat's own";
    });
    EXPECT_EQ(done.wait_for(std::chrono::seconds{20}), std::future_status::ready);
    mute = false;
    EXPECT_TRUE(eventually([&] { return cam.count(command::read_reg, boot::heartbeat_timeout) > 1; })) << "it asks on";
    EXPECT_FALSE(device->is_lost());
}

// Who asks again at once would be quicker than one that has to wake up first.
TEST(ScriptedCamera, callers_take_turns_in_the_order_in_which_they_came) {
    const camera mute{own_address(1),
                      [](camera&, const camera::request& got) { return got.is(command::read_reg, plain); }};
    const auto channel = control_channel::open({own_address(1), gige::gvcp::port}, {own_address(250), 0}, {});
    ASSERT_TRUE(channel);
    using turn = control_channel::turn;
    constexpr std::chrono::seconds patience{30};
    for (int i = 0; i < 10; ++i) {
        std::atomic<int> place = 0;
        std::optional<turn> mine{std::in_place, **channel, patience, turn::gives_way};
        auto other = std::async(std::launch::async, [&] {
            const turn theirs{**channel, patience};
            return theirs ? ++place : 0;
        });
        EXPECT_EQ(mine->read_register(plain).error(), std::errc::resource_unavailable_try_again) << "it waits";
        mine.reset();
        mine.emplace(**channel, patience);
        EXPECT_TRUE(*mine);
        EXPECT_EQ(++place, 2) << i;
        mine.reset();
        EXPECT_EQ(other.get(), 1) << i;
    }
}

TEST(ScriptedCamera, what_a_caller_is_answered_is_a_heartbeat) {
    using clock = std::chrono::steady_clock;
    constexpr auto interval = milliseconds{200};
    std::atomic<bool> under_way = false;
    std::atomic<int> too_soon = 0;
    clock::time_point answered; // the camera's thread's, before the answer leaves
    camera cam{own_address(1), [&](camera& self, const camera::request& got) {
                   const bool heartbeat = got.is(command::read_reg, boot::privilege);
                   if (heartbeat && under_way && clock::now() - answered < interval) ++too_soon;
                   answered = clock::now();
                   self.serve(got);
                   return true;
               }};
    cam.set(boot::heartbeat_timeout, 3 * interval.count());
    const auto device = open_scripted({.attempt = milliseconds{2000}}); // a repetition is answered once more
    under_way = true;
    for (int i = 0; i < 12; ++i) {
        ASSERT_TRUE(device->read_register(plain));
        std::this_thread::sleep_for(interval / 4);
    }
    const auto before = cam.count(command::read_reg, boot::privilege);
    EXPECT_TRUE(eventually([&] { return cam.count(command::read_reg, boot::privilege) > before; }))
        << "silence ends it";
    EXPECT_EQ(too_soon, 0);
}

TEST(ScriptedCamera, another_controller_is_noticed_and_a_locked_register_is_none) {
    enum class taken { seen_by_write, silently_with_switchover, after_it_was_away, exclusively };
    for (const auto how :
         {taken::seen_by_write, taken::silently_with_switchover, taken::after_it_was_away, taken::exclusively}) {
        std::atomic<bool> away = false;
        camera cam{own_address(1), [&](camera& self, const camera::request& got) {
                       if (got.is(command::write_reg, plain)) self.refuse(got, status::access_denied); // locked
                       return got.is(command::write_reg, plain) || away.load();
                   }};
        cam.set(boot::heartbeat_timeout, how == taken::seen_by_write ? 600'000 : 1500);
        std::atomic<int> lost = 0;
        const auto device = open_scripted({.attempt = milliseconds{20}, .lost = [&](std::error_code) { ++lost; }});
        if (how == taken::silently_with_switchover) {
            ASSERT_FALSE(device->write_register(boot::privilege, bits::control | bits::switchover));
        }
        const auto asked = [&] { return cam.count(command::write_reg, boot::privilege); };
        const auto before = asked();
        EXPECT_EQ(device->write_register(plain, 1), gigecam_errc::access_denied);
        if (how == taken::silently_with_switchover) {
            // As often as it is asked, not once for the refusal and once for the change.
            EXPECT_TRUE(eventually([&] { return cam.count(command::write_reg, boot::heartbeat_timeout) >= 3; }));
        } else {
            EXPECT_TRUE(eventually([&] { return asked() > before; })) << "it makes sure";
        }
        EXPECT_TRUE(device->read_register(plain)) << "and goes on";
        EXPECT_EQ(lost, 0);

        away = how == taken::after_it_was_away;
        if (away) std::this_thread::sleep_for(milliseconds{1200}); // less than the time-out, more than half of it
        cam.hand_control_to({own_address(3), 1234});
        if (how == taken::exclusively) cam.set(boot::privilege, bits::exclusive);
        away = false;
        if (how == taken::seen_by_write) {
            EXPECT_EQ(device->write_register(plain + 4, 1), gigecam_errc::access_denied);
        }
        EXPECT_TRUE(eventually([&] { return lost == 1; })) << static_cast<int>(how);
        EXPECT_EQ(device->write_register(plain + 4, 1), gigecam_errc::device_lost);
    }
}

TEST(ScriptedCamera, control_comes_back_by_the_remembered_port_or_by_patience) {
    camera cam{own_address(1)};
    cam.set(boot::heartbeat_timeout, 1000);
    // A service that was killed: its socket is gone, the camera still holds it for the controller.
    const auto killed = gige::udp_socket::open({own_address(250), 0})->local();
    cam.hand_control_to(killed);
    cam.set(boot::privilege, bits::control);
    constexpr milliseconds unrepeated{2000}; // each is counted
    EXPECT_EQ(try_open({.attempt = unrepeated}).error(), gigecam_errc::access_denied);
    {
        const auto device = open_scripted({.port = killed.port, .attempt = unrepeated});
        EXPECT_EQ(cam.count(command::write_reg, boot::privilege), 3U) << "refused; given back; taken";
        // The port is ours, so another session gets one of its own, and is refused.
        EXPECT_EQ(try_open({.port = killed.port}).error(), gigecam_errc::access_denied);
    }
    cam.hand_control_to(killed);
    const auto before = cam.count(command::write_reg, boot::privilege);
    std::thread expiry{[&] {
        EXPECT_TRUE(eventually([&] { return cam.count(command::write_reg, boot::privilege) >= before + 3; }));
        cam.take_control_away();
    }};
    EXPECT_TRUE(try_open({.patient = true, .attempt = milliseconds{50}}));
    expiry.join();
}

TEST(ScriptedCamera, closing_and_stopping_wait_for_no_answer) {
    for (const bool stopped : {false, true}) {
        std::promise<void> under_way;
        std::atomic<bool> hold = false;
        camera cam{own_address(1), [&](camera& self, const camera::request& got) {
                       if (!hold || !got.is(command::read_reg, stopped ? plain : boot::privilege)) return false;
                       self.ask_for_patience(got, 60'000);
                       if (hold.exchange(false)) under_way.set_value();
                       return true;
                   }};
        cam.set(boot::heartbeat_timeout, 1500);
        std::stop_source ending;
        auto device = open_scripted({.stop = ending.get_token()});
        hold = true;
        auto closed = std::async(std::launch::async, [&] {
            if (stopped) {
                EXPECT_EQ(device->read_register(plain).error(), std::errc::operation_canceled);
            } else {
                under_way.get_future().wait();
            }
            device.reset();
        });
        if (stopped) {
            under_way.get_future().wait();
            ending.request_stop();
        }
        EXPECT_EQ(closed.wait_for(std::chrono::seconds{20}), std::future_status::ready);
        EXPECT_TRUE(eventually([&] { return !cam.controller(); })) << "control is given back all the same";
    }
}

// The camera gives control, and the opening ends before its answer comes.
TEST(ScriptedCamera, an_opening_that_hears_no_answer_keeps_no_control) {
    for (const bool cancelled : {true, false}) {
        std::stop_source opening;
        camera cam{own_address(1), [&](camera& self, const camera::request& got) {
                       if (!got.is(command::write_reg, boot::privilege) || got.word(4) == 0) return false;
                       self.hand_control_to(got.from);
                       if (cancelled) opening.request_stop();
                       return true;
                   }};
        cam.set(boot::heartbeat_timeout, 600'000);
        EXPECT_EQ(error_of(try_open({.opening = opening.get_token()})),
                  cancelled ? std::make_error_code(std::errc::operation_canceled)
                            : make_error_code(gigecam_errc::timeout));
        EXPECT_TRUE(eventually([&] { return !cam.controller(); }));
    }
}

// Each request is answered in time. Reads have an end that grows with them; what is half written is worse than late.
TEST(ScriptedCamera, a_transfer_has_an_end_however_patiently_it_is_answered) {
    constexpr milliseconds request{2000}; // as long as a transfer that needs no requests
    struct row {
        const char* name;
        bool reads;
        std::size_t requests;
        milliseconds pause; // before each answer; all together are longer than a request's time
        bool ends;
    };
    constexpr row rows[]{
        {"a read that is slower than any", true, 9, milliseconds{400}, true}, // 3.6 s; its end comes after 2.5 s
        {"a long read", true, 220, milliseconds{10}, false},
        {"a slow write", false, 9, milliseconds{300}, false},
    };
    std::vector<std::future<void>> done;
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        done.push_back(
            std::async(std::launch::async, [&row = rows[i], request, at = own_address(static_cast<uint32_t>(i + 1))] {
                SCOPED_TRACE(row.name);
                const camera cam{at, [&](camera&, const camera::request& got) {
                                     const auto code = got.header.code;
                                     if (code == command::read_mem || code == command::write_mem)
                                         std::this_thread::sleep_for(row.pause);
                                     return false;
                                 }};
                const auto device = device_control::open({.device = {at, gige::gvcp::port},
                                                          .local_address = own_address(250),
                                                          .attempt = request,
                                                          .transfer = milliseconds{1}});
                ASSERT_TRUE(device);
                std::vector<std::byte> bytes(row.requests * gige::gvcp::max_memory_access);
                const auto error = row.reads ? (*device)->read_memory(table, bytes, request)
                                             : (*device)->write_memory(table, bytes, request);
                EXPECT_EQ(error, row.ends ? make_error_code(gigecam_errc::timeout) : std::error_code{});
            }));
    }
}

TEST(ScriptedCamera, events_are_asked_for_with_retries_unless_somebody_chose) {
    for (const uint32_t chosen : {0U, 5U}) {
        camera cam{own_address(1)};
        cam.set(boot::message_channel_count, 1);
        cam.set(boot::message_timeout, chosen);
        cam.set(boot::message_retries, chosen);
        const auto device = open_scripted();
        const auto receiver = message_receiver::open(*device, device->local().address, [](auto) {});
        ASSERT_TRUE(receiver);
        for (const auto address : {boot::message_timeout, boot::message_retries}) {
            EXPECT_TRUE(chosen == 0 ? cam.get(address) != 0 : cam.get(address) == chosen) << address;
        }
        EXPECT_EQ(cam.get(boot::message_address), own_address(250));
    }
}

TEST(ScriptedCamera, an_events_id_is_forgotten_with_time_and_beyond_what_is_kept) {
    using std::chrono::seconds;
    const latest_ids::clock::time_point start{};
    latest_ids ids{seconds{2}};
    EXPECT_TRUE(ids.insert(1, start));
    EXPECT_TRUE(ids.insert(2, start + seconds{1}));
    EXPECT_FALSE(ids.insert(1, start + seconds{2})) << "repeated";
    EXPECT_TRUE(ids.insert(1, start + milliseconds{2001})) << "the camera began anew";
    EXPECT_FALSE(ids.insert(2, start + milliseconds{2001}));
    EXPECT_FALSE(ids.insert(1, start + seconds{4})) << "counted from the second time";
    // At a rate at which they come round within the time.
    const auto later = start + seconds{100};
    for (int i = 0; i < 200'000; ++i) ASSERT_TRUE(ids.insert(static_cast<uint16_t>(i % 65535 + 1), later)) << i;
}

TEST(ScriptedCamera, events_count_once_and_from_the_camera_alone) {
    camera cam{own_address(1)};
    cam.set(boot::message_channel_count, 1);
    const auto device = open_scripted();
    std::atomic<uint32_t> delivered = 0; // a bit for each id
    std::atomic<int> calls = 0;
    const auto receiver = message_receiver::open(*device, device->local().address, [&](auto datagram) {
        ++calls;
        delivered |= 1U << gige::load16(&datagram[6]);
    });
    ASSERT_TRUE(receiver);
    const auto ours = gige::udp_socket::open({own_address(1), 0});
    const auto foreign = gige::udp_socket::open({own_address(2), 0});
    const auto send = [&](const gige::udp_socket& by, uint16_t id, uint16_t length, bool repeats = true) {
        std::array<std::byte, gige::gvcp::header_size + 16> event{};
        const uint8_t flags = repeats ? gige::gvcp::flag::acknowledge : 0;
        gige::gvcp::store_command(event.data(), {flags, command::event, length, id});
        EXPECT_FALSE(by.send({own_address(250), static_cast<uint16_t>(cam.get(boot::message_port))},
                             std::span{event}.first(gige::gvcp::header_size + length)));
    };
    send(*foreign, 1, 16);
    send(*ours, 2, 12); // no whole record
    send(*ours, 3, 16);
    send(*ours, 3, 16);
    for (int i = 0; i < 3; ++i) send(*ours, 5, 16, false); // of a camera that sends each once, all with one id
    send(*ours, 4, 16);
    EXPECT_TRUE(eventually([&] { return (delivered & 1U << 4) != 0; }));
    EXPECT_EQ(delivered, 1U << 3 | 1U << 4 | 1U << 5);
    EXPECT_EQ(calls, 5);
    std::array<std::byte, 64> ack;
    gige::endpoint from;
    for (const uint16_t id : {3, 3, 4}) { // the repetition, too: its acknowledge was lost
        ASSERT_NE(gige::wait_readable(std::array{ours->native()},
                                      std::chrono::steady_clock::now() + std::chrono::seconds{10}),
                  0U);
        ASSERT_TRUE(ours->receive(ack, from));
        EXPECT_EQ(gige::gvcp::parse_ack(ack)->request_id, id);
    }
}

// The search. A camera's MAC is its address.

discovery::options asking(std::vector<uint32_t> addresses) {
    return {.networks = false,
            .addresses = std::move(addresses),
            .interval = milliseconds{40},
            .window = milliseconds{20},
            .misses = 100};
}

TEST(ScriptedCamera, late_discovery_answers_count_and_answers_to_nobody_do_not) {
    std::mutex mutex;
    std::deque<camera::request> waiting;
    camera late{own_address(1), [&](camera& self, const camera::request& got) {
                    if (got.header.code != command::discovery) return false;
                    waiting.push_back(got);
                    if (waiting.size() > 5) { // the window is over for long
                        self.serve(waiting.front());
                        waiting.pop_front();
                    }
                    return true;
                }};
    camera liar{own_address(2), [&](camera& self, const camera::request& got) {
                    if (got.header.code != command::discovery) return false;
                    auto other = got;
                    other.header.request_id = static_cast<uint16_t>(got.header.request_id + 1000);
                    self.serve(other);
                    return true;
                }};
    std::atomic<int> told = 0;
    auto search = asking({own_address(1), own_address(2)});
    search.misses = 20;
    discovery finder{search, {.devices_changed = [&](const auto&) { ++told; }}};
    EXPECT_TRUE(eventually([&] { return find(finder, own_address(1)).has_value(); }));
    EXPECT_TRUE(eventually([&] { return told > 0; }));
    for (unsigned i = 0; i < 3 * search.misses; ++i) { // it answers, if late
        ASSERT_TRUE(finder.scan(milliseconds{5000}));
        ASSERT_TRUE(find(finder, own_address(1)));
    }
    EXPECT_FALSE(find(finder, own_address(2)));
}

TEST(ScriptedCamera, inventions_are_bounded_and_told_of_in_measure) {
    using clock = std::chrono::steady_clock;
    std::atomic<uint32_t> invented = 0;
    camera liar{own_address(1), [&](camera& self, const camera::request& got) {
                    if (got.header.code != command::discovery) return false;
                    for (int i = 0; i < 60; ++i) { // 700 cameras in turn: what a busy machine loses comes again
                        self.set(boot::mac_low, 1 + invented++ % 700);
                        self.serve(got);
                    }
                    return true;
                }};
    std::atomic<const discovery*> list = nullptr;
    std::optional<clock::time_point> last; // the scanning thread's
    std::atomic<int> too_soon = 0;
    std::atomic<std::size_t> told_of = 0;
    auto search = asking({own_address(1)});
    search.misses = 1'000'000;
    discovery finder{search, {.devices_changed = [&](const auto&) {
                         if (last && clock::now() - *last < discovery::between_changes) ++too_soon;
                         last = clock::now();
                         if (list != nullptr) told_of = list.load()->list().front().devices.size();
                     }}};
    list = &finder;
    EXPECT_TRUE(eventually([&] { return invented >= 700; }));
    EXPECT_TRUE(eventually([&] { return told_of == discovery::most_devices; })) << told_of << " at last";
    EXPECT_EQ(finder.list().front().devices.size(), discovery::most_devices);
    EXPECT_EQ(too_soon, 0);
}

TEST(ScriptedCamera, who_has_control_is_asked_with_the_search_and_kept) {
    std::atomic<bool> silent = false;
    const auto script = [&](camera& self, const camera::request& got) {
        if (!got.is(command::read_reg, boot::privilege)) return false;
        if (got.from.address == own_address(250)) return false;
        if (silent) return true; // lost on the way
        if (self.get(boot::privilege) == bits::exclusive)
            self.refuse(got, status::access_denied);
        else
            self.serve(got);
        return true;
    };
    camera cam{own_address(1), script};
    discovery finder{asking({own_address(1)}), {}};
    const auto controlled = [&] {
        const auto found = find(finder, own_address(1));
        return found && found->controlled;
    };
    ASSERT_TRUE(eventually([&] { return find(finder, own_address(1)).has_value(); }));
    for (const uint32_t by : {bits::control, 0U, bits::exclusive}) {
        cam.set(boot::privilege, by);
        EXPECT_TRUE(eventually([&] { return controlled() == (by != 0); })) << by;
    }
    silent = true;
    for (int i = 0; i < 5; ++i) ASSERT_TRUE(finder.scan(milliseconds{5000}));
    EXPECT_TRUE(controlled()) << "no answer says nothing";
    finder.control_given_back(find(finder, own_address(1))->mac);
    EXPECT_FALSE(controlled());
}

} // namespace
