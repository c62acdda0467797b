#include <img_pipe/transform_pipe.h>
#include <support/failing_memory.h>
#include <support/temporary_folder.h>

#include <gtest/gtest.h>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <new>
#include <vector>

using namespace img_pipe;

namespace {

#if defined(__x86_64__)
constexpr std::uint32_t built_in = cpu::level_sse;
#elif defined(__aarch64__)
constexpr std::uint32_t built_in = cpu::level_neon;
#else
constexpr std::uint32_t built_in = cpu::c;
#endif

} // namespace

TEST(Dispatch, LevelNames) {
    EXPECT_EQ(cpu_level_name(0x13F), "avx512f");
    EXPECT_EQ(cpu_level_name(0x3F), "AVX2");
    EXPECT_EQ(cpu_level_name(0x1F), "AVX");
    EXPECT_EQ(cpu_level_name(0xF), "SSE4.1");
    EXPECT_EQ(cpu_level_name(0x3), "SSSE3");
    EXPECT_EQ(cpu_level_name(0x10001), "NEON");
    EXPECT_EQ(cpu_level_name(0x1), "plain");
    EXPECT_EQ(cpu_level_name(0), "Unspecified");
    EXPECT_TRUE(cpu_mask() & cpu::c);
}

// Who runs this on an emulated processor says what level that has.
TEST(Dispatch, TheProcessorsOwnLevel) {
    if (const char* level = std::getenv("ORV_CPU_LEVEL")) {
        EXPECT_EQ(cpu_level_name(cpu_mask()), level);
    }
    const filter_table table = get_filter_table(cpu_mask());
    ASSERT_FALSE(table.empty());
    EXPECT_EQ(table.back().required_cpu, cpu::c);
    EXPECT_EQ(built_in_level(), built_in);
    EXPECT_EQ(table.size() > 1, built_in != cpu::c && (cpu_mask() & built_in) == built_in);
#if defined(__aarch64__)
    EXPECT_EQ(table.front().required_cpu, cpu::level_neon) << "every such processor has it";
#endif
}

TEST(Dispatch, PlainAloneForMaskOne) {
    const filter_table table = get_filter_table(1);
    ASSERT_EQ(table.size(), 1U);
    EXPECT_EQ(table[0].required_cpu, 1U);
    EXPECT_TRUE(get_filter_table(0).empty());
}

#ifdef MODULE_avx2
static std::future<filter_table> asked_while_loading;

extern "C" __attribute__((visibility("default"))) void while_loading();
extern "C" void while_loading() {
    asked_while_loading = std::async(std::launch::async, [] { return get_filter_table(cpu::c); });
    EXPECT_EQ(asked_while_loading.wait_for(std::chrono::seconds{10}), std::future_status::ready)
        << "waits for a lock that the loading thread holds";
}

// Two locks in both orders would stop two threads for ever: the loader's, held here, and ours.
TEST(Dispatch, NobodyWaitsForTheLoader) {
    EXPECT_EQ(load_filter_library(MODULE_held_loader, 0), load_result::null_result);
    ASSERT_TRUE(asked_while_loading.valid()) << "the module's constructor has not run";
    EXPECT_EQ(asked_while_loading.get().size(), 1U);
}

TEST(Dispatch, BadModulesLeaveWhatIsThere) {
    const std::size_t before = get_filter_table(0xFFFF).size();
    EXPECT_EQ(load_filter_library("/nowhere/module.so", 0), load_result::missing);
    EXPECT_EQ(load_filter_library(__FILE__, 0), load_result::missing) << "not a library";
    EXPECT_EQ(load_filter_library(MODULE_no_export, 0), load_result::no_export);
    EXPECT_EQ(load_filter_library(MODULE_null_result, 0), load_result::null_result);
    EXPECT_EQ(load_filter_library(MODULE_null_record, 0), load_result::null_result);
    EXPECT_EQ(load_filter_library(std::filesystem::temp_directory_path().string(), 0), load_result::missing);
    EXPECT_EQ(get_filter_table(0xFFFF).size(), before);
}

// A program that was found by $PATH knows itself by its bare name alone. What lies under that name in the current
// directory is another's, and so is the module beside it.
TEST(Dispatch, ProgramsLoadNothingFromTheCurrentDirectory) {
    if ((cpu_mask() & cpu::avx2) == 0) GTEST_SKIP() << "no module is looked for";
    const test_support::temporary_folder folder;
    const auto& here = folder.path;
    const std::ofstream program(here / "bare_name");
    std::filesystem::copy_file(MODULE_planted, here / std::filesystem::path(default_filter_library()).filename());
    char name[] = "bare_name", filter[] = "--gtest_filter=Dispatch.TheProcessorsOwnLevel";
    char* const arguments[] = {name, filter, nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addchdir_np(&actions, here.c_str());
    pid_t child = 0;
    ASSERT_EQ(posix_spawn(&child, "/proc/self/exe", &actions, nullptr, arguments, environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(std::filesystem::exists(here / "loaded"));
}

TEST(Dispatch, AModuleForAnotherProcessorStaysOut) {
    const std::size_t before = get_filter_table(cpu_mask()).size();
    const load_result loaded = load_filter_library(MODULE_above_processor, 0);
    EXPECT_TRUE(loaded == load_result::loaded || loaded == load_result::already_loaded);
    EXPECT_EQ(get_filter_table(cpu_mask()).size(), before);
    // Nor does a caller get it into a pipe by asking for more than the processor has.
    std::vector<std::uint8_t> pixels(4 * 4 * 5);
    const img_descriptor grey = make_view(pixels.data(), 16, fcc("Y800"), 4, 4),
                         colour = make_view(pixels.data() + 16, 64, fcc("BGR4"), 4, 4);
    transform_params params;
    params.optimization_level = 0xFFFFFFFF;
    transform_pipe pipe;
    EXPECT_TRUE(pipe.transform(colour, grey, params));
}

TEST(Dispatch, AModuleThatMemoryLackedForIsNotTakenForLoaded) {
    std::filesystem::path path = MODULE_above_processor;
    for (int successes = 0;; ++successes) {
        path = path.parent_path() / "." / path.filename(); // another name for the same
        const std::string name = path.string();
        failing_memory::fail(successes);
        try {
            static_cast<void>(load_filter_library(name, 0));
        } catch (const std::bad_alloc&) {
        }
        if (failing_memory::stop() == 0) break; // there was enough
        EXPECT_EQ(load_filter_library(name, 0), load_result::loaded) << successes;
    }
}

TEST(Dispatch, LoadedModuleComesFirstWhereTheProcessorServes) {
    const load_result first = load_filter_library(MODULE_avx2, 0); // another test of this process may have loaded it
    EXPECT_TRUE(first == load_result::loaded || first == load_result::already_loaded);
    EXPECT_EQ(load_filter_library(MODULE_avx2, 0), load_result::already_loaded);
    const filter_table all = get_filter_table(0x3F);
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(all[0].required_cpu, 0x3FU);
    EXPECT_EQ(all[1].required_cpu, 0xFU);
    EXPECT_EQ(get_filter_table(0x1F).size(), 2U) << "no AVX2";
}
#endif
