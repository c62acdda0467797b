// The corpus of the fuzz targets, as it is and with a fixed series of changes, so that every compiler and sanitizer
// runs it without libFuzzer.
#include <exercise.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <vector>

namespace {

using bytes = std::vector<std::byte>;

std::vector<bytes> corpus() {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator{ORV_STREAM_CORPUS}) files.push_back(entry.path());
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

// One of: change a byte, cut a piece out, double a piece, take a piece of another input.
bytes changed(const std::vector<bytes>& inputs, std::mt19937& random) {
    const auto below = [&](std::size_t n) { return n == 0 ? 0 : random() % n; };
    const auto at = [](std::size_t n) { return static_cast<std::ptrdiff_t>(n); };
    bytes input = inputs[below(inputs.size())];
    for (std::size_t changes = 1 + below(6); changes != 0; --changes) {
        const std::size_t from = below(input.size());
        const std::size_t length = below(std::min<std::size_t>(input.size() - from, 250) + 1);
        switch (below(4)) {
        case 0:
            if (!input.empty()) input[from] = static_cast<std::byte>(random());
            break;
        case 1:
            input.erase(input.begin() + at(from), input.begin() + at(from + length));
            break;
        case 2: {
            const bytes piece(input.begin() + at(from), input.begin() + at(from + length));
            input.insert(input.begin() + at(from), piece.begin(), piece.end());
            break;
        }
        default: {
            const bytes& other = inputs[below(inputs.size())];
            const std::size_t first = below(other.size());
            const std::size_t count = below(std::min<std::size_t>(other.size() - first, 250) + 1);
            input.insert(input.begin() + at(from), other.begin() + at(first), other.begin() + at(first + count));
        }
        }
    }
    return input;
}

void replay(void (*exercise)(std::span<const std::byte>)) {
    const auto inputs = corpus();
    ASSERT_GE(inputs.size(), 15U);
    for (const bytes& input : inputs) exercise(input);
    for (unsigned seed = 0; seed < 15'000; ++seed) {
        std::mt19937 random{seed};
        exercise(changed(inputs, random));
    }
}

} // namespace

TEST(FuzzReplay, Simple) { replay(fuzz::exercise_simple); }
TEST(FuzzReplay, Resend) { replay(fuzz::exercise_resend); }
TEST(FuzzReplay, Copy) { replay(fuzz::exercise_copy); }
