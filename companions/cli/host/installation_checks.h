// Whether applications find this library, once and alone, and whether the installed service is switched on, runs and
// lets this user in.
#pragma once

#include "host_checks.h"

#include <filesystem>
#include <string>
#include <vector>

namespace cli {

// The one that applications are to be pointed at: that with the functions on buffer parts, which several of them refuse
// to go without, and say nothing of it at their usual log level. In a build tree it stands in a folder of its own.
[[nodiscard]] std::filesystem::path library_for_applications(const std::filesystem::path& own);

// What to do when there is none that loads: other things in a build tree than where it is installed.
[[nodiscard]] std::string library_remedy();

// `own` is the library in use; empty where there is none, and then what concerns it is not looked at.
void check_installation(const std::filesystem::path& own, std::vector<finding>& findings);

// The files that settings have library and service log to, as far as this shell and the programs' folder tell.
struct named_log {
    const char* key; // "cti_log_file" or "service_log_file"
    std::filesystem::path file;
};
[[nodiscard]] std::vector<named_log> logs_of_settings(const std::filesystem::path& own);

// The list of GENICAM_GENTL64_PATH, as applications read it: folders, or files that end in .cti.
void check_producer_path(const std::string& list, const std::filesystem::path& own, std::vector<finding>& findings);

} // namespace cli
