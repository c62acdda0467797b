#include "firmware_command.h"

#include "../consumer/interface_session.h"
#include "../output/output.h"
#include "../posix/standard_streams.h"

#include <fmt/format.h>

#include <charconv>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <thread>

namespace cli {

namespace {

constexpr std::chrono::seconds longest_silence{5};

// The number in front of the last '%'; below 0 for none.
int percent_of(const std::string& state) {
    const size_t sign = state.rfind('%');
    if (sign == state.npos) return -1;
    const size_t end = state.find_last_of("0123456789", sign);
    if (end == state.npos) return -1;
    const size_t before = state.find_last_not_of("0123456789", end);
    const size_t start = before == state.npos ? 0 : before + 1;
    int value = -1;
    std::from_chars(state.data() + start, state.data() + end + 1, value);
    return value;
}

void show_progress(const std::string& state) {
    constexpr int width = 40;
    const int percent = percent_of(state);
    const int done = percent < 0 ? 0 : percent * width / 100;
    say_text(fmt::format("\r[{:#<{}}{:<{}}] {:<50}", "", done, "", width - done, printable(state.substr(0, 50))));
}

} // namespace

int upload_firmware(const common_options& common, const std::string& package, std::chrono::seconds longest) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(package, error))
        throw failure(cause::arguments,
                      fmt::format("Cannot read '{}': {}.", package, error ? error.message() : "it is no regular file"));
    const interface_session session = interface_session::of_device(common);
    // The library reads the file; a relative name would be looked for where that runs, which is here.
    session.set("FirmwareUpdatePackageFile", std::filesystem::absolute(package).string());
    const auto state_of = [&] { return session.text("FirmwareUpdateProgress"); };
    try {
        session.run("FirmwareUpdateUpload");
    } catch (const call_failed& failure) {
        // The library's own refusals never reached the service, whose last word is of an earlier upload.
        const bool never_sent = failure.code == GenTL::GC_ERR_INVALID_PARAMETER &&
                                failure.reason.find("gevdrv-status") == std::string::npos;
        const std::string why = never_sent ? "" : state_of();
        const call_failed told = why.starts_with("Refused") ? call_failed(failure.call, failure.code,
                                                                          fmt::format("{} ({})", failure.reason, why))
                                                            : failure;
        if (failure.is_held())
            throw told.explained(cause::busy, fmt::format("Camera '{}' is in use.", session.device.id));
        if (failure.code == GenTL::GC_ERR_INVALID_PARAMETER || failure.reason.contains("ERR_PARSING_FAILED"))
            throw told.explained(cause::arguments,
                                 fmt::format("Camera '{}' cannot be given '{}'.", session.device.id, package));
        throw told;
    }
    const bool bar = !common.json && errors_are_seen_on_a_terminal();
    std::string shown;
    std::string last;
    const auto give_up = std::chrono::steady_clock::now() + longest;
    auto heard = std::chrono::steady_clock::now();
    for (;;) {
        const std::string state = state_of();
        // What cannot be had is an empty text.
        if (!state.empty()) heard = std::chrono::steady_clock::now();
        if (std::chrono::steady_clock::now() - heard > longest_silence)
            throw std::runtime_error(fmt::format(
                "The service says nothing more of the update; its last word was '{}'. Is it running?", last));
        const bool finished = state.starts_with("Finished");
        // "Refused" is another's upload that came between two looks at ours: how that ended is not to be had any more.
        const bool failed = state.starts_with("Failed") || state.starts_with("Refused");
        if (bar) {
            show_progress(state);
        } else if (state != shown && !state.empty() && !common.json) {
            fmt::print("{}\n", state);
            std::fflush(stdout);
        }
        shown = state;
        if (!state.empty()) last = state;
        if (finished || failed) {
            if (bar) say("\n");
            if (common.json) print_json({{"device", session.device.id}, {"finished", finished}, {"state", state}});
            return finished ? 0 : 1;
        }
        if (std::chrono::steady_clock::now() >= give_up)
            throw std::runtime_error(fmt::format("The update goes on in the service; its last word was '{}'.", last));
        std::this_thread::sleep_for(std::chrono::milliseconds{200});
    }
}

} // namespace cli
