// `orv-gentl xml`: a document without a device, as text and as JSON, and what is said about files that are no use.
#include "support/consumer_shell.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

using namespace test_support;
using testing::ContainsRegex;
using testing::HasSubstr;

namespace {

constexpr const char* document = R"(<RegisterDescription>
<Category Name="Root"><pFeature>Size</pFeature></Category>
<Integer Name="Size"><Visibility>Expert</Visibility><pValue>SizeReg</pValue><Min>1</Min><Max>9</Max><Inc>2</Inc>
  <Unit>mm</Unit><pSelected>Text</pSelected></Integer>
<IntReg Name="SizeReg"><Address>4</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>
  <Endianess>LittleEndian</Endianess></IntReg>
<StringReg Name="Text"><Address>8</Address><Length>8</Length><AccessMode>RO</AccessMode><pPort>Device</pPort></StringReg>
<Enumeration Name="Mode"><EnumEntry Name="Off"><Value>0</Value></EnumEntry><EnumEntry Name="On"><Value>7</Value>
  </EnumEntry><pValue>SizeReg</pValue></Enumeration>
<Integer Name="Broken"><pValue>Nowhere</pValue></Integer>
<Port Name="Device"/>
</RegisterDescription>)";

class XmlCommand : public testing::Test {
protected:
    std::string file(const std::string& name, std::string_view content) {
        const auto path = own.folder() / name;
        std::ofstream{path, std::ios::binary} << content;
        return path;
    }
    std::string zipped(const std::string& name, const std::string& source) {
        const auto path = own.folder() / name;
        process zip{{"/usr/bin/zip", "-q", "-j", path, source}, own.folder() / "zip-output"};
        EXPECT_EQ(zip.wait(), 0);
        return path;
    }
    // By name.
    std::map<std::string, nlohmann::json> nodes_of(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "xml");
        arguments.emplace_back("--json");
        const auto run = own.run_consumer(arguments);
        EXPECT_EQ(run.exit_code, 0) << run.output;
        const auto object = nlohmann::json::parse(run.output, nullptr, false);
        std::map<std::string, nlohmann::json> nodes;
        if (!object.is_object()) return nodes;
        EXPECT_EQ(object["count"], object["nodes"].size());
        for (const auto& node : object["nodes"]) nodes[node["name"]] = node;
        return nodes;
    }

    test_system own;
    const std::string plain = file("camera.xml", document);
    const std::string memory = file("memory", std::string_view{"\0\0\0\0\x07\0\0\0hello\0\0\0", 16});
};

TEST_F(XmlCommand, ListsEveryNodeAsJson) {
    for (const std::string& source : {plain, zipped("camera.zip", plain)}) {
        auto nodes = nodes_of({source, "--memory", memory});
        ASSERT_EQ(nodes.size(), 7U) << source;
        EXPECT_EQ(nodes["Size"], nlohmann::json::parse(R"({"name": "Size", "kind": "Integer", "access": "RW",
            "visibility": "Expert", "value": 7, "min": 1, "max": 9, "inc": 2, "unit": "mm", "selects": ["Text"]})"));
        EXPECT_EQ(nodes["Text"]["value"], "hello");
        EXPECT_EQ(nodes["Text"]["access"], "RO");
        EXPECT_EQ(nodes["Mode"]["value"], "On");
        EXPECT_EQ(nodes["Mode"]["entries"], nlohmann::json::parse(R"(["Off", "On"])"));
        EXPECT_EQ(nodes["Broken"]["error"], "Not implemented");
        EXPECT_FALSE(nodes["Broken"].contains("value"));
        EXPECT_EQ(nodes["Root"]["features"], nlohmann::json::parse(R"(["Size"])"));
    }
    EXPECT_EQ(nodes_of({plain})["Size"]["value"], 0) << "a device of zeros when no memory is given";
}

TEST_F(XmlCommand, ListsEveryNodeAsText) {
    const auto run = own.run_consumer({"xml", plain, "--memory", memory, "--time"});
    EXPECT_EQ(run.exit_code, 0);
    EXPECT_EQ(std::ranges::count(run.output, '\n'), 8);
    for (const char* line : {"Size +Integer +RW +Expert +7 mm min=1 max=9 inc=2 selects=\\[\"Text\"\\]\n",
                             "Text +String +RO +Beginner +\"hello\"\n",
                             "Mode +Enumeration +RW +Beginner +\"On\" entries=\\[\"Off\",\"On\"\\]\n",
                             "Broken +Integer +RW +Beginner +! Not implemented",
                             "loaded 7 nodes in [0-9.]+ ms, listed [0-9]+ nodes/s\n$"}) {
        EXPECT_THAT(run.output, ContainsRegex(line));
    }
}

// A register beyond the end has no value; zeros there would be a guess.
TEST_F(XmlCommand, MemoryThatIsTooShortIsAnErrorOfTheRegister) {
    auto nodes = nodes_of({plain, "--memory", file("short", std::string_view{"\0\0\0\0\x07\0\0\0hel", 11})});
    EXPECT_EQ(nodes["Size"]["value"], 7);
    EXPECT_EQ(nodes["Text"]["error"], "Invalid address");
    nodes = nodes_of({plain, "--memory", file("empty", "")});
    EXPECT_EQ(nodes["Size"]["error"], "Invalid address");
}

TEST_F(XmlCommand, SaysWhyAFileIsNoUse) {
    const std::string archive = zipped("sound.zip", plain);
    std::string cut(200, '\0');
    std::ifstream{archive, std::ios::binary}.read(cut.data(), 200);
    const std::string folder = own.folder();
    const auto row = [&](const std::string& of, const char* text) {
        return consumer::row{"xml '" + of + "'", cli::cause::arguments, text};
    };
    consumer::expect_rows(own,
                          {row(folder + "/none.xml", "Cannot read '"), row(folder, "Cannot read '"),
                           row(file("text", "no document"), "is no well-formed XML"),
                           row(file("nothing", ""), "is no well-formed XML"),
                           row(file("cut.xml", std::string_view{document}.substr(0, 300)), "is no well-formed XML"),
                           row(file("cut.zip", cut), "is no sound archive"),
                           row(zipped("text.zip", file("readme.txt", "no document")), "is no"),
                           row(plain + "' --memory '" + folder + "/none", "Cannot read '"),
                           row(plain + "' --memory '" + folder, "Cannot read '")});
}

} // namespace
