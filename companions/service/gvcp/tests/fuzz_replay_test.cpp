#include <exercise.h>

#include <replay.h>

namespace {

void replay(const char* kind, void (*exercise)(std::span<const std::byte>)) {
    fuzz::replay(std::filesystem::path{ORV_FUZZ_CORPUS} / kind, 4000, exercise);
}

TEST(GvcpFuzzReplay, Acknowledges) { replay("ack", fuzz::exercise_ack); }
TEST(GvcpFuzzReplay, Urls) { replay("url", fuzz::exercise_url); }
TEST(GvcpFuzzReplay, Archives) { replay("zip", fuzz::exercise_zip); }
TEST(GvcpFuzzReplay, Events) { replay("event", fuzz::exercise_event); }

} // namespace
