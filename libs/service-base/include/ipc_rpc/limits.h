// Every bound that the connection puts on what one end can take from the other, in one place. docs/security.md says
// what they add up to.
#pragma once

#include <ipc_rpc/rpc_packet.h>

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace ipc_rpc::limits {

using std::chrono::milliseconds;

// Connections to a service, announced or not. One user alone can't shut the others out.
inline constexpr std::size_t most_clients = 64;
inline constexpr std::size_t most_clients_of_user = 48;
// From being accepted to the client's announcement. Until then a connection costs no thread.
inline constexpr milliseconds announce_time{2000};
inline constexpr std::size_t threads_per_client = 4; // that run functions; two more watch and receive

// Parameter blocks of calls that have not ended, arriving ones at their full size: above it a call is answered
// status::resource_exhausted. One block of the largest size can arrive while another is being worked on.
inline constexpr std::uint64_t most_call_bytes = 2 * max_param_block;
// The same for all connections of one user together.
inline constexpr std::uint64_t most_call_bytes_of_user = 4 * max_param_block;
// Calls that wait for a thread. Releases are counted beside them: each object is owed one.
inline constexpr std::size_t most_waiting_calls = 1024;
// Calls whose parameters are still arriving; the oldest 64 go when there is one more.
inline constexpr std::size_t most_arriving_calls = 128;
inline constexpr std::size_t arriving_calls_dropped = 64;

// What one client may hold at the service.
inline constexpr std::size_t most_objects = 1024;
inline constexpr std::size_t most_numbers = 511; // of notifications; 0 is never given out
inline constexpr std::size_t most_open_devices = 64;
// Answers to reads of a camera's memory and document: what was read and its encoded copy, until it is sent. One of the
// largest size. Up to the size below they take nothing, so that no transfer keeps registers from anybody: the threads
// that make them bound those.
inline constexpr std::uint64_t small_answer_bytes = 64U << 10;
inline constexpr std::uint64_t most_answer_bytes = 2 * max_param_block;
inline constexpr std::uint64_t most_document_bytes = 128U << 20; // kept for all of a client's devices together
inline constexpr std::size_t most_events = 1024;                 // kept for a client that does not fetch them
// The same for all connections of one user together, and for those of all users.
inline constexpr std::size_t most_open_devices_of_user = 128;
inline constexpr std::size_t most_open_devices_of_all = 192;
inline constexpr std::uint64_t most_answer_bytes_of_user = 4 * max_param_block;
inline constexpr std::uint64_t most_answer_bytes_of_all = 8 * max_param_block;
inline constexpr std::uint64_t most_document_bytes_of_user = 256U << 20;
inline constexpr std::uint64_t most_document_bytes_of_all = 512U << 20;

// Descriptors that the service needs for all of this: a connection takes four and each of its calls as many while it
// runs, an open device five; the rest are the service's own.
inline constexpr std::size_t most_descriptors =
    most_clients * (4 + 4 * threads_per_client) + 5 * most_open_devices_of_all + 64;

// Lines of the log that a client, all clients of a user, those at the socket who are no clients yet, and what the
// network says can cause within gds_helper::log::line_budget::window.
inline constexpr unsigned most_lines = 100;
inline constexpr unsigned most_lines_of_user = 400;
inline constexpr unsigned most_lines_at_socket = 200;
inline constexpr unsigned most_lines_of_network = 1000;

// A waiting end looks this often whether it still has something to wait for: what the peer writes into shared memory,
// or fails to, can't keep it for longer.
inline constexpr milliseconds wait_slice{250};

} // namespace ipc_rpc::limits
