// Frames from a camera, counted, checked and written to files.
#pragma once

#include "session.h"

#include <filesystem>
#include <map>

namespace cli {

struct grab_options {
    uint64_t frames = 10;
    size_t buffers = 20;
    bool verify = false;
    bool quiet = false;
    std::filesystem::path output; // folder for pictures; empty: none
    uint64_t save = 3;            // pictures to keep, spread over the run
    std::string format;           // of the files, PFNC name; empty: the camera's
    bool raw = false;             // raw files instead of PNG
    uint64_t frame_timeout_ms = 5000;
    std::map<std::string, std::string> set; // features of the camera, set before the start
    bool chunks = false;                    // report the chunks of the last frame
};

// Prints the object (with --json) or a table; the exit code: 0, or 1 when verification failed or frames did not come.
int grab(const common_options& common, const grab_options& options);

} // namespace cli
