#include "grab_command.h"

#include "../cameras/grabber.h"
#include "../output/output.h"
#include "../posix/interruption.h"

#include <options/numbers.h>

#include <memory>

namespace cli {

namespace {

int grab(const common_options& common, const grab_options& options) {
    // From the first moment: an interrupted run answers as every other does.
    watch_for_interruption();
    if (!options.format.empty() && !format_from_text(options.format).known())
        throw failure(cause::arguments, fmt::format("'{}' is no pixel format.", options.format));
    grabber run{common, options};
    std::exception_ptr reason;
    try {
        run.run();
    } catch (...) {
        reason = std::current_exception();
    }
    try {
        if (!common.json) {
            print("{}", run.summary());
            if (options.explain) print("{}", run.explanation());
            flush_output();
        } else if (!reason) {
            print_json(run.result());
        }
    } catch (const failure&) {
        // What was received is told where it can be.
        say("{}", run.summary());
        if (!reason) throw;
    }
    if (!reason) return 0;
    try {
        std::rethrow_exception(reason);
    } catch (const std::exception& known) {
        return report_failure(known, common.json, run.result());
    }
}

} // namespace

void add_grab_command(command_line& line) {
    struct words {
        grab_options options;
        std::vector<std::string> settings;
        std::string kind = "png";
        bool raw = false;
        CLI::Option* reconnect = nullptr;
    };
    constexpr int64_t longest_wait = 1'000'000'000; // ms or s: a week or more, and no clock's end
    auto given = std::make_shared<words>();
    grab_options& options = given->options;
    auto& command =
        line.add("grab", "Frames from a camera, to PNG, TIFF or raw files", reach::opened_device, [&line, given] {
            for (const std::string& text : given->settings) given->options.set.push_back(parse_setting(text));
            given->options.reconnect = given->reconnect->count() != 0;
            given->options.kind = given->raw || given->kind == "raw" ? file_kind::raw
                                  : given->kind == "tiff"            ? file_kind::tiff
                                                                     : file_kind::png;
            return grab(line.options, given->options);
        });
    command.add_option("--frames", options.frames, "How many")
        ->check(option_checks::whole_number(1))
        ->capture_default_str();
    command.add_option("--buffers", options.buffers, "Buffers to announce")
        ->check(option_checks::whole_number(1, 100'000))
        ->capture_default_str();
    command.add_flag("--verify", options.verify, "Compare every byte with the simulated camera's picture");
    command.add_option("--output", options.output, "Folder for pictures");
    command.add_option("--save", options.save, "Pictures to keep, spread over the run")
        ->check(option_checks::whole_number(0))
        ->capture_default_str();
    command.add_option("--as", given->kind, "Kind of the files: png, tiff or raw (with a JSON file beside each)")
        ->check(CLI::IsMember({"png", "tiff", "raw"}))
        ->capture_default_str();
    command.add_flag("--raw", given->raw, "The same as --as raw");
    command.add_option("--format", options.format,
                       "Format of the files, by its PFNC name: BGR8, RGB8, Mono8, Mono16, ... (default: the camera's, "
                       "or the nearest that the file holds)");
    command.add_flag("--quiet", options.quiet, "No progress");
    command.add_flag("--chunks", options.chunks, "Tell the chunks of the last frame (with --json)");
    command.add_option("--frame-timeout", options.frame_timeout_ms, "Longest wait for a frame, milliseconds")
        ->check(option_checks::whole_number(1, longest_wait))
        ->capture_default_str();
    command.add_option("--set", given->settings,
                       "NAME=VALUE or NAME[SELECTOR=CHOICE]=VALUE before the start; may be repeated, in this order");
    command.add_flag("--explain", options.explain, "Tell where packets were lost, and what mends it");
    command
        .add_option("--trigger", options.trigger_hz,
                    "Trigger the camera by software, at this rate in Hz; its trigger features are put back")
        ->check(option_checks::number(0.001, 100'000));
    given->reconnect = command.add_option("--reconnect", options.reconnect_s,
                                          "Wait for a camera or service that goes, for ever or so many seconds, and go "
                                          "on");
    given->reconnect->expected(0, 1)
        ->type_name("[SECONDS]")
        ->check([seconds = option_checks::whole_number(0, longest_wait)](const std::string& text) {
            return text.empty() ? text : seconds(text); // alone: for ever
        });
    command
        .add_option("--hold", options.hold_ms, "Keep each buffer for so many milliseconds, as a slow application does")
        ->check(option_checks::whole_number(0, longest_wait));
    command.footer("Ctrl-C stops the camera and sums up; a second one ends at once.\n"
                   "Examples:\n"
                   "  orv-gentl grab --device left --frames 100 --output pictures --set ExposureTime=5000\n"
                   "  orv-gentl grab --frames 1000 --explain         where were packets lost?\n"
                   "  orv-gentl grab --frames 100 --trigger 25       25 software triggers a second\n"
                   "  orv-gentl grab --frames 100000 --reconnect 60  a minute's patience with a camera that goes");
}

} // namespace cli
