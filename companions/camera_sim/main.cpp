// orv-gev-camera-sim: cameras in software, each on its own address.
#include "posix/process.h"
#include "src/document.h"

#include <camera_sim/camera.h>
#include <camera_sim/firmware_image.h>
#include <camera_sim/registers.h>
#include <gige/udp_socket.h>
#include <options/numbers.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <array>
#include <cinttypes>
#include <cstdio>
#include <fstream>
#include <limits>
#include <map>
#include <optional>
#include <string>

namespace {

constexpr int wrong_arguments = 3; // as the other programs'

// To standard error, which may take nothing: that is no reason to end.
template <class... Values>
void say(fmt::format_string<Values...> format, Values&&... values) {
    std::fputs(fmt::format(format, std::forward<Values>(values)...).c_str(), stderr);
}

struct arguments {
    std::string address = "127.0.0.1";
    std::string pixel_format = "Mono8";
    unsigned cameras = 1;
    int ready_fd = -1;
    bool exit_with_parent = false;
    bool quiet = false;
    double link_mbit = 0; // 0: none
    uint64_t link_buffer = 128 * 1024;
    std::string stats_file;
    std::string firmware_file;
    std::string document_file;
    std::vector<std::string> light;
    std::string sent_file;
    camera_sim::firmware_package_options firmware;
    camera_sim::camera_options camera;
};

void declare(CLI::App& app, arguments& args) {
    auto& camera = args.camera;
    auto& faults = camera.faults;
    app.add_option("--address", args.address, "IPv4 address of the (first) camera; must belong to this host")
        ->capture_default_str();
    app.add_option("--cameras", args.cameras, "Number of cameras, on consecutive addresses, serials and seeds")
        ->check(option_checks::whole_number(1, 250))
        ->capture_default_str();
    app.add_option("--port", camera.port, "Control port")->capture_default_str();
    app.add_option("--interface", camera.interface,
                   "Network interface that is the camera's alone: its address is set whenever the camera's changes");
    app.add_option("--mac", camera.mac, "MAC address as a number; made of the address by default")
        ->check(option_checks::whole_number(0, 0xFFFFFFFFFFFF));

    const auto* identity = "Identity";
    app.add_option("--vendor", camera.vendor)->capture_default_str()->group(identity);
    app.add_option("--model", camera.model)->capture_default_str()->group(identity);
    app.add_option("--serial", camera.serial)->capture_default_str()->group(identity);
    app.add_option("--user-name", camera.user_name, "User-defined name, up to 15 bytes")->group(identity);

    const auto* picture = "Picture";
    app.add_option("--sensor-width", camera.sensor_width)->capture_default_str()->group(picture);
    app.add_option("--sensor-height", camera.sensor_height)->capture_default_str()->group(picture);
    app.add_option("--width", camera.width, "Start width, a multiple of 8; the sensor's by default")->group(picture);
    app.add_option("--height", camera.height, "Start height; the sensor's by default")->group(picture);
    app.add_option("--pixel-format", args.pixel_format, "PFNC name, or value such as 0x01080001")
        ->capture_default_str()
        ->group(picture);
    app.add_option("--frame-rate", camera.frame_rate, "Frames per second")
        ->check(option_checks::number(camera_sim::reg::frame_rate_range.min, camera_sim::reg::frame_rate_range.max))
        ->capture_default_str()
        ->group(picture);

    const auto* scene = "Scene (with it the picture answers to exposure, gain, iris, focus and white balance)";
    app.add_option("--scene", camera.scene.what, "In place of the test picture, for 8-bit formats: grey, colours")
        ->transform(CLI::CheckedTransformer(
            std::map<std::string, camera_sim::scene_kind>{{"none", camera_sim::scene_kind::none},
                                                          {"grey", camera_sim::scene_kind::grey},
                                                          {"colours", camera_sim::scene_kind::colours}}))
        ->group(scene);
    app.add_option(
           "--light", args.light,
           "FRAME:LEVEL[:RED:BLUE], the light from a frame of the acquisition on, by frame; level 1 is right at "
           "the start")
        ->group(scene);
    app.add_option("--flicker", camera.scene.flicker, "Part of the light that swings")
        ->check(option_checks::number(0, 1))
        ->group(scene);
    app.add_option("--flicker-frequency", camera.scene.flicker_frequency, "Hz")
        ->check(option_checks::number(1, 100'000))
        ->capture_default_str()
        ->group(scene);
    app.add_option("--sharp-at", camera.scene.sharp_at, "Focus position of the scene, 0 to 1000")
        ->capture_default_str()
        ->group(scene);

    const auto* stream = "Stream";
    app.add_option("--packet-size", camera.packet_size, "With IP and UDP headers, until the consumer sets another")
        ->capture_default_str()
        ->group(stream);
    app.add_option("--max-packet-size", camera.max_packet_size)->capture_default_str()->group(stream);
    app.add_option("--line-padding", camera.line_padding, "Bytes behind each line, where lines end on a byte")
        ->capture_default_str()
        ->check(option_checks::whole_number(0, 255))
        ->group(stream);
    app.add_option("--packet-size-step", camera.packet_size_step)
        ->check(option_checks::whole_number(1, 65532))
        ->capture_default_str()
        ->group(stream);
    app.add_option("--packet-size-rounding", camera.packet_size_rounding, "Of sizes between the steps: none, down, up")
        ->transform(CLI::CheckedTransformer(
            std::map<std::string, camera_sim::size_rounding>{{"none", camera_sim::size_rounding::none},
                                                             {"down", camera_sim::size_rounding::down},
                                                             {"up", camera_sim::size_rounding::up}}))
        ->group(stream);
    app.add_option("--mtu", camera.mtu, "Unfragmentable datagrams larger than this vanish")
        ->capture_default_str()
        ->group(stream);
    app.add_option("--pacing", camera.pacing,
                   "Part of the frame period over which packets are spread, 0 at once; with --link 0 unless given")
        ->check(option_checks::number(0, 1))
        ->capture_default_str()
        ->group(stream);
    app.add_option("--link", args.link_mbit,
                   "All cameras of this process share a link of so many Mbit/s, as behind a switch: each sends at that "
                   "rate, or as its packet delay or throughput limit says")
        ->check(option_checks::number(1, 25'000))
        ->group(stream);
    app.add_option("--link-buffer", args.link_buffer, "Bytes that the switch keeps for it; what exceeds them is lost")
        ->check(option_checks::whole_number(1, 1'000'000'000))
        ->capture_default_str()
        ->group(stream);
    app.add_flag("--gso", camera.segmentation, "Let the kernel cut the datagrams out of larger sends")->group(stream);
    app.add_flag("--extended-ids", camera.extended_ids, "64-bit block ids from the start")->group(stream);
    app.add_flag_callback(
           "--no-resend", [&camera] { camera.resend = false; }, "Do not offer packet resend")
        ->group(stream);
    app.add_flag_callback(
           "--no-source-port", [&camera] { camera.source_port = false; }, "Hide the stream source port register")
        ->group(stream);
    app.add_option("--ring", camera.ring_frames, "Past frames kept for resends")->capture_default_str()->group(stream);
    app.add_option("--chunk-payload-type", camera.chunk_payload_type, "Of standard-id frames with chunks: 4 or 5")
        ->check(CLI::IsMember({4U, 5U}))
        ->capture_default_str()
        ->group(stream);

    const auto* control = "Control";
    app.add_flag("--zip", camera.zipped_document, "Serve the GenICam document zipped")->group(control);
    app.add_option("--document", args.document_file,
                   "Serve this GenICam document, with a memory where its registers are not; for looking at documents")
        ->check(CLI::ExistingFile)
        ->group(control);
    app.add_flag("--event-cmd", camera.plain_events, "Send EVENT instead of EVENTDATA")->group(control);
    app.add_option("--action-device-key", camera.action_device_key)->capture_default_str()->group(control);
    app.add_option("--tick-frequency", camera.tick_frequency, "Of the timestamps, Hz")
        ->check(option_checks::whole_number(1, 10'000'000'000))
        ->capture_default_str()
        ->group(control);
    app.add_option("--reboot-ms", camera.reboot_ms, "Silence of a reset")->capture_default_str()->group(control);

    const auto* wrong = "Faults (shares 0..1)";
    const auto share = [&](const char* name, double& value, const char* help) {
        app.add_option(name, value, help)->check(option_checks::number(0, 1))->capture_default_str()->group(wrong);
    };
    app.add_option("--seed", faults.seed, "Same seed, same faults")
        ->check(option_checks::whole_number(0))
        ->capture_default_str()
        ->group(wrong);
    share("--loss", faults.loss, "Stream packets that are not sent");
    app.add_option("--burst-length", faults.burst_length, "Mean number of packets lost in a row")
        ->check(option_checks::number(1, 1e6))
        ->capture_default_str()
        ->group(wrong);
    share("--resend-request-loss", faults.resend_request_loss, "Resend requests that are not seen");
    share("--resend-loss", faults.resend_loss, "Requested packets that are not sent");
    share("--resend-refuse", faults.resend_refuse, "Requested packets answered as unavailable");
    share("--reorder", faults.reorder, "Packets that change places with one up to 8 behind");
    share("--duplicate", faults.duplicate, "Packets sent twice");
    share("--delay", faults.delay, "Packets sent late");
    app.add_option("--delay-ms", faults.delay_ms, "How late")
        ->check(option_checks::number(0, 60'000))
        ->capture_default_str()
        ->group(wrong);
    share("--truncate", faults.truncate, "Packets without their second half");
    share("--garbage", faults.garbage, "Packets with a datagram of noise in front");
    share("--control-loss", faults.control_loss, "Control requests or acknowledges lost");
    share("--event-loss", faults.event_loss, "Events, or their acknowledges, lost at the first try");
    app.add_option("--pending-every", faults.pending_every, "Every n-th acknowledge comes late, after PENDING_ACK")
        ->group(wrong);
    app.add_option("--pending-ms", faults.pending_ms, "How late")->capture_default_str()->group(wrong);
    app.add_option("--reboot-after", faults.reboot_after, "Reset after this many frames")
        ->check(option_checks::whole_number(0))
        ->group(wrong);
    app.add_option("--silence-after", faults.silence_after, "Fall silent after this many frames")
        ->check(option_checks::whole_number(0))
        ->group(wrong);
    app.add_option("--silence-ms", faults.silence_ms, "How long; for good by default")->group(wrong);

    app.add_option("--deaf-after", faults.deaf_after, "Answer no control request after this many frames")
        ->check(option_checks::whole_number(0))
        ->group(wrong);

    const auto* firmware = "Firmware";
    app.add_option("--device-version", camera.version, "Of the firmware at the start")
        ->capture_default_str()
        ->group(firmware);
    app.add_option("--install-ms", camera.install_ms, "Time to install new firmware")
        ->capture_default_str()
        ->group(firmware);
    app.add_option("--make-firmware", args.firmware_file,
                   "Write a firmware package (*.fwpack) for a camera of this vendor and model, and end")
        ->group(firmware);
    app.add_option("--firmware-version", args.firmware.version, "Of that package")
        ->capture_default_str()
        ->group(firmware);
    app.add_option("--firmware-size", args.firmware.size, "Of its image, bytes")
        ->check(option_checks::whole_number(1, 1 << 30))
        ->capture_default_str()
        ->group(firmware);

    const auto* running = "Running";
    app.add_flag("--quiet", args.quiet, "Say nothing of refused requests")->group(running);
    app.add_option("--ready-fd", args.ready_fd, "Write the lines \"ready ADDRESS:PORT\" here, too")
        ->check(option_checks::whole_number(0, std::numeric_limits<int>::max()))
        ->group(running);
    app.add_option("--stats-file", args.stats_file, "Write the statistics here at exit, one JSON line per camera")
        ->group(running);
    app.add_option("--sent-file", args.sent_file,
                   "Append for each frame its block id and the steady clock's nanoseconds when its last datagram was "
                   "sent, as two 64-bit words of this machine; for measurements")
        ->group(running);
    app.add_flag("--exit-with-parent", args.exit_with_parent, "End when the parent process ends")->group(running);
}

// "FRAME:LEVEL" or "FRAME:LEVEL:RED:BLUE".
std::optional<camera_sim::light_change> light_of(const std::string& text) {
    camera_sim::light_change light;
    char rest = 0;
    const int fields = std::sscanf(text.c_str(), "%" SCNu64 ":%lf:%lf:%lf%c", &light.frame, &light.level, &light.red,
                                   &light.blue, &rest);
    if ((fields != 2 && fields != 4) || text.starts_with('-')) return {};
    return light;
}

int run(int argc, char** argv) {
    CLI::App app{
        "GigE Vision cameras in software. Prints \"ready ADDRESS:PORT\" per camera when it listens and one line "
        "of JSON per camera at the end (SIGINT, SIGTERM)."};
    arguments args;
    declare(app, args);
    app.set_version_flag("--version", "orv-gev-camera-sim " ORV_VERSION);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) { // help and version, too
        return app.exit(error) == 0 ? 0 : wrong_arguments;
    }

    if (!args.firmware_file.empty()) {
        args.firmware.vendor = args.camera.vendor;
        args.firmware.model = args.camera.model;
        const auto package = camera_sim::make_firmware_package(args.firmware);
        std::ofstream file{args.firmware_file, std::ios::binary};
        file.write(reinterpret_cast<const char*>(package.data()), static_cast<std::streamsize>(package.size()));
        if (file.flush()) return 0;
        say("orv-gev-camera-sim: cannot write {}\n", args.firmware_file);
        return 1;
    }

    if (!args.document_file.empty()) {
        std::ifstream file{args.document_file, std::ios::binary};
        args.camera.document.assign(std::istreambuf_iterator<char>{file}, {});
    }
    for (const std::string& text : args.light) {
        const auto light = light_of(text);
        if (!light) {
            say("orv-gev-camera-sim: {} is not FRAME:LEVEL or FRAME:LEVEL:RED:BLUE\n", text);
            return wrong_arguments;
        }
        args.camera.scene.light.push_back(*light);
    }
    if (!args.sent_file.empty()) {
        const auto file = std::make_shared<std::ofstream>(args.sent_file, std::ios::binary);
        args.camera.frame_sent = [file](uint64_t block_id, int64_t time) {
            const std::array words{block_id, static_cast<uint64_t>(time)};
            file->write(reinterpret_cast<const char*>(words.data()), sizeof words).flush();
        };
    }
    const auto first = gige::parse_address(args.address);
    args.camera.pixel_format = camera_sim::pixel_format_value(args.pixel_format);
    if (!first || args.camera.pixel_format == 0) {
        say("orv-gev-camera-sim: {} is not {}\n", first ? args.pixel_format : args.address,
            first ? "a pixel format" : "an IPv4 address");
        return wrong_arguments;
    }
    if (args.link_mbit != 0) {
        const auto bytes_per_second = static_cast<uint64_t>(args.link_mbit * 125'000);
        args.camera.link = std::make_shared<camera_sim::shared_link>(bytes_per_second, args.link_buffer);
        if (app.count("--pacing") == 0) args.camera.pacing = 0;
    }
    const camera_sim::posix::termination ending{args.exit_with_parent};

    std::vector<std::unique_ptr<camera_sim::camera>> cameras;
    std::vector<camera_sim::camera_options> chosen;
    for (unsigned i = 0; i < args.cameras; ++i) {
        auto options = args.camera;
        options.address = *first + i;
        options.faults.seed += i;
        if (i > 0) options.serial += fmt::format("-{}", i + 1);
        if (!args.quiet) options.log = [](const std::string& line) { say("{}\n", line); };
        if (const auto problem = camera_sim::camera::problem_with(options); !problem.empty()) {
            say("orv-gev-camera-sim: {}\n", problem);
            return wrong_arguments;
        }
        auto started = camera_sim::camera::start(options);
        if (!started) {
            const bool taken = started.error() == std::errc::address_in_use;
            say("orv-gev-camera-sim: cannot start on {}:{}: {}{}\n", gige::to_string(options.address), options.port,
                started.error().message(), taken ? " (is there a camera already?)" : "");
            return 1;
        }
        cameras.push_back(std::move(*started));
        chosen.push_back(std::move(options));
    }
    std::string ready;
    for (const auto& each : chosen) ready += fmt::format("ready {}\n", gige::to_string({each.address, each.port}));
    fmt::print("{}", ready);
    std::fflush(stdout);
    if (args.ready_fd >= 0) camera_sim::posix::write_text(args.ready_fd, ready);

    ending.wait();

    std::string lines;
    for (std::size_t i = 0; i < cameras.size(); ++i)
        lines += camera_sim::to_json(cameras[i]->stats(), chosen[i], cameras[i]->address()) + "\n";
    cameras.clear();
    fmt::print("{}", lines);
    if (!args.stats_file.empty() && !(std::ofstream{args.stats_file} << lines << std::flush)) {
        say("orv-gev-camera-sim: cannot write {}\n", args.stats_file);
        return 1;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "orv-gev-camera-sim: %s\n", failure.what());
        return 1;
    }
}
