// A folder of its own for each test, and an environment that is put back.
#pragma once

#include <support/temporary_folder.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
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

    const test_support::temporary_folder temporary;
    const std::filesystem::path& folder = temporary.path;

private:
    std::map<std::string, std::optional<std::string>> saved;
};
