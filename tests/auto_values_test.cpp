// The way of automatic values to the camera, and of the camera's values back.
#include "image_features_system.h"

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <limits>
#include <thread>

using namespace test_support;
using testing::HasSubstr;

namespace {

class AutoValues : public image_features {};

// Big-endian, signed, of 32 bits.
std::string int_register(const char* name, const char* address, const char* more = "") {
    return std::string{"<IntReg Name=\""} + name + "\"><Address>" + address + "</Address>" + more +
           "<Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>"
           "<Sign>Signed</Sign><Endianess>BigEndian</Endianess></IntReg>";
}

} // namespace

TEST_F(AutoValues, ResultsReachTheCamera) {
    start();
    open_raw();
    switch_on(at::auto_gain);
    block->set(at::result_exposure, 777.0F); // of a function that is off
    block->set(at::result_gain, 8.04F);
    send_results();
    EXPECT_TRUE(eventually([&] { return block->get<float>(at::current_gain) == 8.0F; }))
        << "a multiple of its increment";
    EXPECT_EQ(camera_value<uint32_t>(gain_register), 80U);
    EXPECT_EQ(camera_value<double>(exposure_register), 10000);

    switch_on(at::auto_exposure);
    EXPECT_EQ(block->get<float>(at::result_exposure), 10000)
        << "what was computed before it was switched on is forgotten";
    block->set(at::result_exposure, 5e6F);
    send_results();
    EXPECT_TRUE(eventually([&] { return block->get<float>(at::current_exposure) == 1e6F; })) << "the camera's maximum";
    EXPECT_EQ(camera_value<double>(exposure_register), 1e6);

    block->set(at::result_exposure, std::numeric_limits<float>::quiet_NaN());
    block->set(at::result_gain, 2.0F);
    send_results();
    EXPECT_TRUE(eventually([&] { return block->get<float>(at::current_gain) == 2.0F; }));
    EXPECT_EQ(camera_value<double>(exposure_register), 1e6);

    for (int i = 1; i <= 100; ++i) {
        block->set(at::result_exposure, 1000.0F + static_cast<float>(i));
        send_results();
    }
    EXPECT_TRUE(eventually([&] { return camera_value<double>(exposure_register) == 1100; })) << "the newest wins";
    EXPECT_EQ(count_of(own->logged(), "given up"), 0);
}

TEST_F(AutoValues, WhatOthersWriteIsSeen) {
    start();
    open_raw();
    switch_on(at::auto_exposure);
    EXPECT_EQ(write(exposure_register, 1234.0), 0U);
    EXPECT_TRUE(eventually([&] { return block->get<float>(at::current_exposure) == 1234; }));
    EXPECT_EQ(block->get<float>(at::result_exposure), 1234) << "no order to change it back";
}

TEST_F(AutoValues, TheCamerasValueIsReadWhenAFunctionBegins) {
    start();
    open_raw();
    EXPECT_EQ(write(exposure_register, 4321.0), 0U); // nobody looks
    EXPECT_EQ(block->get<float>(at::current_exposure), 10000);
    switch_on(at::auto_exposure);
    EXPECT_TRUE(eventually([&] { return block->get<float>(at::current_exposure) == 4321; })) << "without a result";
}

TEST_F(AutoValues, NothingIsWrittenWithoutTheMasterEnable) {
    start();
    open_raw();
    EXPECT_EQ(write(software + at::auto_gain, uint32_t{1}), 0U);
    block->set(at::result_gain, 5.0F);
    send_results();
    std::this_thread::sleep_for(std::chrono::milliseconds{200}); // for what would be wrong
    EXPECT_EQ(camera_value<uint32_t>(gain_register), 0U);
    switch_on(at::auto_exposure);
    EXPECT_EQ(block->get<float>(at::result_gain), block->get<float>(at::current_gain))
        << "what was computed then is forgotten";
}

// Asked once; the rest is the service's. How tries are counted: image_features_unit_test.
TEST_F(AutoValues, ALateCameraGetsTheResult) {
    start();
    open_raw();
    switch_on(at::auto_exposure);
    own->camera(0).signal(SIGSTOP);
    block->set(at::result_exposure, 2001.0F);
    send_results();
    std::this_thread::sleep_for(std::chrono::milliseconds{1300}); // longer than an answer is waited for
    own->camera(0).signal(SIGCONT);
    EXPECT_TRUE(eventually([&] { return block->get<float>(at::current_exposure) == 2001; }));
    EXPECT_EQ(camera_value<double>(exposure_register), 2001);
    EXPECT_EQ(count_of(own->logged(), "is given up"), 0);
}

TEST_F(AutoValues, ALockedFeatureIsWaitedFor) {
    start();
    open_raw();
    switch_on(at::auto_exposure);
    EXPECT_EQ(write(exposure_auto_register, uint32_t{2}), 0U); // the camera steers it by itself
    for (int i = 0; i < 5; ++i) {
        block->set(at::result_exposure, 2000.0F + static_cast<float>(i));
        send_results();
        EXPECT_TRUE(eventually([&] { return count_of(own->logged(), "Automatic exposure of") == 1; }));
    }
    EXPECT_EQ(camera_value<double>(exposure_register), 10000);
    EXPECT_EQ(write(exposure_auto_register, uint32_t{0}), 0U);
    send_results();
    EXPECT_TRUE(eventually([&] { return camera_value<double>(exposure_register) == 2004; }));
    EXPECT_EQ(count_of(own->logged(), "Automatic exposure of"), 1);
}

TEST_F(AutoValues, ACameraThatRefusesIsLeftAlone) {
    std::string text = own_document();
    const size_t feature = text.find("<Float Name=\"ExposureTime\"");
    const size_t limit = text.find("<Max>", feature) + 5;
    text.replace(limit, text.find('<', limit) - limit, "5000000"); // more than it takes
    start_with_document(text);
    open_raw();
    switch_on(at::auto_exposure);
    switch_on(at::auto_gain);
    for (int i = 1; i <= 6; ++i) {
        block->set(at::result_exposure, 2e6F + static_cast<float>(1000 * i));
        block->set(at::result_gain, static_cast<float>(i)); // comes behind it: seen, the exposure is over
        send_results();
        EXPECT_TRUE(eventually([&] { return block->get<float>(at::current_gain) == static_cast<float>(i); }));
    }
    EXPECT_EQ(count_of(own->logged(), "Automatic exposure of"), 1) << own->logged();
    EXPECT_EQ(camera_value<double>(exposure_register), 10000);

    EXPECT_EQ(write(software + at::auto_exposure, uint32_t{0}), 0U);
    EXPECT_EQ(write(software + at::auto_exposure, uint32_t{1}), 0U);
    EXPECT_TRUE(eventually([&] {
        block->set(at::result_exposure, 2000.0F);
        send_results();
        return camera_value<double>(exposure_register) == 2000;
    })) << "switched on anew, it is tried again";
    own->camera(0).signal(SIGTERM);
    own->camera(0).wait();
    EXPECT_THAT(own->camera(0).output(), HasSubstr("\"requests_refused\":1"));
}

// Continuous white balance asks for more red with every pass, and the camera has no more.
TEST_F(AutoValues, ACutGainIsNotWrittenAgain) {
    const std::vector<std::string> colours{"--scene", "colours", "--pixel-format", "BayerRG8"};
    std::string text = own_document(colours);
    const size_t feature = text.find("<Float Name=\"BalanceRatio\"");
    ASSERT_NE(feature, text.npos);
    const size_t limit = text.find("<Max>", feature) + 5;
    text.replace(limit, text.find('<', limit) - limit, "1.25");
    start_with_document(text, colours);
    open_raw();
    EXPECT_EQ(write(software + at::balance_mode, uint32_t{2}), 0U);
    EXPECT_EQ(write(software + at::master_enable, uint32_t{1}), 0U);
    const auto ask = [&](float red, float taken) {
        block->set(at::result_balance, red);
        send_results();
        return eventually([&] {
            return block->get<float>(at::result_balance) == taken && block->get<float>(at::current_balance) == taken;
        });
    };
    for (int pass = 1; pass <= 50; ++pass) ASSERT_TRUE(ask(1.25F + (pass % 2 == 0 ? 0.25F : 0.5F), 1.25F)) << pass;
    EXPECT_TRUE(ask(1.125F, 1.125F)) << "the light has changed";
    // Three gains each time; it is asked twice, and once more for other light.
    EXPECT_LT(own->end_camera(0).value("control_writes", 1000), 50);
}

TEST_F(AutoValues, AnExposureInAnotherUnit) {
    const std::string text = own_document();
    struct row {
        const char* unit;
        float wanted_us;
        double in_unit;
    };
    for (const auto& [unit, wanted_us, in_unit] : {row{"ns", 5, 5000}, row{"ms", 20000, 20}, row{"s", 1e8F, 100}}) {
        SCOPED_TRACE(unit);
        std::string changed = text;
        const size_t at = changed.find("<Unit>us</Unit>", changed.find("<Float Name=\"ExposureTime\""));
        ASSERT_NE(at, changed.npos);
        changed.replace(at + 6, 2, unit);
        start_with_document(changed);
        open_raw();
        switch_on(at::auto_exposure);
        block->set(at::result_exposure, wanted_us);
        send_results();
        EXPECT_TRUE(eventually([&] { return block->get<float>(at::current_exposure) == wanted_us; }));
        EXPECT_EQ(camera_value<double>(exposure_register), in_unit);
    }
}

// A camera of the first edition of the standard: raw numbers, a selector in a register, an iris.
TEST_F(AutoValues, OtherNamesAndUnitsOfCameras) {
    start_with_document(
        R"(<?xml version="1.0" encoding="ISO-8859-1"?>
<RegisterDescription SchemaMajorVersion="1" SchemaMinorVersion="0" SchemaSubMinorVersion="1"
  ModelName="M" VendorName="V" ToolTip="caf)"
        "\xE9"
        R"(" xmlns="http://www.genicam.org/GenApi/Version_1_0">
<Group Comment="all"><Category Name="Root"><pFeature>ExposureTimeRaw</pFeature></Category>
<Integer Name="ExposureTimeRaw"><pValue>E</pValue><Min>1</Min><Max>4000</Max></Integer>
<Float Name="ExposureTimeBaseAbs"><ImposedAccessMode>RO</ImposedAccessMode><Value>20</Value><Unit>us</Unit></Float>
<Enumeration Name="GainSelector"><EnumEntry Name="Tap1"><Value>1</Value></EnumEntry>
  <EnumEntry Name="AnalogAll"><Value>3</Value></EnumEntry><pValue>GS</pValue></Enumeration>
<IntReg Name="G"><Address>0x30000200</Address><pIndex Offset="4">GS</pIndex><Length>4</Length>
  <AccessMode>RW</AccessMode><pPort>Device</pPort><Sign>Signed</Sign><Endianess>BigEndian</Endianess></IntReg>
<Integer Name="GainRaw"><pValue>G</pValue><Min>1</Min><Max>40</Max><Inc>3</Inc></Integer>
<Enumeration Name="BalanceRatioSelector"><EnumEntry Name="Red"><Value>0</Value></EnumEntry>
  <EnumEntry Name="Blue"><Value>2</Value></EnumEntry><EnumEntry Name="None"><Value>7</Value></EnumEntry>
  <pValue>S</pValue></Enumeration>
<Float Name="BalanceRatioAbs"><pValue>B</pValue><Min>0.5</Min><Max>4</Max></Float>
<FloatReg Name="B"><Address>0x30000100</Address><pIndex Offset="4">S</pIndex><Length>4</Length>
  <AccessMode>RW</AccessMode><pPort>Device</pPort><Endianess>BigEndian</Endianess></FloatReg>
<Integer Name="Iris"><pValue>I</pValue><Min>-100</Min><Max>100</Max></Integer>
<Enumeration Name="PixelFormat"><EnumEntry Name="BayerRG8"><Value>0</Value></EnumEntry><Value>0</Value></Enumeration>
<Port Name="Device"/>)" +
        int_register("E", "0x30000000") + int_register("GS", "0x30000010") + int_register("S", "0x30000008") +
        int_register("I", "0x3000000C") + "</Group></RegisterDescription>");
    open_raw();
    EXPECT_EQ(write(uint64_t{0x30000008}, uint32_t{7}), 0U);
    EXPECT_EQ(write(uint64_t{0x30000010}, uint32_t{1}), 0U);
    for (const size_t function : {at::auto_exposure, at::auto_gain, at::auto_iris, at::auto_balance})
        EXPECT_EQ(write(software + (function == at::auto_balance ? at::balance_mode : function),
                        uint32_t{function == at::auto_balance ? 2U : 1U}),
                  0U);
    EXPECT_EQ(write(software + at::master_enable, uint32_t{1}), 0U);
    block->set(at::result_exposure, 1030.0F);
    block->set(at::result_gain, 12.0F);
    block->set(at::result_iris, int64_t{-70});
    block->set(at::result_balance, 1.0F);
    block->set(at::result_balance + 4, 1.25F);
    block->set(at::result_balance + 8, 2.5F);
    send_results();
    // The current value: what the camera made of it, in the block's unit.
    EXPECT_TRUE(eventually([&] { return block->get<float>(at::current_balance + 8) == 2.5F; }));
    EXPECT_EQ(block->get<float>(at::current_exposure), 1040);
    EXPECT_EQ(camera_value<int32_t>(0x30000000), 52);
    EXPECT_EQ(camera_value<int32_t>(0x3000020C), 13)
        << "one more than a multiple of 3; of the gain of the whole picture";
    EXPECT_EQ(camera_value<int32_t>(0x30000204), 0) << "no other gain is touched";
    EXPECT_EQ(camera_value<int32_t>(0x30000010), 1) << "the selector is as it was";
    EXPECT_EQ(camera_value<int32_t>(0x3000000C), -70);
    EXPECT_EQ(block->get<int64_t>(at::current_iris), -70);
    EXPECT_EQ(camera_value<float>(0x30000100), 0.8F) << "against green, which the camera leaves at 1";
    EXPECT_EQ(camera_value<float>(0x30000108), 2.0F);
    EXPECT_EQ(camera_value<int32_t>(0x30000008), 7) << "the selector is as it was";
}

// Numbers whose unit no document tells: gains of more steps than decibels can be, and proportional white balance gains.
TEST_F(AutoValues, RawNumbersOfCameras) {
    for (const bool green : {true, false}) {
        SCOPED_TRACE(green);
        start_with_document(
            R"(<RegisterDescription ModelName="M" VendorName="V" SchemaMajorVersion="1" SchemaMinorVersion="1"
  SchemaSubMinorVersion="0" xmlns="http://www.genicam.org/GenApi/Version_1_1">
<Category Name="Root"><pFeature>GainRaw</pFeature></Category>
<Integer Name="GainRaw"><pValue>G</pValue><Min>0</Min><Max>960</Max></Integer>
<Enumeration Name="BalanceRatioSelector"><EnumEntry Name="Red"><Value>0</Value></EnumEntry>)" +
            std::string{green ? R"(<EnumEntry Name="Green"><Value>1</Value></EnumEntry>)" : ""} +
            R"(<EnumEntry Name="Blue"><Value>2</Value></EnumEntry><pValue>S</pValue></Enumeration>
<Integer Name="BalanceRatioRaw"><pValue>C</pValue><Min>0</Min><Max>255</Max></Integer>
<IntConverter Name="C"><FormulaTo>FROM - 80</FormulaTo><FormulaFrom>TO + 80</FormulaFrom><pValue>B</pValue>
  <Slope>Increasing</Slope></IntConverter>
<Enumeration Name="PixelFormat"><EnumEntry Name="BayerRG8"><Value>0</Value></EnumEntry><Value>0</Value></Enumeration>
<Port Name="Device"/>)" +
            int_register("G", "0x30000004") + int_register("S", "0x30000008") +
            int_register("B", "0x30000100", "<pIndex Offset=\"4\">S</pIndex>") + "</RegisterDescription>");
        open_raw();
        EXPECT_EQ(block->get<uint32_t>(at::balance_in_software), green ? 0U : 1U)
            << "without green this host applies the gains";
        EXPECT_EQ(write(software + at::auto_gain, uint32_t{1}), 0U);
        EXPECT_EQ(write(software + at::balance_mode, uint32_t{2}), 0U);
        EXPECT_EQ(write(software + at::master_enable, uint32_t{1}), 0U);
        block->set(at::result_gain, 12.0F);
        block->set(at::result_balance, 1.5F);
        block->set(at::result_balance + 4, 1.0F);
        block->set(at::result_balance + 8, 1.25F);
        send_results();
        EXPECT_TRUE(eventually([&] { return block->get<float>(at::current_balance + 8) == 1.25F; }));
        EXPECT_EQ(camera_value<int32_t>(0x30000004), 240) << "960 steps for 48 dB at most";
        EXPECT_EQ(camera_value<int32_t>(0x30000100), green ? 40 : 0) << "half as much again as 80";
        EXPECT_EQ(camera_value<int32_t>(0x30000104), 0);
        EXPECT_EQ(camera_value<int32_t>(0x30000108), green ? 20 : 0);
    }
}
