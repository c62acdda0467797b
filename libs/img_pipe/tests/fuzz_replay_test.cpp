// The corpus of the fuzz target, as it is and with a fixed series of changes, so that every compiler and sanitizer runs
// it without libFuzzer.
#include <replay.h>

#include <exercise.h>

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

TEST(ImgPipeFuzzReplay, TheCorpusAndChangesOfIt) {
    const auto inputs = fuzz::read_corpus(ORV_FUZZ_CORPUS);
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
