// What a fuzz target is given without libFuzzer, so that every compiler and sanitizer runs it: its corpus as it is, and
// with a fixed series of changes.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <span>
#include <string>
#include <vector>

namespace fuzz {

inline std::vector<std::string> read_corpus(const std::filesystem::path& folder) {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator{folder}) files.push_back(entry.path());
    std::ranges::sort(files);
    std::vector<std::string> inputs;
    for (const auto& file : files) {
        std::ifstream in{file, std::ios::binary};
        inputs.emplace_back(std::istreambuf_iterator<char>{in}, std::istreambuf_iterator<char>{});
    }
    return inputs;
}

// A few times one of: a byte changed, a piece cut out, a piece doubled, a piece of another input put in.
inline std::string changed(const std::vector<std::string>& inputs, std::mt19937& random) {
    const auto below = [&](std::size_t n) { return n == 0 ? 0 : random() % n; };
    std::string input = inputs[below(inputs.size())];
    for (std::size_t changes = 1 + below(5); changes != 0; --changes) {
        const std::size_t at = below(input.size());
        const std::size_t length = below(std::min<std::size_t>(input.size() - at, 60) + 1);
        const std::string& other = inputs[below(inputs.size())];
        switch (below(4)) {
        case 0:
            if (!input.empty()) input[at] = static_cast<char>(random());
            break;
        case 1:
            input.erase(at, length);
            break;
        case 2:
            input.insert(at, input.substr(at, length));
            break;
        default:
            input.insert(at, other, below(other.size()), below(60));
        }
    }
    return input;
}

inline void replay(const std::filesystem::path& folder, unsigned rounds,
                   const std::function<void(std::span<const std::byte>)>& exercise) {
    const auto inputs = read_corpus(folder);
    ASSERT_GE(inputs.size(), 5U);
    for (const auto& input : inputs) exercise(std::as_bytes(std::span{input}));
    for (unsigned seed = 0; seed < rounds; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random{seed};
        // Of its own size, so that a sanitizer sees a read behind it.
        const auto input = changed(inputs, random);
        const std::vector<char> exact{input.begin(), input.end()};
        exercise(std::as_bytes(std::span{exact}));
    }
}

} // namespace fuzz
