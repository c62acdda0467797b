// The corpus of the fuzz targets, so that every compiler and sanitizer runs it without libFuzzer.
#include <exercise.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <vector>

namespace {

using bytes = std::vector<std::byte>;

std::vector<bytes> corpus() {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator{ORV_FUZZ_CORPUS}) files.push_back(entry.path());
    std::ranges::sort(files);
    std::vector<bytes> inputs;
    for (const auto& file : files) {
        std::ifstream in{file, std::ios::binary};
        const std::string text{std::istreambuf_iterator<char>{in}, std::istreambuf_iterator<char>{}};
        const auto raw = std::as_bytes(std::span{text});
        inputs.emplace_back(raw.begin(), raw.end());
    }
    return inputs;
}

void replay(void (*exercise)(std::span<const std::byte>)) {
    const auto inputs = corpus();
    ASSERT_GE(inputs.size(), 15U);
    for (const bytes& input : inputs) exercise(input);
}

} // namespace

TEST(FuzzReplay, Simple) { replay(fuzz::exercise_simple); }
TEST(FuzzReplay, Resend) { replay(fuzz::exercise_resend); }
TEST(FuzzReplay, Copy) { replay(fuzz::exercise_copy); }
