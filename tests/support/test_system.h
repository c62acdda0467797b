// A test's own service and cameras: processes on loopback addresses and a runtime folder that no other test uses.
#pragma once

#include "built.h"
#include "eventually.h"
#include "temporary_folder.h"

#include <cli/consumer/gentl_library.h>
#include <cli/consumer/node_map.h>

#include <nlohmann/json.hpp>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace test_support {

// A child process; ended by its pid when this goes. Output goes to a file.
class process final {
public:
    // `network_namespace` is a descriptor of the one to run in; -1: this process's.
    process(const std::vector<std::string>& command, const std::filesystem::path& output, int network_namespace = -1);
    process(process&& other) noexcept;
    process& operator=(process&&) = delete;
    ~process();

    void signal(int number) const;
    // Waits for the end; the exit code, or minus the signal.
    int wait(std::chrono::seconds longest = built::sanitized ? std::chrono::seconds{200} : std::chrono::seconds{50});
    [[nodiscard]] bool running();
    [[nodiscard]] std::string output() const;
    // Waits until the output holds the text; false when the process ended or half a minute passed without it.
    [[nodiscard]] bool wait_for_output(const std::string& text);
    [[nodiscard]] int pid() const noexcept { return child; }

private:
    int child = -1;
    bool reaped = false;
    int result = 0;
    std::filesystem::path output_file;
};

[[nodiscard]] std::string read_file(const std::filesystem::path& path);
[[nodiscard]] inline bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != text.npos;
}
// Options of a camera whose pictures are small, and more.
[[nodiscard]] std::vector<std::string> small(std::vector<std::string> more = {});

class test_system {
public:
    explicit test_system(std::vector<std::string> service_options = {});
    ~test_system();

    // From here on cameras run in one network namespace, on addresses "<net>10" and up, service and consumers in
    // another.
    void spread_over(int camera_namespace, int consumer_namespace, const std::string& net);

    process& start_camera(std::vector<std::string> options = {});
    // One that has ended, at its address and with its serial number.
    process& restart_camera(size_t index, const std::vector<std::string>& options = {});
    // The service is to ask a camera that the test itself plays at this address.
    void add_camera(size_t index) {
        service_arguments.insert(service_arguments.end(), {"--discover", camera_address(index)});
    }
    void start_service();
    // With its log in a file instead of on this process's error output.
    void start_logged_service();
    [[nodiscard]] std::string logged() const { return read_file(folder() / "log"); }
    // It looks for cameras on the interfaces of its network: for a namespace of the test's own.
    void start_service_by_broadcast();
    void stop_service(int signal_number);
    // Ends the camera in order; what it counted.
    [[nodiscard]] nlohmann::json end_camera(size_t index);

    [[nodiscard]] process& camera(size_t index) { return *cameras.at(index); }
    [[nodiscard]] process& service() { return *service_process; }
    [[nodiscard]] std::string camera_address(size_t index) const { return network + std::to_string(10 + index); }
    [[nodiscard]] static std::string serial(size_t index);
    [[nodiscard]] const std::filesystem::path& folder() const noexcept { return directory.path; }

    // Runs the consumer to its end: exit code and standard output.
    struct run_result {
        int exit_code;
        std::string output;
    };
    [[nodiscard]] run_result run_consumer(std::vector<std::string> arguments);
    [[nodiscard]] process start_consumer(std::vector<std::string> arguments);
    // The object that a command prints with `--json`; fails the test when there is none.
    [[nodiscard]] nlohmann::json ask(std::vector<std::string> arguments);
    [[nodiscard]] nlohmann::json grab(std::vector<std::string> arguments);

private:
    void start_service(std::vector<std::string> arguments);
    [[nodiscard]] std::unique_ptr<process> run_camera(size_t index, const std::vector<std::string>& options);
    [[nodiscard]] std::filesystem::path new_file(const std::string& stem);

    runtime_folder directory;
    std::string network;
    int camera_side = -1;
    int consumer_side = -1;
    std::vector<std::string> service_arguments;
    std::vector<std::unique_ptr<process>> cameras;
    std::unique_ptr<process> service_process;
    int files = 0;
};

// With one small camera, and running.
class small_system : public test_system {
public:
    explicit small_system(std::vector<std::string> camera_options = {}) {
        start_camera(small(std::move(camera_options)));
        start_service();
    }
};

// The library opened down to one camera in this process.
class open_camera {
public:
    // Waits until the service has found it.
    explicit open_camera(const std::string& serial = test_system::serial(0), const char* cti = nullptr,
                         GenTL::DEVICE_ACCESS_FLAGS access = GenTL::DEVICE_ACCESS_CONTROL);
    // A second camera behind the interface of an open one.
    open_camera(const open_camera& beside, const std::string& serial);

    void start(size_t buffers = 6);
    // The next frame's block id; nothing within the time.
    [[nodiscard]] std::optional<uint64_t> next_frame(uint64_t timeout_ms);
    void stop();
    [[nodiscard]] cli::node_map& remote();
    void set(const char* feature, const std::string& value);
    void execute(const char* command);
    [[nodiscard]] int64_t integer(const char* feature);
    // Registers the event; it ends with the module.
    [[nodiscard]] GenTL::EVENT_HANDLE event_of(void* module, GenTL::EVENT_TYPE type) const;

    std::shared_ptr<const cli::gentl_library> lib;
    std::shared_ptr<const cli::tl_system> system;
    std::shared_ptr<const cli::tl_interface> interface;
    std::shared_ptr<const cli::tl_device> device;
    std::shared_ptr<const cli::tl_stream> stream;
    void* new_buffer = nullptr;

private:
    void open(const std::string& serial, GenTL::DEVICE_ACCESS_FLAGS access);
    std::unique_ptr<cli::node_map> nodes;
};

} // namespace test_support
