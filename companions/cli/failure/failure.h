// Why a command did not do what was asked: the one list of causes, with the exit code and the name that each has for
// machines. docs/tools.md shows this list to users.
#pragma once

#include <span>
#include <stdexcept>
#include <string>
#include <utility>

namespace cli {

enum class cause {
    no,           // the command ran, and its answer is no: doctor found something bad, no event came
    failed,       // what none of the others tells
    arguments,    // the command line
    no_library,   // no .cti, or not one
    no_service,   // the library cannot open its system
    no_camera,    // nothing that fits --device or --interface
    ambiguous,    // more than one camera fits
    busy,         // somebody else controls the camera
    lost,         // camera or service went while the command ran
    timeout,      // frames or a command's end did not come
    incomplete,   // --verify: frames came incomplete, and those that came whole are right
    verification, // --verify: frames that came whole are wrong
    feature,      // a feature does not exist or does not take or give a value
    output,       // a file or the standard output cannot be written
    interrupted,  // Ctrl-C or SIGTERM
};

struct cause_row {
    cause which;
    int exit_code;
    const char* name; // in JSON
};
[[nodiscard]] std::span<const cause_row> all_causes() noexcept;
[[nodiscard]] const cause_row& row_of(cause which) noexcept;

// Thrown by whoever knows the reason; main prints it once, as text and, with --json, as an object. A remedy that is
// told apart from the reason stands in neither before it is printed.
class failure : public std::runtime_error {
public:
    failure(cause why, const std::string& text, std::string mended_by = {})
        : std::runtime_error(text), reason_for(why), mends(std::move(mended_by)) {}
    [[nodiscard]] cause why() const noexcept { return reason_for; }
    [[nodiscard]] const std::string& remedy() const noexcept { return mends; }

private:
    cause reason_for;
    std::string mends;
};

} // namespace cli
