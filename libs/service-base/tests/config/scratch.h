// A folder of its own for each test, and an environment that is put back.
#pragma once

#include <support/temporary_folder.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <map>
#include <optional>
#include <sstream>
#include <string>

class scratch : public testing::Test {
protected:
    ~scratch() override {
        for (const auto& [name, value] : saved) {
            if (value) {
                setenv(name.c_str(), value->c_str(), 1);
            } else {
                unsetenv(name.c_str());
            }
        }
    }

    void set(const std::string& name, const std::optional<std::string>& value) {
        const char* before = std::getenv(name.c_str());
        saved.try_emplace(name, before == nullptr ? std::nullopt : std::optional<std::string>{before});
        if (value) {
            setenv(name.c_str(), value->c_str(), 1);
        } else {
            unsetenv(name.c_str());
        }
    }
    std::filesystem::path write(const std::filesystem::path& name, const std::string& text) const {
        const auto path = folder / name;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream{path} << text;
        return path;
    }
    static std::string text_of(const std::filesystem::path& path) {
        std::ostringstream text;
        text << std::ifstream{path}.rdbuf();
        return text.str();
    }

    std::string make_pipe(const std::filesystem::path& name) const {
        const std::string path = folder / name;
        EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
        return path;
    }
    // On a thread of its own; if it waits for the pipe's other end, that comes in the end.
    static void must_not_wait_for(const std::string& pipe, const std::function<void()>& work) {
        const auto done = std::async(std::launch::async, work);
        EXPECT_EQ(done.wait_for(std::chrono::seconds{30}), std::future_status::ready);
        close(open(pipe.c_str(), O_RDWR | O_NONBLOCK));
    }

    const test_support::temporary_folder temporary;
    const std::filesystem::path& folder = temporary.path;

private:
    std::map<std::string, std::optional<std::string>> saved;
};
