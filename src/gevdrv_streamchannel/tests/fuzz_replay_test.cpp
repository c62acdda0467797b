#include <exercise.h>

#include <replay.h>

TEST(FuzzReplay, Simple) { fuzz::replay(ORV_FUZZ_CORPUS, 2000, fuzz::exercise_simple); }
TEST(FuzzReplay, Resend) { fuzz::replay(ORV_FUZZ_CORPUS, 2000, fuzz::exercise_resend); }
TEST(FuzzReplay, Copy) { fuzz::replay(ORV_FUZZ_CORPUS, 2000, fuzz::exercise_copy); }
