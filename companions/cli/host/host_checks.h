// What this host's network settings mean for a stream: read from the kernel, against thresholds that have a reason.
#pragma once

#include <exception>
#include <string>
#include <vector>

namespace cli {

enum class grade {
    ok,
    advice, // works, and would work better
    bad,    // keeps cameras from being seen or frames from coming
};

struct finding {
    std::string check;
    grade of;
    std::string found;  // what was read
    std::string wanted; // the threshold
    std::string why;    // empty when ok
    std::string remedy; // lasting; a command, or a sentence
};

// A check that fails is a finding, and keeps no other from being made.
template <class Check>
void attempt(const std::string& what, std::vector<finding>& findings, Check&& check) {
    try {
        check();
    } catch (const std::exception& reason) {
        findings.push_back({what, grade::advice, reason.what(), "an answer", "it could not be looked at", {}});
    }
}

void check_host(std::vector<finding>& findings);

// For a test: the same on a copy of /proc/sys/net and /sys/class/net.
struct kernel_files {
    std::string sysctl = "/proc/sys/net", interfaces = "/sys/class/net";
};
void check_receive_buffer(const kernel_files& kernel, std::vector<finding>& findings);
void check_interfaces(const kernel_files& kernel, std::vector<finding>& findings);

} // namespace cli
