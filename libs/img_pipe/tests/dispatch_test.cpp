#include <img_pipe/filter_table.h>

#include <gtest/gtest.h>

using namespace img_pipe;

TEST(Dispatch, LevelNames) {
    EXPECT_EQ(cpu_level_name(0x13F), "avx512f");
    EXPECT_EQ(cpu_level_name(0x3F), "AVX2");
    EXPECT_EQ(cpu_level_name(0x1F), "AVX");
    EXPECT_EQ(cpu_level_name(0xF), "SSE4.1");
    EXPECT_EQ(cpu_level_name(0x3), "SSSE3");
    EXPECT_EQ(cpu_level_name(0x1), "plain");
    EXPECT_EQ(cpu_level_name(0), "Unspecified");
    EXPECT_TRUE(cpu_mask() & cpu::c);
}

TEST(Dispatch, PlainAloneForMaskOne) {
    const filter_table table = get_filter_table(1);
    ASSERT_EQ(table.size(), 1U);
    EXPECT_EQ(table[0].required_cpu, 1U);
    EXPECT_TRUE(get_filter_table(0).empty());
}

#ifdef MODULE_avx2
TEST(Dispatch, BadModulesLeaveWhatIsThere) {
    const std::size_t before = get_filter_table(0xFFFF).size();
    EXPECT_EQ(load_filter_library("/nowhere/module.so", 0), load_result::missing);
    EXPECT_EQ(load_filter_library(__FILE__, 0), load_result::missing) << "not a library";
    EXPECT_EQ(load_filter_library(MODULE_no_export, 0), load_result::no_export);
    EXPECT_EQ(load_filter_library(MODULE_null_result, 0), load_result::null_result);
    EXPECT_EQ(get_filter_table(0xFFFF).size(), before);
}

TEST(Dispatch, LoadedModuleComesFirstWhereTheProcessorServes) {
    EXPECT_EQ(load_filter_library(MODULE_avx2, 0), load_result::loaded);
    EXPECT_EQ(load_filter_library(MODULE_avx2, 0), load_result::already_loaded);
    const filter_table all = get_filter_table(0x3F);
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(all[0].required_cpu, 0x3FU);
    EXPECT_EQ(all[1].required_cpu, 0xFU);
    EXPECT_EQ(get_filter_table(0x1F).size(), 2U) << "no AVX2";
}
#endif
