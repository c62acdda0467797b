#include "scratch.h"

#include <gds_helper/paths.h>
#include <gds_helper/property_store_chain.h>
#include <gds_helper/property_store_env.h>
#include <gds_helper/property_store_json.h>
#include <gds_helper/property_store_map.h>
#include <gds_helper/property_store_registry.h>

#include <gmock/gmock.h>

using namespace gds_helper;

namespace {

// What each kind of read finds under a key: "-" for a failure.
std::string reads(const property_store_ro& store, const std::string& key) {
    std::int64_t integer = 0;
    double real = 0;
    std::string text;
    std::ostringstream found;
    store.read_int64(key, integer) ? found << '-' : found << integer;
    store.read_double(key, real) ? found << " -" : found << ' ' << real;
    store.read_string(key, text) ? found << " -" : found << ' ' << text;
    return found.str();
}

constexpr const char* key = "Software\\Some Vendor\\product\\service";

class Stores : public scratch {
protected:
    void write_settings(const std::string& text) {
        set("XDG_CONFIG_HOME", folder.string());
        write("Software/Some Vendor/product/service.json", text);
    }
};

} // namespace

TEST_F(Stores, ChainTakesTheFirstSuccess) {
    const property_store_chain empty;
    EXPECT_EQ(reads(empty, "k"), "- - -");
    EXPECT_FALSE(empty.has_entry("k"));
    EXPECT_EQ(empty.get_backing_store(), nullptr);

    const auto first = std::make_shared<property_store_map>();
    const auto second = std::make_shared<property_store_map>();
    static_cast<void>(first->write_string("k", "first"));
    static_cast<void>(second->write_string("k", "second"));
    static_cast<void>(second->write_int64("k2", 2));
    property_store_chain chain;
    chain.append(std::make_shared<property_store_env>());
    chain.append(first);
    chain.append(second);
    EXPECT_EQ(reads(chain, "k"), "- - first");
    EXPECT_EQ(reads(chain, "k2"), "2 - -");
    EXPECT_TRUE(chain.has_entry("k2"));
    EXPECT_EQ(chain.get_backing_store(), first);
}

TEST_F(Stores, EnvironmentNumbersFillTheWholeText) {
    const property_store_env store;
    for (const auto& [text, expected] :
         std::map<std::string, std::string>{{"12", "12 12 12"},
                                            {"-1", "-1 -1 -1"},
                                            {"1.5", "- 1.5 1.5"},
                                            {"12x", "- - 12x"},
                                            {" 1", "- -  1"},
                                            {"", "- - "},
                                            {"99999999999999999999", "- 1e+20 99999999999999999999"}}) {
        set("ORV_TEST_VALUE", text);
        EXPECT_EQ(reads(store, "ORV_TEST_VALUE"), expected);
        EXPECT_TRUE(store.has_entry("ORV_TEST_VALUE"));
    }
    set("ORV_TEST_VALUE", std::nullopt);
    EXPECT_FALSE(store.has_entry("ORV_TEST_VALUE"));
    std::int64_t value = 0;
    EXPECT_EQ(store.read_int64("ORV_TEST_VALUE", value), std::errc::invalid_argument);
}

TEST_F(Stores, JsonWantsTheMatchingType) {
    const property_store_json_rw store{write(
        "a.json", R"({"i": 7, "d": 2.5, "s": "7", "b": true, "n": null, "big": 1e300, "u": 18446744073709551615})")};
    EXPECT_EQ(reads(store, "i"), "7 7 -");
    EXPECT_EQ(reads(store, "d"), "2 2.5 -");
    EXPECT_EQ(reads(store, "s"), "- - 7");
    EXPECT_EQ(reads(store, "b"), "- - -");
    EXPECT_EQ(reads(store, "n"), "- - -");
    EXPECT_EQ(reads(store, "big"), "- 1e+300 -");
    EXPECT_EQ(reads(store, "u"), "- 1.84467e+19 -");
    EXPECT_TRUE(store.has_entry("b"));
}

TEST_F(Stores, JsonThatIsNoneIsEmpty) {
    for (const char* text : {"", "{", "[1, 2]", "7", "\xFF\xFE", R"({"a": 1} trailing)"}) {
        property_store_json_rw store{write("bad.json", text)};
        EXPECT_FALSE(store.has_entry("a")) << text;
        EXPECT_EQ(reads(store, "a"), "- - -") << text;
        EXPECT_THAT(store.enum_entries(), testing::IsEmpty()) << text;
        EXPECT_FALSE(store.write_int64("a", 1));
        EXPECT_TRUE(store.has_entry("a")) << text;
    }
}

TEST_F(Stores, JsonReachesTheFileByFlushAlone) {
    const auto file = folder / "deep" / "er" / "settings.json";
    property_store_json_rw store{file};
    EXPECT_FALSE(store.write_string("k", "1"));
    EXPECT_FALSE(store.write_int64("k", 5));
    EXPECT_FALSE(std::filesystem::exists(file));
    store.flush_back();
    EXPECT_EQ(reads(property_store_json_rw{file}, "k"), "5 5 -");

    property_store_json_rw blocked{write("plain", "") / "below.json"};
    EXPECT_FALSE(blocked.write_int64("k", 1));
    blocked.flush_back(); // a word in the log, and
    EXPECT_TRUE(blocked.has_entry("k")) << "what is in memory stays";
}

TEST_F(Stores, JsonThatCannotBeWrittenLeavesTheFileAsItWas) {
    const auto file = write("settings.json", R"({"k": 1})");
    property_store_json_rw store{file};
    EXPECT_FALSE(store.write_string("name", "\xFF"));
    store.flush_back();
    EXPECT_EQ(text_of(file), R"({"k": 1})");
}

TEST_F(Stores, SettingsAreIntegersAndStringsOnly) {
    write_settings(R"({"i": 5, "s": "t", "d": 0.5, "b": false})");
    const property_store_registry_ro store{registry_root::current_user, key};
    EXPECT_EQ(reads(store, "s"), "- - t");
    std::int64_t integer = 0;
    EXPECT_FALSE(store.read_int64("i", integer));
    EXPECT_EQ(integer, 5);
    EXPECT_EQ(store.read_int64("d", integer), std::errc::invalid_argument);
    EXPECT_EQ(store.read_int64("b", integer), std::errc::invalid_argument);
    EXPECT_EQ(registry_file(registry_root::local_machine, key), "/etc/Software/Some Vendor/product/service.json");
}

TEST_F(Stores, SettingsAreWrittenAtOnceAndKeepDoublesBitForBit) {
    set("XDG_CONFIG_HOME", folder.string());
    property_store_registry_rw store{registry_root::current_user, key};
    EXPECT_FALSE(store.write_double("d", -0.1));
    EXPECT_FALSE(store.write_string("s", "x"));
    const property_store_registry_ro other{registry_root::current_user, key};
    double value = 0;
    EXPECT_FALSE(other.read_double("d", value));
    EXPECT_EQ(value, -0.1);
    EXPECT_FALSE(store.remove_entry("s"));
    EXPECT_FALSE((property_store_registry_ro{registry_root::current_user, key}.has_entry("s")));
}

TEST_F(Stores, CacheFolderFollowsTheEnvironment) {
    set("XDG_CACHE_HOME", "/c");
    EXPECT_EQ(make_filesystem_property_store_path("a", "b"), "/c/a/b");
    set("XDG_CACHE_HOME", "relative");
    set("HOME", "/h");
    EXPECT_EQ(make_win32_cache_directory_path("a", "b"), "/h/.cache/a/b");
}
