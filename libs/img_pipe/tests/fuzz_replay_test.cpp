// The corpus of the fuzz target, as it is and with a fixed series of changes, so that every compiler and sanitizer runs
// it without libFuzzer.
#include <exercise.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace {

std::vector<std::string> corpus() {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator{ORV_IMG_CORPUS}) files.push_back(entry.path());
    std::ranges::sort(files);
    std::vector<std::string> inputs;
    for (const auto& file : files) {
        std::ifstream in{file, std::ios::binary};
        inputs.emplace_back(std::istreambuf_iterator<char>{in}, std::istreambuf_iterator<char>{});
    }
    return inputs;
}

} // namespace

TEST(ImgPipeFuzzReplay, TheCorpusAndChangesOfIt) {
    const auto inputs = corpus();
    ASSERT_GE(inputs.size(), 20U);
    for (const auto& input : inputs) fuzz::exercise_transform(std::as_bytes(std::span{input}));
    std::mt19937 random{5489};
    for (int i = 0; i < 1500; ++i) {
        std::string input = inputs[random() % inputs.size()];
        input[0] = static_cast<char>(random()); // the formats
        input[1] = static_cast<char>(random());
        for (std::size_t changes = random() % 6; changes != 0; --changes)
            input[random() % input.size()] = static_cast<char>(random());
        if (random() % 8 == 0) input.resize(random() % input.size());
        // Of its own size, so that a sanitizer sees a read behind it.
        const std::vector<char> exact{input.begin(), input.end()};
        fuzz::exercise_transform(std::as_bytes(std::span{exact}));
    }
}
