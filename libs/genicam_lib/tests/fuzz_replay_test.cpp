// The corpus of the fuzz targets, as it is and with a fixed series of changes, so that every compiler and sanitizer
// runs it without libFuzzer.
#include <exercise.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <span>
#include <string>
#include <vector>

namespace {

std::vector<std::string> corpus(const char* kind) {
    std::vector<std::string> texts;
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator{std::filesystem::path{ORV_FUZZ_CORPUS} / kind})
        files.push_back(entry.path());
    std::ranges::sort(files);
    for (const auto& file : files) {
        std::ifstream in{file, std::ios::binary};
        texts.emplace_back(std::istreambuf_iterator<char>{in}, std::istreambuf_iterator<char>{});
    }
    return texts;
}

// One of: change a byte, cut a piece out, double a piece, take a piece of another text.
std::string changed(const std::vector<std::string>& texts, std::mt19937& random) {
    const auto below = [&](std::size_t n) { return n == 0 ? 0 : random() % n; };
    std::string text = texts[below(texts.size())];
    for (std::size_t changes = 1 + below(4); changes != 0; --changes) {
        const std::size_t at = below(text.size());
        const std::size_t length = below(std::min<std::size_t>(text.size() - at, 60) + 1);
        switch (below(4)) {
        case 0:
            if (!text.empty()) text[at] = static_cast<char>(random());
            break;
        case 1:
            text.erase(at, length);
            break;
        case 2:
            text.insert(at, text.substr(at, length));
            break;
        default: {
            const std::string& other = texts[below(texts.size())];
            const std::size_t from = below(other.size());
            text.insert(at, other.substr(from, below(60)));
        }
        }
    }
    return text;
}

void replay(const char* kind, unsigned rounds, const std::function<void(const std::string&)>& exercise) {
    const auto texts = corpus(kind);
    ASSERT_FALSE(texts.empty());
    for (const std::string& text : texts) exercise(text);
    for (unsigned seed = 0; seed < rounds; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random{seed};
        exercise(changed(texts, random));
    }
}

TEST(FuzzReplay, Documents) {
    replay("document", 1500, [](const std::string& text) { fuzz::exercise_document(std::as_bytes(std::span{text})); });
}

TEST(FuzzReplay, Formulas) {
    replay("formula", 20'000, [](const std::string& text) { fuzz::exercise_formula(text); });
}

} // namespace
