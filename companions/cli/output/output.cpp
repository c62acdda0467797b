#include "output.h"

#include "../consumer/gentl_library.h"

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace cli {

namespace {

[[noreturn]] void cannot_write(int error) {
    throw failure(cause::output, fmt::format("Cannot write to the standard output: {}.",
                                             std::system_category().message(error == 0 ? EIO : error)));
}

cause cause_of(const std::exception& reason) {
    if (const auto* known = dynamic_cast<const failure*>(&reason)) return known->why();
    // What was printed past the functions above.
    return std::ferror(stdout) != 0 ? cause::output : cause::failed;
}

// The reason, and below it what mends it where that is told apart.
std::string text_of(const std::exception& reason) {
    const auto* known = dynamic_cast<const failure*>(&reason);
    if (known == nullptr || known->remedy().empty()) return reason.what();
    return fmt::format("{}\n{}", reason.what(), known->remedy());
}

} // namespace

void print_text(std::string_view text) {
    errno = 0;
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) cannot_write(errno);
}

void flush_output() {
    errno = 0;
    if (std::ferror(stdout) != 0 || std::fflush(stdout) != 0) cannot_write(errno);
}

std::string json_text(const nlohmann::json& object) {
    return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void print_json(const nlohmann::json& object) {
    print_text(json_text(object) + '\n');
    flush_output();
}

void say_text(std::string_view text) noexcept {
    static_cast<void>(std::fwrite(text.data(), 1, text.size(), stderr));
    std::fflush(stderr);
}

nlohmann::json error_object(const std::exception& reason) {
    const cause_row& row = row_of(cause_of(reason));
    nlohmann::json object{{"cause", row.name},       {"exit_code", row.exit_code},
                          {"text", text_of(reason)}, {"call", nullptr},
                          {"code", nullptr},         {"producer", nullptr}};
    if (const auto* call = dynamic_cast<const call_failed*>(&reason)) {
        object["call"] = call->call;
        object["code"] = call->code;
        object["producer"] = call->reason;
    }
    return object;
}

int report_failure(const std::exception& reason, bool json, nlohmann::json result) {
    say("{}\n", text_of(reason));
    const int exit_code = row_of(cause_of(reason)).exit_code;
    if (!json) return exit_code;
    try {
        result["error"] = error_object(reason);
        print_json(result);
    } catch (const failure& second) {
        // The first reason is the one to tell, unless it is this one.
        if (cause_of(reason) != cause::output) say("{}\n", second.what());
    }
    return exit_code;
}

} // namespace cli
