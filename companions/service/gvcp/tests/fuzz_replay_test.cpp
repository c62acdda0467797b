// The corpus of the fuzz targets, as it is and with a fixed series of changes, so that every compiler and sanitizer
// runs it without libFuzzer.
#include <exercise.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace {

struct target {
    const char* name;
    void (*exercise)(std::span<const std::byte>);
};

void PrintTo(const target& given, std::ostream* out) { *out << given.name; }

std::vector<std::string> corpus_of(const target& given) {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator{std::string{ORV_GVCP_CORPUS} + '/' + given.name})
        files.push_back(entry.path());
    std::ranges::sort(files);
    std::vector<std::string> inputs;
    for (const auto& file : files) {
        std::ifstream in{file, std::ios::binary};
        inputs.emplace_back(std::istreambuf_iterator<char>{in}, std::istreambuf_iterator<char>{});
    }
    return inputs;
}

// A changed byte, a piece less, or a piece of another input, a few times.
std::string changed(const std::vector<std::string>& inputs, std::mt19937& random) {
    const auto below = [&](std::size_t n) { return n == 0 ? 0 : random() % n; };
    std::string input = inputs[below(inputs.size())];
    for (std::size_t changes = 1 + below(6); changes != 0; --changes) {
        const std::size_t at = below(input.size());
        const std::string& other = inputs[below(inputs.size())];
        switch (below(3)) {
        case 0:
            if (!input.empty()) input[at] = static_cast<char>(random());
            break;
        case 1:
            input.erase(at, below(64));
            break;
        default:
            input.insert(at, other, below(other.size()), below(64));
        }
    }
    return input;
}

class GvcpFuzzReplay : public testing::TestWithParam<target> {};

TEST_P(GvcpFuzzReplay, TheCorpusAndChangesOfIt) {
    const auto inputs = corpus_of(GetParam());
    ASSERT_GE(inputs.size(), 5U);
    std::mt19937 random{5489};
    for (const auto& input : inputs) GetParam().exercise(std::as_bytes(std::span{input}));
    for (int i = 0; i < 4000; ++i) {
        // Of its own size, so that a sanitizer sees a read behind it.
        const auto input = changed(inputs, random);
        const std::vector<char> exact{input.begin(), input.end()};
        GetParam().exercise(std::as_bytes(std::span{exact}));
    }
}

INSTANTIATE_TEST_SUITE_P(Targets, GvcpFuzzReplay,
                         testing::Values(target{"ack", fuzz::exercise_ack}, target{"url", fuzz::exercise_url},
                                         target{"zip", fuzz::exercise_zip}, target{"event", fuzz::exercise_event}),
                         [](const auto& chosen) { return std::string{chosen.param.name}; });

} // namespace
