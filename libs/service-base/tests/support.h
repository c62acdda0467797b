// What tests need again and again: a folder of their own, and to wait for what comes when it comes.
#pragma once

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

namespace test_support {

class temporary_folder {
public:
    temporary_folder() {
        std::string name = std::filesystem::temp_directory_path() / "orv-test-XXXXXX";
        path = ::mkdtemp(name.data());
    }
    ~temporary_folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    temporary_folder(const temporary_folder&) = delete;
    temporary_folder& operator=(const temporary_folder&) = delete;

    std::filesystem::path path;
};

// Where this process and its children make and look for a service's socket.
class runtime_folder : public temporary_folder {
public:
    runtime_folder() { setenv("ORV_GENTL_RUNTIME_DIR", path.c_str(), 1); }
};

// False when it is not so after the time: a test that waits for ever has failed.
template <class Condition>
bool eventually(Condition&& condition, std::chrono::milliseconds limit = std::chrono::seconds{30}) {
    const auto until = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= until) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds{5});
    }
    return true;
}

} // namespace test_support
