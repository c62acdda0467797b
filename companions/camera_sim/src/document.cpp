#include "document.h"

#include "document_writer.h"

#include <camera_sim/registers.h>
#include <gige/gvcp.h>

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

namespace camera_sim {

namespace {

namespace boot = gige::gvcp::reg;

constexpr auto formats = std::to_array<reg::named_id>({
    {"Mono8", 0x01080001},
    {"Mono10", 0x01100003},
    {"Mono10p", 0x010A0046},
    {"Mono10Packed", 0x010C0004},
    {"Mono12", 0x01100005},
    {"Mono12p", 0x010C0047},
    {"Mono12Packed", 0x010C0006},
    {"Mono14", 0x01100025},
    {"Mono16", 0x01100007},
    {"BayerGR8", 0x01080008},
    {"BayerRG8", 0x01080009},
    {"BayerGB8", 0x0108000A},
    {"BayerBG8", 0x0108000B},
    {"BayerGR10", 0x0110000C},
    {"BayerRG10", 0x0110000D},
    {"BayerGB10", 0x0110000E},
    {"BayerBG10", 0x0110000F},
    {"BayerGR10p", 0x010A0056},
    {"BayerRG10p", 0x010A0058},
    {"BayerGB10p", 0x010A0054},
    {"BayerBG10p", 0x010A0052},
    {"BayerGR12", 0x01100010},
    {"BayerRG12", 0x01100011},
    {"BayerGB12", 0x01100012},
    {"BayerBG12", 0x01100013},
    {"BayerGR12p", 0x010C0057},
    {"BayerRG12p", 0x010C0059},
    {"BayerGB12p", 0x010C0055},
    {"BayerBG12p", 0x010C0053},
    {"BayerGR12Packed", 0x010C002A},
    {"BayerRG12Packed", 0x010C002B},
    {"BayerGB12Packed", 0x010C002C},
    {"BayerBG12Packed", 0x010C002D},
    {"BayerGR16", 0x0110002E},
    {"BayerRG16", 0x0110002F},
    {"BayerGB16", 0x01100030},
    {"BayerBG16", 0x01100031},
    {"RGB8", 0x02180014},
    {"BGR8", 0x02180015},
    {"RGBa8", 0x02200016},
    {"BGRa8", 0x02200017},
    {"RGB12p", 0x0224005D},
    {"RGB565p", 0x02100035},
    {"RGB16", 0x02300033},
    {"BGRa16", 0x02400051},
    {"YUV411_8_UYYVYY", 0x020C001E},
    {"YUV422_8_UYVY", 0x0210001F},
    {"YUV422_8", 0x02100032},
    {"YUV8_UYV", 0x02180020},
    {"YCbCr411_8", 0x020C005A},
    {"YCbCr411_8_CbYYCrYY", 0x020C003C},
    {"YCbCr422_8", 0x0210003B},
    {"YCbCr422_8_CbYCrY", 0x02100043},
    {"YCbCr8_CbYCr", 0x0218003A},
});

void device_control(document_writer& doc) {
    doc.category("DeviceControl",
                 {"DeviceVendorName", "DeviceModelName", "DeviceVersion", "DeviceManufacturerInfo",
                  "DeviceSerialNumber", "DeviceUserID", "DeviceSFNCVersionMajor", "DeviceScanType", "DeviceReset",
                  "DeviceTemperatureSelector", "DeviceTemperature", "DeviceLinkSpeed", "DeviceLinkThroughputLimitMode",
                  "DeviceLinkThroughputLimit", "DeviceLinkHeartbeatTimeout", "DeviceFanSpeed"});
    doc.text("DeviceVendorName", boot::vendor, 32, "RO");
    doc.text("DeviceModelName", boot::model, 32, "RO");
    doc.text("DeviceVersion", boot::device_version, 32, "RO");
    doc.text("DeviceManufacturerInfo", boot::information, 48, "RO");
    doc.text("DeviceSerialNumber", boot::serial, 16, "RO");
    doc.text("DeviceUserID", boot::user_name, 16, "RW");
    doc.raw(
        R"(<Integer Name="DeviceSFNCVersionMajor"><ImposedAccessMode>RO</ImposedAccessMode><Value>2</Value></Integer>)");
    doc.raw(R"(<Enumeration Name="DeviceScanType"><ImposedAccessMode>RO</ImposedAccessMode>
  <EnumEntry Name="Areascan"><Value>0</Value></EnumEntry><Value>0</Value></Enumeration>)");
    doc.command("DeviceReset", reg::device_reset);
    doc.raw(R"(<Enumeration Name="DeviceTemperatureSelector">
  <EnumEntry Name="Sensor"><Value>0</Value></EnumEntry>
  <EnumEntry Name="Mainboard"><Value>1</Value></EnumEntry>
  <pValue>DeviceTemperatureSelector_Value</pValue><pSelected>DeviceTemperature</pSelected></Enumeration>)");
    doc.selected_index("DeviceTemperatureSelector", 1);
    doc.raw(
        fmt::format(R"(<Float Name="DeviceTemperature"><pValue>DeviceTemperature_Register</pValue><Unit>C</Unit></Float>
<FloatReg Name="DeviceTemperature_Register"><Address>0x{:X}</Address>
  <pIndex Offset="4">DeviceTemperatureSelector_Value</pIndex><Length>4</Length><AccessMode>RO</AccessMode><pPort>Device</pPort>
  <Cachable>NoCache</Cachable><PollingTime>1000</PollingTime><Endianess>BigEndian</Endianess></FloatReg>)",
                    reg::temperature));
    doc.integer("DeviceLinkSpeed", reg::link_speed, {.access = "RO"});
    doc.enumeration("DeviceLinkThroughputLimitMode", reg::throughput_limit_mode, {{"Off", 0}, {"On", 1}}, {});
    doc.integer("DeviceLinkThroughputLimit", reg::throughput_limit,
                {.min = reg::throughput_smallest, .p_max = "DeviceLinkSpeed", .increment = reg::throughput_step});
    doc.raw(R"(<IntConverter Name="DeviceLinkHeartbeatTimeout_Converter"><FormulaTo>FROM / 1000</FormulaTo>
  <FormulaFrom>TO * 1000</FormulaFrom><pValue>GevHeartbeatTimeout</pValue><Slope>Increasing</Slope></IntConverter>
<Float Name="DeviceLinkHeartbeatTimeout"><pValue>DeviceLinkHeartbeatTimeout_Converter</pValue><Unit>us</Unit></Float>)");
    // Present in the model range, not in this model.
    doc.raw(fmt::format(R"(<Integer Name="DeviceFanSpeed"><pIsImplemented>False</pIsImplemented>
  <pValue>DeviceTemperature_Raw</pValue></Integer>
<IntReg Name="DeviceTemperature_Raw"><Address>0x{:X}</Address><Length>4</Length><AccessMode>RO</AccessMode>
  <pPort>Device</pPort><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>
<Integer Name="False"><ImposedAccessMode>RO</ImposedAccessMode><Value>0</Value></Integer>)",
                        reg::temperature));
}

void image_format_control(document_writer& doc, const camera_options& options) {
    doc.category("ImageFormatControl", {"SensorWidth", "SensorHeight", "WidthMax", "HeightMax", "Width", "Height",
                                        "OffsetX", "OffsetY", "PixelFormat", "PixelSize", "TestPattern", "ReverseX"});
    doc.integer("SensorWidth", reg::sensor_width, {.access = "RO"});
    doc.integer("SensorHeight", reg::sensor_height, {.access = "RO"});
    doc.raw(R"(<IntSwissKnife Name="WidthMax"><pVariable Name="SENSOR">SensorWidth</pVariable>
  <pVariable Name="OFFSET">OffsetX</pVariable><Formula>SENSOR - OFFSET</Formula></IntSwissKnife>
<IntSwissKnife Name="HeightMax"><pVariable Name="SENSOR">SensorHeight</pVariable>
  <pVariable Name="OFFSET">OffsetY</pVariable><Formula>SENSOR - OFFSET</Formula></IntSwissKnife>
<IntSwissKnife Name="OffsetX_Max"><pVariable Name="SENSOR">SensorWidth</pVariable>
  <pVariable Name="SIZE">Width</pVariable><Formula>SENSOR - SIZE</Formula></IntSwissKnife>
<IntSwissKnife Name="OffsetY_Max"><pVariable Name="SENSOR">SensorHeight</pVariable>
  <pVariable Name="SIZE">Height</pVariable><Formula>SENSOR - SIZE</Formula></IntSwissKnife>)");
    doc.integer("Width", reg::width, {.min = 8, .p_max = "WidthMax", .increment = 8, .locked = true});
    doc.integer("Height", reg::height, {.min = 1, .p_max = "HeightMax", .locked = true});
    doc.integer("OffsetX", reg::offset_x, {.p_max = "OffsetX_Max", .increment = 8});
    doc.integer("OffsetY", reg::offset_y, {.p_max = "OffsetY_Max"});

    std::vector<reg::named_id> entries{formats.begin(), formats.end()};
    const auto own_name = pixel_format_name(options.pixel_format);
    if (std::ranges::find(formats, options.pixel_format, &reg::named_id::id) == formats.end())
        entries.push_back({own_name, options.pixel_format});
    doc.enumeration("PixelFormat", reg::pixel_format, entries, {.locked = true});
    doc.raw(fmt::format(R"(<MaskedIntReg Name="PixelSize_Bits"><Address>0x{:X}</Address><Length>4</Length>
  <AccessMode>RO</AccessMode><pPort>Device</pPort><pInvalidator>PixelFormat</pInvalidator><LSB>15</LSB><MSB>8</MSB>
  <Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></MaskedIntReg>
<Integer Name="PixelSize"><pValue>PixelSize_Bits</pValue><Unit>bit</Unit></Integer>)",
                        reg::pixel_format));
    doc.enumeration("TestPattern", reg::test_pattern,
                    {{"Off", 0}, {"Black", 1}, {"White", 2}, {"GreyHorizontalRamp", 3}}, {});
    doc.boolean("ReverseX", reg::reverse_x, {.p_is_available = "False"});
}

void acquisition_control(document_writer& doc) {
    doc.category("AcquisitionControl", {"AcquisitionMode", "AcquisitionStart", "AcquisitionStop",
                                        "AcquisitionFrameCount", "AcquisitionFrameRateEnable", "AcquisitionFrameRate",
                                        "AcquisitionStatus", "ExposureMode", "ExposureAuto", "ExposureTime",
                                        "TriggerSelector", "TriggerMode", "TriggerSource", "TriggerSoftware"});
    doc.enumeration("AcquisitionMode", reg::acquisition_mode,
                    {{"Continuous", 0}, {"SingleFrame", 1}, {"MultiFrame", 2}}, {.locked = true});
    doc.raw(fmt::format(R"(<Command Name="AcquisitionStart"><pValue>AcquisitionStartStopRegister</pValue>
  <CommandValue>1</CommandValue></Command>
<Command Name="AcquisitionStop"><pValue>AcquisitionStartStopRegister</pValue><CommandValue>0</CommandValue></Command>
<IntReg Name="AcquisitionStartStopRegister"><Address>0x{:X}</Address><Length>4</Length><AccessMode>WO</AccessMode>
  <pPort>Device</pPort><Cachable>NoCache</Cachable><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>
<Boolean Name="AcquisitionStatus"><pValue>AcquisitionStatus_Register</pValue></Boolean>
<IntReg Name="AcquisitionStatus_Register"><Address>0x{:X}</Address><Length>4</Length><AccessMode>RO</AccessMode>
  <pPort>Device</pPort><Cachable>NoCache</Cachable><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>)",
                        reg::acquisition_control, reg::acquisition_status));
    doc.integer("AcquisitionFrameCount", reg::acquisition_frame_count, {.min = 1, .max = 65535, .locked = true});
    doc.boolean("AcquisitionFrameRateEnable", reg::frame_rate_enable, {});
    doc.floating("AcquisitionFrameRate", reg::frame_rate, 4, reg::frame_rate_range, "Hz", {});
    doc.raw(R"(<Enumeration Name="ExposureMode"><ImposedAccessMode>RO</ImposedAccessMode>
  <EnumEntry Name="Timed"><Value>1</Value></EnumEntry><Value>1</Value></Enumeration>)");
    doc.enumeration("ExposureAuto", reg::exposure_auto, {{"Off", 0}, {"Continuous", 2}}, {});
    // In manual mode only: locked while the automatic is on.
    doc.raw(R"(<IntSwissKnife Name="ExposureTime_Locked"><pVariable Name="AUTO">ExposureAuto_Register</pVariable>
  <Formula>AUTO &lt;&gt; 0</Formula></IntSwissKnife>)");
    doc.floating("ExposureTime", reg::exposure_time, 8, reg::exposure_range, "us",
                 {.p_is_locked = "ExposureTime_Locked"});
    doc.raw(R"(<Enumeration Name="TriggerSelector"><EnumEntry Name="FrameStart"><Value>0</Value></EnumEntry>
  <Value>0</Value><pSelected>TriggerMode</pSelected><pSelected>TriggerSource</pSelected>
  <pSelected>TriggerSoftware</pSelected></Enumeration>)");
    doc.enumeration("TriggerMode", reg::trigger_mode, {{"Off", 0}, {"On", 1}}, {});
    doc.enumeration("TriggerSource", reg::trigger_source, {{"Software", 0}, {"Action1", 1}}, {});
    doc.command("TriggerSoftware", reg::trigger_software);
}

void analog_control(document_writer& doc) {
    doc.category("AnalogControl", {"GainSelector", "Gain", "GainAuto", "BlackLevel", "GammaEnable", "Gamma"});
    doc.raw(fmt::format(R"(<Enumeration Name="GainSelector">
  <EnumEntry Name="All"><Value>0</Value></EnumEntry>
  <EnumEntry Name="Red"><Value>1</Value></EnumEntry>
  <EnumEntry Name="Green"><Value>2</Value></EnumEntry>
  <EnumEntry Name="Blue"><Value>3</Value></EnumEntry>
  <Value>0</Value><pSelected>Gain</pSelected></Enumeration>
<Float Name="Gain"><pValue>Gain_Converter</pValue><Min>0</Min><Max>24</Max><Inc>0.1</Inc><Unit>dB</Unit></Float>
<Converter Name="Gain_Converter"><FormulaTo>FROM * 10</FormulaTo><FormulaFrom>TO / 10</FormulaFrom>
  <pValue>GainRaw_Register</pValue><Slope>Increasing</Slope></Converter>
<IntReg Name="GainRaw_Register"><IntSwissKnife Name="GainRaw_Offset"><pVariable Name="SEL">GainSelector</pVariable>
  <Formula>SEL * 4</Formula></IntSwissKnife><Address>0x{:X}</Address><Length>4</Length><AccessMode>RW</AccessMode>
  <pPort>Device</pPort><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>)",
                        reg::gain_raw));
    doc.enumeration("GainAuto", reg::gain_auto, {{"Off", 0}, {"Continuous", 2}}, {});
    doc.integer("BlackLevelRaw", reg::black_level_raw, {.max = 255});
    doc.raw(R"(<SwissKnife Name="BlackLevel"><pVariable Name="RAW">BlackLevelRaw</pVariable>
  <Formula>RAW / 2.55</Formula><Unit>%</Unit></SwissKnife>)");
    doc.boolean("GammaEnable", reg::gamma_enable, {});
    doc.floating("Gamma", reg::gamma, 4, reg::gamma_range, "", {.p_is_available = "GammaEnable"});
}

// What the picture of a scene answers to.
void scene_controls(document_writer& doc) {
    doc.category("LensControl", {"Iris", "Focus", "BalanceRatioSelector", "BalanceRatio"});
    doc.integer("Iris", reg::iris, {.min = 1, .max = reg::iris_most});
    doc.integer("Focus", reg::focus, {.max = reg::focus_most});
    doc.raw(fmt::format(R"(<Enumeration Name="BalanceRatioSelector">
  <EnumEntry Name="Red"><Value>0</Value></EnumEntry>
  <EnumEntry Name="Green"><Value>1</Value></EnumEntry>
  <EnumEntry Name="Blue"><Value>2</Value></EnumEntry>
  <pValue>BalanceRatioSelector_Value</pValue><pSelected>BalanceRatio</pSelected></Enumeration>
<Float Name="BalanceRatio"><pValue>BalanceRatio_Register</pValue><Min>{}</Min><Max>{}</Max></Float>
<FloatReg Name="BalanceRatio_Register"><Address>0x{:X}</Address><pIndex Offset="4">BalanceRatioSelector_Value</pIndex>
  <Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort><Endianess>BigEndian</Endianess></FloatReg>)",
                        reg::balance_range.min, reg::balance_range.max, reg::balance_ratio));
    doc.selected_index("BalanceRatioSelector", 2);
}

void chunk_control(document_writer& doc) {
    doc.category("ChunkDataControl",
                 {"ChunkModeActive", "ChunkSelector", "ChunkEnable", "ChunkTimestamp", "ChunkFrameID",
                  "ChunkExposureTime", "ChunkGain", "ChunkWidth", "ChunkHeight", "ChunkPixelFormat"});
    doc.boolean("ChunkModeActive", reg::chunk_mode, {.locked = true});
    std::string entries;
    for (uint32_t i = 0; i < reg::chunks.size(); ++i)
        entries += fmt::format(R"(<EnumEntry Name="{}"><Value>{}</Value></EnumEntry>)", reg::chunks[i].name, i);
    doc.raw(fmt::format(R"(<Enumeration Name="ChunkSelector"><pIsAvailable>ChunkModeActive</pIsAvailable>{}
  <pValue>ChunkSelector_Value</pValue><pSelected>ChunkEnable</pSelected></Enumeration>
<Boolean Name="ChunkEnable"><pIsAvailable>ChunkModeActive</pIsAvailable><pIsLocked>TLParamsLocked</pIsLocked>
  <pValue>ChunkEnable_Register</pValue></Boolean>
<IntReg Name="ChunkEnable_Register"><Address>0x{:X}</Address><pIndex Offset="4">ChunkSelector_Value</pIndex><Length>4</Length>
  <AccessMode>RW</AccessMode><pPort>Device</pPort><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>)",
                        entries, reg::chunk_enable));
    doc.selected_index("ChunkSelector", reg::chunks.size() - 1);
    for (const auto& [name, id] : reg::chunks) {
        const bool floating = name == "ExposureTime" || name == "Gain";
        const int length = id <= 0x1004 ? 8 : 4;
        doc.raw(fmt::format(R"(<Port Name="Chunk{0}_Port"><ChunkID>{1:X}</ChunkID></Port>)", name, id));
        if (floating)
            doc.raw(fmt::format(R"(<Float Name="Chunk{0}"><pValue>Chunk{0}_Register</pValue></Float>
<FloatReg Name="Chunk{0}_Register"><Address>0</Address><Length>8</Length><AccessMode>RO</AccessMode>
  <pPort>Chunk{0}_Port</pPort><Cachable>NoCache</Cachable><Endianess>BigEndian</Endianess></FloatReg>)",
                                name));
        else
            doc.raw(fmt::format(R"(<Integer Name="Chunk{0}"><pValue>Chunk{0}_Register</pValue></Integer>
<IntReg Name="Chunk{0}_Register"><Address>0</Address><Length>{1}</Length><AccessMode>RO</AccessMode>
  <pPort>Chunk{0}_Port</pPort><Cachable>NoCache</Cachable><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>)",
                                name, length));
    }
}

void event_control(document_writer& doc) {
    std::vector<std::string> features{"EventSelector", "EventNotification", "TestEventGenerate"};
    std::string entries;
    // An event port's addresses count from behind the message's header; the event's own fields come first.
    doc.raw(R"(<IntSwissKnife Name="EventData_Offset"><pVariable Name="EXT">GevGVSPExtendedIDMode_Register</pVariable>
  <Formula>EXT ? 24 : 16</Formula></IntSwissKnife>)");
    for (uint32_t i = 0; i < reg::events.size(); ++i) {
        const auto& [name, id] = reg::events[i];
        entries += fmt::format(R"(<EnumEntry Name="{}"><Value>{}</Value></EnumEntry>)", name, i);
        for (const char* part : {"", "Timestamp", "FrameID"}) features.push_back(fmt::format("Event{}{}", name, part));
        doc.raw(fmt::format(R"(<Port Name="Event{0}_Port"><EventID>{1:X}</EventID></Port>
<Integer Name="Event{0}"><ImposedAccessMode>RO</ImposedAccessMode><Value>0x{1:X}</Value></Integer>
<Integer Name="Event{0}Timestamp"><pValue>Event{0}Timestamp_Register</pValue></Integer>
<IntReg Name="Event{0}Timestamp_Register"><Address>0</Address><pAddress>EventData_Offset</pAddress><Length>8</Length><AccessMode>RO</AccessMode>
  <pPort>Event{0}_Port</pPort><Cachable>NoCache</Cachable><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>
<Integer Name="Event{0}FrameID"><pValue>Event{0}FrameID_Register</pValue></Integer>
<IntReg Name="Event{0}FrameID_Register"><Address>8</Address><pAddress>EventData_Offset</pAddress><Length>8</Length><AccessMode>RO</AccessMode>
  <pPort>Event{0}_Port</pPort><Cachable>NoCache</Cachable><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>)",
                            name, id));
    }
    doc.category("EventControl", features);
    doc.raw(fmt::format(
        R"(<Enumeration Name="EventSelector">{}<pValue>EventSelector_Value</pValue>
  <pSelected>EventNotification</pSelected></Enumeration>
<Enumeration Name="EventNotification">
  <EnumEntry Name="Off"><Value>0</Value></EnumEntry>
  <EnumEntry Name="On"><Value>1</Value></EnumEntry>
  <pValue>EventNotification_Register</pValue></Enumeration>
<IntReg Name="EventNotification_Register"><Address>0x{:X}</Address><pIndex Offset="4">EventSelector_Value</pIndex>
  <Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort><Sign>Unsigned</Sign>
  <Endianess>BigEndian</Endianess></IntReg>)",
        entries, reg::event_notification));
    doc.selected_index("EventSelector", reg::events.size() - 1);
    doc.command("TestEventGenerate", reg::test_event);
}

void other_controls(document_writer& doc) {
    doc.category("ActionControl", {"ActionDeviceKey", "ActionGroupKey", "ActionGroupMask"});
    doc.integer("ActionDeviceKey", reg::action_device_key, {.max = 0xFFFFFFFF, .access = "WO"});
    doc.integer("ActionGroupKey", reg::action_group_key, {.max = 0xFFFFFFFF});
    doc.integer("ActionGroupMask", reg::action_group_mask, {.max = 0xFFFFFFFF});

    doc.category("UserSetControl", {"UserSetSelector", "UserSetLoad", "UserSetSave"});
    doc.enumeration("UserSetSelector", reg::user_set_selector, {{"Default", 0}, {"UserSet0", 1}}, {});
    doc.command("UserSetLoad", reg::user_set_load);
    doc.command("UserSetSave", reg::user_set_save);

    doc.category("LUTControl", {"LUTSelector", "LUTIndex", "LUTValue", "LUTValueAll"});
    doc.raw(fmt::format(R"(<Enumeration Name="LUTSelector"><EnumEntry Name="Luminance"><Value>0</Value></EnumEntry>
  <Value>0</Value><pSelected>LUTIndex</pSelected><pSelected>LUTValue</pSelected></Enumeration>
<Integer Name="LUTIndex"><Value>0</Value><Min>0</Min><Max>255</Max><pSelected>LUTValue</pSelected></Integer>
<Integer Name="LUTValue"><pValue>LUTValue_Register</pValue><Min>0</Min><Max>255</Max></Integer>
<IntReg Name="LUTValue_Register"><Address>0x{0:X}</Address><pIndex Offset="4">LUTIndex</pIndex><Length>4</Length>
  <AccessMode>RW</AccessMode><pPort>Device</pPort><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>
<Register Name="LUTValueAll"><Address>0x{0:X}</Address><Length>1024</Length><AccessMode>RW</AccessMode>
  <pPort>Device</pPort></Register>)",
                        reg::lut_content));

    doc.category("DigitalIOControl", {"LineSelector", "LineStatus", "LineInverter"});
    doc.raw(fmt::format(R"(<Enumeration Name="LineSelector">
  <EnumEntry Name="Line0"><Value>0</Value></EnumEntry>
  <EnumEntry Name="Line1"><Value>1</Value></EnumEntry>
  <EnumEntry Name="Line2"><Value>2</Value></EnumEntry>
  <Value>0</Value><pSelected>LineStatus</pSelected></Enumeration>
<Boolean Name="LineStatus"><pValue>LineStatus_Bit</pValue></Boolean>
<IntSwissKnife Name="LineStatus_Bit"><pVariable Name="ALL">LineStatusAll</pVariable>
  <pVariable Name="SEL">LineSelector</pVariable><Formula>(ALL &gt;&gt; SEL) &amp; 1</Formula></IntSwissKnife>
<StructReg Comment="Line inverters"><Address>0x{:X}</Address><Length>4</Length><AccessMode>RW</AccessMode>
  <pPort>Device</pPort><Endianess>BigEndian</Endianess>
  <StructEntry Name="LineInverter_Register"><Bit>31</Bit></StructEntry></StructReg>
<Boolean Name="LineInverter"><pValue>LineInverter_Register</pValue></Boolean>)",
                        reg::line_inverter));
    doc.integer("LineStatusAll", reg::line_status, {.access = "RO"});
}

void transport_layer_control(document_writer& doc, const camera_options& options) {
    doc.category("TransportLayerControl", {"PayloadSize",
                                           "GevVersionMajor",
                                           "GevVersionMinor",
                                           "GevMACAddress",
                                           "GevCurrentIPAddress",
                                           "GevCurrentSubnetMask",
                                           "GevCurrentDefaultGateway",
                                           "GevCurrentIPConfigurationPersistentIP",
                                           "GevPersistentIPAddress",
                                           "GevPersistentSubnetMask",
                                           "GevPersistentDefaultGateway",
                                           "GevFirstURL",
                                           "GevNumberOfInterfaces",
                                           "GevStreamChannelCount",
                                           "GevHeartbeatTimeout",
                                           "GevTimestampTickFrequency",
                                           "GevTimestampControlLatch",
                                           "GevTimestampControlReset",
                                           "GevTimestampValue",
                                           "GevCCP",
                                           "GevStreamChannelSelector",
                                           "GevSCPHostPort",
                                           "GevSCPSPacketSize",
                                           "GevSCPSDoNotFragment",
                                           "GevSCPSFireTestPacket",
                                           "GevSCPD",
                                           "GevSCDA",
                                           "GevGVSPExtendedIDMode"});
    doc.raw(
        R"(<Integer Name="TLParamsLocked"><Visibility>Invisible</Visibility><Value>0</Value><Min>0</Min><Max>1</Max></Integer>)");
    doc.raw(fmt::format(R"(<Integer Name="PayloadSize"><pValue>PayloadSize_Register</pValue><Unit>B</Unit></Integer>
<IntReg Name="PayloadSize_Register"><Address>0x{:X}</Address><Length>4</Length><AccessMode>RO</AccessMode>
  <pPort>Device</pPort><Cachable>NoCache</Cachable><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>)",
                        reg::payload_size));
    doc.masked("GevVersionMajor", boot::version, 0, 15, {.access = "RO"});
    doc.masked("GevVersionMinor", boot::version, 16, 31, {.access = "RO"});
    doc.integer("GevMACAddress", boot::mac_high, {.access = "RO", .length = 8, .representation = "MACAddress"});
    doc.integer("GevCurrentIPAddress", boot::current_address, {.access = "RO", .representation = "IPV4Address"});
    doc.integer("GevCurrentSubnetMask", boot::current_mask, {.access = "RO", .representation = "IPV4Address"});
    doc.integer("GevCurrentDefaultGateway", boot::current_gateway, {.access = "RO", .representation = "IPV4Address"});
    doc.masked("GevCurrentIPConfigurationPersistentIP", boot::ip_config_current, 31, 31, {.boolean = true});
    for (const auto& [name, address] :
         std::to_array<std::pair<const char*, uint32_t>>({{"GevPersistentIPAddress", boot::persistent_address},
                                                          {"GevPersistentSubnetMask", boot::persistent_mask},
                                                          {"GevPersistentDefaultGateway", boot::persistent_gateway}}))
        doc.integer(name, address, {.max = 0xFFFFFFFF, .representation = "IPV4Address"});
    doc.text("GevFirstURL", boot::first_url, 512, "RO");
    doc.integer("GevNumberOfInterfaces", boot::interface_count, {.access = "RO"});
    doc.integer("GevStreamChannelCount", boot::stream_channel_count, {.access = "RO"});
    doc.integer("GevHeartbeatTimeout", boot::heartbeat_timeout, {.min = 500, .max = 600000});
    doc.integer("GevTimestampTickFrequency", boot::tick_frequency_high, {.access = "RO", .length = 8});
    doc.raw(fmt::format(R"(<Command Name="GevTimestampControlLatch"><pValue>GevTimestampControl_Register</pValue>
  <CommandValue>2</CommandValue></Command>
<Command Name="GevTimestampControlReset"><pValue>GevTimestampControl_Register</pValue><CommandValue>1</CommandValue></Command>
<IntReg Name="GevTimestampControl_Register"><Address>0x{:X}</Address><Length>4</Length><AccessMode>RW</AccessMode>
  <pPort>Device</pPort><Cachable>NoCache</Cachable><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>)",
                        boot::timestamp_control));
    doc.integer("GevTimestampValue", boot::timestamp_high, {.access = "RO", .length = 8, .cachable = false});
    doc.enumeration(
        "GevCCP", boot::privilege,
        {{"OpenAccess", 0}, {"ExclusiveAccess", 1}, {"ControlAccess", 2}, {"ControlAccessSwitchoverActive", 6}},
        {.cachable = false});
    doc.raw(R"(<Integer Name="GevStreamChannelSelector"><Value>0</Value><Min>0</Min><Max>0</Max>
  <pSelected>GevSCPSPacketSize</pSelected><pSelected>GevSCPD</pSelected></Integer>)");
    doc.masked("GevSCPHostPort", boot::stream_port, 16, 31, {.max = 65535, .cachable = false});
    doc.masked("GevSCPSPacketSize", boot::stream_packet_size, 16, 31,
               {.min = 576,
                .max = options.max_packet_size,
                .increment = options.packet_size_rounding == size_rounding::none ? 1 : options.packet_size_step,
                .locked = true,
                .cachable = false});
    doc.masked("GevSCPSDoNotFragment", boot::stream_packet_size, 1, 1, {.cachable = false, .boolean = true});
    doc.raw(fmt::format(R"(<Command Name="GevSCPSFireTestPacket"><pValue>GevSCPSFireTestPacket_Register</pValue>
  <CommandValue>1</CommandValue></Command>
<MaskedIntReg Name="GevSCPSFireTestPacket_Register"><Address>0x{:X}</Address><Length>4</Length><AccessMode>RW</AccessMode>
  <pPort>Device</pPort><Cachable>NoCache</Cachable><Bit>0</Bit><Sign>Unsigned</Sign>
  <Endianess>BigEndian</Endianess></MaskedIntReg>)",
                        boot::stream_packet_size));
    doc.integer("GevSCPD", boot::stream_packet_delay, {.max = 0x7FFFFFFF});
    doc.integer("GevSCDA", boot::stream_address, {.max = 0xFFFFFFFF, .representation = "IPV4Address"});
    doc.raw(fmt::format(R"(<Enumeration Name="GevGVSPExtendedIDMode"><pIsLocked>TLParamsLocked</pIsLocked>
  <EnumEntry Name="Off"><Value>0</Value></EnumEntry>
  <EnumEntry Name="On"><Value>1</Value></EnumEntry>
  <pValue>GevGVSPExtendedIDMode_Register</pValue></Enumeration>
<MaskedIntReg Name="GevGVSPExtendedIDMode_Register"><Address>0x{:X}</Address><Length>4</Length><AccessMode>RW</AccessMode>
  <pPort>Device</pPort><Bit>1</Bit><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></MaskedIntReg>)",
                        boot::stream_configuration));
}

} // namespace

std::string pixel_format_name(uint32_t pfnc) {
    const auto found = std::ranges::find(formats, pfnc, &reg::named_id::id);
    return found != formats.end() ? std::string{found->name} : fmt::format("Format_{:08X}", pfnc);
}

uint32_t pixel_format_value(const std::string& text) {
    const auto found = std::ranges::find(formats, text, &reg::named_id::name);
    if (found != formats.end()) return found->id;
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const char* first = text.data() + (hexadecimal ? 2 : 0);
    uint32_t value = 0;
    const auto [end, error] = std::from_chars(first, text.data() + text.size(), value, hexadecimal ? 16 : 10);
    return error == std::errc{} && end == text.data() + text.size() ? value : 0;
}

std::string make_document(const camera_options& options) {
    document_writer doc{options.vendor, options.model};
    std::vector<std::string> categories{"DeviceControl", "ImageFormatControl", "AcquisitionControl",   "AnalogControl",
                                        "LUTControl",    "DigitalIOControl",   "ChunkDataControl",     "EventControl",
                                        "ActionControl", "UserSetControl",     "TransportLayerControl"};
    const bool scene = options.scene.what != scene_kind::none;
    if (scene) categories.insert(categories.begin() + 4, "LensControl");
    doc.category("Root", categories);
    if (scene) scene_controls(doc);
    device_control(doc);
    image_format_control(doc, options);
    acquisition_control(doc);
    analog_control(doc);
    chunk_control(doc);
    event_control(doc);
    other_controls(doc);
    transport_layer_control(doc, options);
    doc.raw(R"(<Port Name="Device"></Port>)");
    return doc.finish();
}

} // namespace camera_sim
