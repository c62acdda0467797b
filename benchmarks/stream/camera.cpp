#include "bench_stream.h"

#include <camera_sim/registers.h>
#include <gige/gvcp.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace bench {

namespace {

namespace boot = gige::gvcp::reg;
using namespace std::chrono_literals;

// Addresses of this process alone.
uint32_t own_network() {
    static uint32_t counter = 0;
    return 0x7F500000U | (static_cast<uint32_t>(::getpid()) & 0xFFF) << 8 | (counter++ & 0x3F) << 2;
}

} // namespace

camera_process::camera_process(const stream_shape& shape, const cable* joined) {
    const uint32_t network = own_network();
    own = joined == nullptr ? network | 1 : cable::camera_address;
    other = joined == nullptr ? network | (shape.cameras == 1 ? 2 : 0xFF) : cable::consumer_address;
    const auto program = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "orv-gev-camera-sim";
    std::vector<std::string> arguments{
        program.string(), "--address", gige::to_string(address()), "--max-packet-size", "16000",
        "--ring",         "4",         "--exit-with-parent"};
    for (const auto& [option, value] : {std::pair{"--sensor-width", shape.width},
                                        {"--sensor-height", shape.height},
                                        {"--cameras", shape.cameras},
                                        {"--width", shape.width},
                                        {"--height", shape.height}}) {
        arguments.insert(arguments.end(), {option, std::to_string(value)});
    }
    if (shape.segmented) arguments.emplace_back("--gso");
    std::array<int, 2> pipe{};
    if (::pipe(pipe.data()) != 0) fail("no pipe");
    pid = ::fork();
    if (pid < 0) fail("no process for the camera");
    if (pid == 0) {
        if (joined != nullptr) joined->enter_camera_side();
        ::dup2(pipe[1], STDOUT_FILENO);
        ::close(pipe[0]);
        ::close(pipe[1]);
        std::vector<char*> pointers;
        for (auto& each : arguments) pointers.push_back(each.data());
        pointers.push_back(nullptr);
        ::execv(pointers[0], pointers.data());
        ::_exit(127);
    }
    ::close(pipe[1]);
    std::string said; // a line "ready ADDRESS" by each
    for (char letter = 0; static_cast<uint32_t>(std::ranges::count(said, '\n')) < shape.cameras; said += letter) {
        if (::read(pipe[0], &letter, 1) != 1) fail("the camera does not start");
    }
    ::close(pipe[0]);
}

camera_process::~camera_process() {
    ::kill(pid, SIGKILL); // its statistics aren't asked for
    ::waitpid(pid, nullptr, 0);
}

double camera_process::cpu_seconds() const {
    std::ifstream file{"/proc/" + std::to_string(pid) + "/stat"};
    std::string text;
    std::getline(file, text);
    std::istringstream fields{text.substr(std::min(text.size(), text.rfind(')') + 2))};
    for (int skipped = 0; skipped < 11; ++skipped) fields >> text;
    double user = 0;
    double system = 0;
    fields >> user >> system;
    return (user + system) / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

camera_control::camera_control(uint32_t camera_address, uint32_t local) : camera{camera_address, gige::gvcp::port} {
    auto opened = gige::udp_socket::open({local, 0});
    if (!opened) fail("no control socket");
    socket = std::move(*opened);
    write(boot::privilege, gige::gvcp::bits::control);
    write(boot::heartbeat_timeout, 600'000);
}

camera_control::~camera_control() {
    write(boot::stream_port, 0);
    write(boot::privilege, 0);
}

void camera_control::write(uint32_t address, uint32_t value) {
    std::array<std::byte, 16> command;
    if (++next_id == 0) ++next_id;
    gige::gvcp::store_command(command.data(),
                              {gige::gvcp::flag::acknowledge, gige::gvcp::command::write_reg, 8, next_id});
    gige::store32(&command[8], address);
    gige::store32(&command[12], value);
    const std::array handles{socket.native()};
    for (int attempt = 0; attempt < 5; ++attempt) {
        if (socket.send(camera, command)) break;
        if (gige::wait_readable(handles, std::chrono::steady_clock::now() + 500ms) == 0) continue;
        std::array<std::byte, 64> answer;
        gige::endpoint from;
        const auto size = socket.receive(answer, from);
        if (!size) continue;
        const auto ack = gige::gvcp::parse_ack(std::span{answer}.first(*size));
        if (!ack || ack->request_id != next_id) continue;
        if (ack->result == gige::gvcp::status::success) return;
        fail("the camera refuses register " + std::to_string(address));
    }
    fail("the camera does not answer");
}

gige::udp_socket open_stream_socket(uint32_t consumer) {
    auto opened = gige::udp_socket::open({consumer, 0});
    if (!opened) fail("no stream socket");
    const int bytes = socket_buffer;
    if (::setsockopt(opened->native(), SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) != 0) {
        ::setsockopt(opened->native(), SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
    }
    return std::move(*opened);
}

void camera_control::open_stream(gige::endpoint destination, const stream_shape& shape) {
    write(boot::stream_address, destination.address);
    write(boot::stream_port, destination.port);
    write(boot::stream_packet_size, gige::gvcp::bits::do_not_fragment | shape.packet_size);
}

std::vector<register_value> start_registers(const stream_shape& shape) {
    namespace reg = camera_sim::reg;
    return {
        {reg::acquisition_mode, 2},  {reg::acquisition_frame_count, shape.frames},
        {reg::frame_rate_enable, 1}, {reg::frame_rate, std::bit_cast<uint32_t>(static_cast<float>(shape.frame_rate))},
        {reg::test_pattern, 3},      {reg::acquisition_control, 1}};
}

void camera_control::start(const stream_shape& shape) {
    for (const auto& [address, value] : start_registers(shape)) write(address, value);
}

void camera_control::request_resend(uint64_t block, uint32_t first, uint32_t last) {
    std::array<std::byte, 20> command{};
    if (++next_id == 0) ++next_id;
    gige::gvcp::store_command(command.data(), {0, gige::gvcp::command::packet_resend, 12, next_id});
    gige::store16(&command[10], static_cast<uint16_t>(block));
    gige::store32(&command[12], first);
    gige::store32(&command[16], last);
    [[maybe_unused]] const auto sent = socket.send(camera, command);
}

} // namespace bench
