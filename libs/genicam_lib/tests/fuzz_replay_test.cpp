#include <exercise.h>

#include <replay.h>

TEST(FuzzReplay, Documents) {
    fuzz::replay(std::filesystem::path{ORV_FUZZ_CORPUS} / "document", 1500, fuzz::exercise_document);
}

TEST(FuzzReplay, Formulas) {
    fuzz::replay(std::filesystem::path{ORV_FUZZ_CORPUS} / "formula", 20'000, [](std::span<const std::byte> bytes) {
        fuzz::exercise_formula({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    });
}
