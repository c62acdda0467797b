#include "failure.h"

#include <algorithm>
#include <array>

namespace cli {

namespace {

constexpr std::array rows{
    cause_row{cause::no, 1, "no"},
    cause_row{cause::failed, 2, "failed"},
    cause_row{cause::arguments, 3, "arguments"},
    cause_row{cause::no_library, 4, "no_library"},
    cause_row{cause::no_service, 5, "no_service"},
    cause_row{cause::no_camera, 6, "no_camera"},
    cause_row{cause::ambiguous, 7, "ambiguous"},
    cause_row{cause::busy, 8, "busy"},
    cause_row{cause::lost, 9, "lost"},
    cause_row{cause::timeout, 10, "timeout"},
    cause_row{cause::incomplete, 11, "incomplete"},
    cause_row{cause::verification, 12, "verification"},
    cause_row{cause::feature, 13, "feature"},
    cause_row{cause::output, 14, "output"},
    cause_row{cause::interrupted, 130, "interrupted"}, // as a shell reports a process that Ctrl-C ended
};

} // namespace

std::span<const cause_row> all_causes() noexcept { return rows; }

const cause_row& row_of(cause which) noexcept { return *std::ranges::find(rows, which, &cause_row::which); }

} // namespace cli
