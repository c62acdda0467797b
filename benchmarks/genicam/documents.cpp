// What is loaded.
#include "bench.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace bench {

namespace {

// One feature group as cameras have it by the dozen: a selector, features behind it with limits, an enumeration over a
// masked register, formulas, texts for people, states.
std::string feature_group(int g) {
    const int base = 0x1000 + g * 0x100;
    std::string out;
    const auto add = [&](const std::string& text) { out += text; };
    const auto texts = [&](const char* what) {
        return fmt::format("<ToolTip>Sets the {0} of channel {1}.</ToolTip><Description>This feature controls the {0} "
                           "of channel {1}. The value is applied at the start of the next frame that the device "
                           "acquires.</Description><DisplayName>{0} {1}</DisplayName><Visibility>Expert</Visibility>",
                           what, g);
    };
    add(fmt::format("<Enumeration Name=\"Selector{0}\" NameSpace=\"Standard\">{1}", g, texts("Selector")));
    for (int e = 0; e < 4; ++e)
        add(fmt::format("<EnumEntry Name=\"Choice{0}\" NameSpace=\"Standard\"><DisplayName>Choice {0}</DisplayName>"
                        "<Value>{0}</Value></EnumEntry>",
                        e));
    add(fmt::format("<pValue>SelectorValue{0}</pValue><pSelected>Gain{0}</pSelected><pSelected>Exposure{0}</pSelected>"
                    "<pSelected>Mode{0}</pSelected></Enumeration>"
                    "<Integer Name=\"SelectorValue{0}\"><Value>0</Value></Integer>",
                    g));
    add(fmt::format("<Integer Name=\"Gain{0}\" NameSpace=\"Standard\">{1}<pIsImplemented>Implemented{0}"
                    "</pIsImplemented><pIsLocked>TLParamsLocked</pIsLocked><pValue>GainReg{0}</pValue><Min>0</Min>"
                    "<pMax>GainMax{0}</pMax><Inc>1</Inc><Representation>Linear</Representation></Integer>",
                    g, texts("Gain")));
    add(fmt::format("<IntReg Name=\"GainReg{0}\"><Address>0x{1:X}</Address><Length>4</Length><AccessMode>RW"
                    "</AccessMode><pPort>Device</pPort><Cachable>WriteThrough</Cachable><pInvalidator>ModeReg{0}"
                    "</pInvalidator><pIndex Offset=\"16\">SelectorValue{0}</pIndex><Sign>Unsigned</Sign>"
                    "<Endianess>BigEndian</Endianess></IntReg>",
                    g, base));
    add(fmt::format("<IntReg Name=\"GainMax{0}\"><Address>0x{1:X}</Address><Length>4</Length><AccessMode>RO"
                    "</AccessMode><pPort>Device</pPort><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>",
                    g, base + 0x80));
    add(fmt::format("<Float Name=\"Exposure{0}\" NameSpace=\"Standard\">{1}<pIsAvailable>Available{0}</pIsAvailable>"
                    "<pValue>ExposureConv{0}</pValue><Unit>us</Unit><Representation>Logarithmic</Representation>"
                    "<DisplayNotation>Fixed</DisplayNotation><DisplayPrecision>2</DisplayPrecision></Float>",
                    g, texts("Exposure time")));
    add(fmt::format("<Converter Name=\"ExposureConv{0}\"><pVariable Name=\"TICK\">TickReg{0}</pVariable>"
                    "<FormulaTo>TO * 1000 / TICK</FormulaTo><FormulaFrom>FROM * TICK / 1000</FormulaFrom>"
                    "<pValue>ExposureReg{0}</pValue><Slope>Increasing</Slope></Converter>",
                    g));
    for (const char* name : {"ExposureReg", "TickReg", "ModeReg"})
        add(fmt::format("<IntReg Name=\"{0}{1}\"><Address>0x{2:X}</Address><Length>4</Length><AccessMode>RW"
                        "</AccessMode><pPort>Device</pPort><Cachable>WriteThrough</Cachable><Sign>Unsigned</Sign>"
                        "<Endianess>BigEndian</Endianess></IntReg>",
                        name, g, base + 0x84 + 4 * (name[0] - 'A') % 64));
    add(fmt::format("<Enumeration Name=\"Mode{0}\" NameSpace=\"Standard\">{1}", g, texts("Mode")));
    for (const char* name : {"Off", "Once", "Continuous"})
        add(fmt::format("<EnumEntry Name=\"{0}\" NameSpace=\"Standard\"><DisplayName>{0}</DisplayName><Value>{1}"
                        "</Value><pIsImplemented>Implemented{2}</pIsImplemented></EnumEntry>",
                        name, name[1] % 4, g));
    add(fmt::format("<pValue>ModeBits{0}</pValue></Enumeration>", g));
    for (const char* name : {"ModeBits", "Implemented", "Available"})
        add(fmt::format("<MaskedIntReg Name=\"{0}{1}\"><Address>0x{2:X}</Address><Length>4</Length><AccessMode>RW"
                        "</AccessMode><pPort>Device</pPort><LSB>31</LSB><MSB>30</MSB><Sign>Unsigned</Sign>"
                        "<Endianess>BigEndian</Endianess></MaskedIntReg>",
                        name, g, base + 0xC0));
    add(fmt::format("<IntSwissKnife Name=\"Rate{0}\"><pVariable Name=\"A\">GainReg{0}</pVariable><pVariable Name=\"B\">"
                    "ExposureReg{0}</pVariable><pVariable Name=\"C\">TickReg{0}</pVariable><Formula>(C = 0) ? 0 : "
                    "((A * B) / C) &amp; 0xFFFF</Formula></IntSwissKnife>",
                    g));
    add(fmt::format("<Command Name=\"Start{0}\" NameSpace=\"Standard\">{1}<pValue>ModeReg{0}</pValue><CommandValue>1"
                    "</CommandValue></Command><Boolean Name=\"Enable{0}\" NameSpace=\"Standard\">{2}<pValue>ModeBits{0}"
                    "</pValue></Boolean>",
                    g, texts("Start"), texts("Enable")));
    return out;
}

} // namespace

std::string synthetic_document(std::size_t bytes) {
    std::string features;
    std::string groups;
    for (int g = 0; groups.size() < bytes; ++g) {
        groups += feature_group(g) + "\n";
        for (const char* name : {"Selector", "Gain", "Exposure", "Mode", "Start", "Enable"})
            features += fmt::format("<pFeature>{}{}</pFeature>", name, g);
    }
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<RegisterDescription ModelName=\"Synthetic\" "
           "VendorName=\"None\" StandardNameSpace=\"GEV\" SchemaMajorVersion=\"1\" SchemaMinorVersion=\"1\" "
           "SchemaSubMinorVersion=\"0\" MajorVersion=\"1\" MinorVersion=\"0\" SubMinorVersion=\"0\" ToolTip=\"\" "
           "ProductGuid=\"\" VersionGuid=\"\" xmlns=\"http://www.genicam.org/GenApi/Version_1_1\">\n"
           "<Category Name=\"Root\" NameSpace=\"Standard\">" +
           features + "</Category>\n" + groups +
           "<Integer Name=\"TLParamsLocked\"><Value>0</Value></Integer><Port Name=\"Device\"/></RegisterDescription>";
}

std::vector<named_text> maker_documents() {
    std::vector<named_text> documents;
    const char* folder = std::getenv("ORV_TEST_DOCUMENTS");
    if (folder == nullptr) return documents;
    for (const auto& entry : std::filesystem::directory_iterator{folder}) {
        if (entry.path().extension() != ".xml") continue;
        std::ifstream in{entry.path(), std::ios::binary};
        documents.push_back({entry.path().stem().string(), {std::istreambuf_iterator<char>{in}, {}}});
    }
    std::ranges::sort(documents, {}, &named_text::name);
    return documents;
}

} // namespace bench
