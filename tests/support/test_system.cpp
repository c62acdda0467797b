#include "test_system.h"

#include "built.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

namespace test_support {

using namespace GenTL;
using namespace std::chrono_literals;

std::string read_file(const std::filesystem::path& path) {
    std::ifstream file{path, std::ios::binary};
    return {std::istreambuf_iterator<char>{file}, {}};
}

std::vector<std::string> small(std::vector<std::string> more) {
    more.insert(more.begin(), {"--width", "320", "--height", "240"});
    return more;
}

process::process(const std::vector<std::string>& command, const std::filesystem::path& output, int network_namespace)
    : output_file(output) {
    std::vector<char*> arguments;
    for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    const int file = open(output.c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC, 0600);
    child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL); // a test that crashes leaves nobody behind
        dup2(file, STDOUT_FILENO);
        if (network_namespace >= 0 && setns(network_namespace, CLONE_NEWNET) != 0) _exit(126);
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    close(file);
    if (child < 0) ADD_FAILURE() << "fork failed for " << command[0];
}

process::process(process&& other) noexcept
    : child(std::exchange(other.child, -1)),
      reaped(other.reaped),
      result(other.result),
      output_file(std::move(other.output_file)) {}

process::~process() {
    if (child <= 0 || reaped) return;
    kill(child, SIGTERM);
    if (!eventually([&] { return !running(); }, 5s)) {
        kill(child, SIGKILL);
        wait();
    }
}

void process::signal(int number) const { kill(child, number); }

bool process::running() {
    if (reaped) return false;
    int status = 0;
    if (waitpid(child, &status, WNOHANG) != child) return true;
    reaped = true;
    result = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return false;
}

// Bounded, so that a hang is a failure with a name instead of the test runner's.
int process::wait(std::chrono::seconds longest) {
    if (!eventually([&] { return !running(); }, longest)) {
        ADD_FAILURE() << "process " << child << " hangs";
        kill(child, SIGKILL);
        eventually([&] { return !running(); });
    }
    return result;
}

std::string process::output() const { return read_file(output_file); }

bool process::wait_for_output(const std::string& text) {
    return eventually([&] { return holds(output(), text) || !running(); }) && holds(output(), text);
}

namespace {

// Unique on this machine while the test runs: "127.x.y." from the pid and a counter.
std::string own_network() {
    static std::atomic<int> counter{0};
    const int unique = getpid() * 7 + counter++;
    return "127." + std::to_string(20 + unique % 220) + "." + std::to_string(1 + unique / 220 % 250) + ".";
}

} // namespace

test_system::test_system(std::vector<std::string> service_options)
    : network(own_network()), service_arguments(std::move(service_options)) {}

test_system::~test_system() {
    service_process.reset();
    cameras.clear();
}

void test_system::spread_over(int camera_namespace, int consumer_namespace, const std::string& net) {
    camera_side = camera_namespace;
    consumer_side = consumer_namespace;
    network = net;
}

std::filesystem::path test_system::new_file(const std::string& stem) {
    return folder() / (stem + "-" + std::to_string(files++));
}

std::string test_system::serial(size_t index) { return "CAM" + std::to_string(index); }

std::unique_ptr<process> test_system::run_camera(size_t index, const std::vector<std::string>& options) {
    std::vector<std::string> command{built::program("orv-gev-camera-sim"), "--address", camera_address(index),
                                     "--serial", serial(index)};
    command.insert(command.end(), options.begin(), options.end());
    auto running = std::make_unique<process>(command, new_file("camera"), camera_side);
    EXPECT_TRUE(running->wait_for_output("ready")) << running->output();
    return running;
}

process& test_system::start_camera(std::vector<std::string> options) {
    cameras.push_back(run_camera(cameras.size(), options));
    add_camera(cameras.size() - 1);
    return *cameras.back();
}

process& test_system::restart_camera(size_t index, const std::vector<std::string>& options) {
    return *(cameras.at(index) = run_camera(index, options));
}

void test_system::start_service() {
    std::vector<std::string> arguments{"--no-networks"};
    arguments.insert(arguments.end(), service_arguments.begin(), service_arguments.end());
    start_service(std::move(arguments));
}

void test_system::start_logged_service() {
    const int file = open((folder() / "log").c_str(), O_CREAT | O_WRONLY | O_APPEND | O_CLOEXEC, 0600);
    const int error_output = dup(STDERR_FILENO);
    dup2(file, STDERR_FILENO);
    start_service();
    dup2(error_output, STDERR_FILENO);
    close(error_output);
    close(file);
}

void test_system::start_service_by_broadcast() {
    if (consumer_side < 0) throw std::logic_error("a broadcast would leave the machine");
    start_service(std::vector<std::string>{});
}

void test_system::start_service(std::vector<std::string> command) {
    command.insert(command.begin(), built::program("orv-gentl-gev-service"));
    service_process = std::make_unique<process>(command, new_file("service"), consumer_side);
    EXPECT_TRUE(service_process->wait_for_output("ready")) << service_process->output();
}

void test_system::stop_service(int signal_number) {
    service_process->signal(signal_number);
    service_process->wait();
}

process test_system::start_consumer(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), built::program("orv-gentl"));
    return process{arguments, new_file("consumer"), consumer_side};
}

test_system::run_result test_system::run_consumer(std::vector<std::string> arguments) {
    process consumer = start_consumer(std::move(arguments));
    const int code = consumer.wait();
    return {code, consumer.output()};
}

nlohmann::json test_system::end_camera(size_t index) {
    camera(index).signal(SIGTERM);
    camera(index).wait();
    const std::string output = camera(index).output();
    const size_t at = output.find('{');
    const auto counted = nlohmann::json::parse(at == output.npos ? "" : output.substr(at), nullptr, false);
    EXPECT_TRUE(counted.is_object()) << output;
    return counted;
}

nlohmann::json test_system::grab(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"grab", "--quiet"});
    return ask(std::move(arguments));
}

nlohmann::json test_system::ask(std::vector<std::string> arguments) {
    arguments.emplace_back("--json");
    const run_result result = run_consumer(std::move(arguments));
    const nlohmann::json object = nlohmann::json::parse(result.output, nullptr, false);
    EXPECT_TRUE(object.is_object()) << "exit code " << result.exit_code << ": " << result.output;
    return object;
}

open_camera::open_camera(const std::string& serial, const char* cti, DEVICE_ACCESS_FLAGS access)
    : lib(std::make_shared<const cli::gentl_library>(cti == nullptr ? built::cti : cti)),
      system(cli::open_system(lib)) {
    open(serial, access);
}

open_camera::open_camera(const open_camera& beside, const std::string& serial)
    : lib(beside.lib), system(beside.system), interface(beside.interface) {
    for (const auto& listed : cli::list_devices(*lib, *interface, "", 200)) {
        if (listed.serial == serial) device = cli::open_device(*lib, interface, listed.id, DEVICE_ACCESS_CONTROL);
    }
    if (!device) throw std::runtime_error("camera " + serial + " was not found");
}

void open_camera::open(const std::string& serial, DEVICE_ACCESS_FLAGS access) {
    std::string id;
    const bool found = eventually([&] {
        for (const auto& entry : cli::list_interfaces(*system)) {
            // One object per interface: a second camera on it is opened through the same handle.
            std::shared_ptr<const cli::tl_interface> candidate;
            try {
                candidate = cli::open_interface(system, entry.id);
            } catch (const cli::call_failed&) {
                continue;
            }
            for (const auto& listed : cli::list_devices(*lib, *candidate, entry.id, 200)) {
                if (listed.serial != serial) continue;
                id = listed.id;
                interface = candidate;
                return true;
            }
        }
        return false;
    });
    if (!found) throw std::runtime_error("camera " + serial + " was not found");
    device = cli::open_device(*lib, interface, id, access);
}

cli::node_map& open_camera::remote() {
    if (!nodes) {
        PORT_HANDLE port = nullptr;
        lib->check("DevGetPort", lib->DevGetPort(device->get(), &port));
        nodes = std::make_unique<cli::node_map>(*lib, port);
    }
    return *nodes;
}

void open_camera::set(const char* feature, const std::string& value) {
    cli::set_from_text(cli::require_node(remote(), feature), value);
}

void open_camera::execute(const char* command) { cli::execute(cli::require_node(remote(), command)); }

int64_t open_camera::integer(const char* feature) { return cli::require_integer(remote(), feature); }

EVENT_HANDLE open_camera::event_of(void* module, EVENT_TYPE type) const {
    EVENT_HANDLE event = nullptr;
    lib->check("GCRegisterEvent", lib->GCRegisterEvent(module, type, &event));
    return event;
}

void open_camera::start(size_t buffers) {
    DS_HANDLE handle = nullptr;
    if (!stream) {
        lib->check("DevOpenDataStream", lib->DevOpenDataStream(device->get(), "Stream0", &handle));
        stream = std::make_shared<cli::tl_stream>(device, handle, lib->DSClose);
        const auto payload = static_cast<size_t>(cli::require_integer(remote(), "PayloadSize"));
        for (size_t i = 0; i < buffers; ++i) {
            BUFFER_HANDLE buffer = nullptr;
            lib->check("DSAllocAndAnnounceBuffer",
                       lib->DSAllocAndAnnounceBuffer(stream->get(), payload, nullptr, &buffer));
        }
        new_buffer = event_of(stream->get(), EVENT_NEW_BUFFER);
    }
    lib->check("DSFlushQueue", lib->DSFlushQueue(stream->get(), ACQ_QUEUE_ALL_TO_INPUT));
    lib->check("DSStartAcquisition", lib->DSStartAcquisition(stream->get(), 0, GENTL_INFINITE));
    execute("AcquisitionStart");
}

std::optional<uint64_t> open_camera::next_frame(uint64_t timeout_ms) {
    EVENT_NEW_BUFFER_DATA event{};
    size_t size = sizeof event;
    if (lib->EventGetData(new_buffer, &event, &size, timeout_ms) != GC_ERR_SUCCESS) return std::nullopt;
    INFO_DATATYPE type = 0;
    uint64_t id = 0;
    size = sizeof id;
    lib->check("DSGetBufferInfo",
               lib->DSGetBufferInfo(stream->get(), event.BufferHandle, BUFFER_INFO_FRAMEID, &type, &id, &size));
    lib->check("DSQueueBuffer", lib->DSQueueBuffer(stream->get(), event.BufferHandle));
    return id;
}

void open_camera::stop() {
    execute("AcquisitionStop");
    lib->check("DSStopAcquisition", lib->DSStopAcquisition(stream->get(), 0));
}

} // namespace test_support
