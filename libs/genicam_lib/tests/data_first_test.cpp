// Small documents of the kinds that real cameras bring and a literal reading loses: each reads and writes what stands
// in the device.
#include "support.h"

namespace GenICam::testing {
namespace {

std::string reg(const std::string& element, const std::string& name, const std::string& children) {
    return "<" + element + " Name=\"" + name + "\"><pPort>Device</pPort>" + children + "</" + element + ">";
}
std::string bytes_reg(const std::string& name, int address, int length, const std::string& more = "") {
    return reg("IntReg", name,
               "<Address>" + std::to_string(address) + "</Address><Length>" + std::to_string(length) + "</Length>" +
                   more);
}

// Registers of 1 to 8 bytes over the same 12 bytes, in each caching mode: whatever is read or written before, a cached
// read equals one past the cache.
TEST(OverlappingRegisters, AreReadAsTheyStandInTheDevice) {
    std::string nodes;
    std::vector<std::string> names;
    for (int at = 0; at < 8; at += 2) {
        for (const int length : {1, 2, 4, 8}) {
            for (const std::string mode : {"WriteThrough", "WriteAround", "NoCache"}) {
                names.push_back("R" + std::to_string(at) + "_" + std::to_string(length) + mode);
                nodes += bytes_reg(names.back(), at, length, "<Cachable>" + mode + "</Cachable>");
            }
        }
    }
    document sut{nodes + reg("StringReg", "Text", "<Address>0</Address><Length>16</Length>") +
                 reg("Register", "Bytes", "<Address>3</Address><Length>2</Length>")};
    sut.device.put(0, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});
    auto& text = sut.node<IString>("Text");
    const auto compare = [&](const std::string& after) {
        const auto one = [&](const std::string& name) {
            auto& node = sut.integer(name);
            const auto plain = node.get_val(0);
            EXPECT_EQ(plain, node.get_val(bypass_cache)) << name << " after " << after;
        };
        std::ranges::for_each(names, one);
        std::for_each(names.rbegin(), names.rend(), one);
        EXPECT_EQ(text.get_val(0), text.get_val(bypass_cache)) << after;
        EXPECT_EQ(text.get_val(raw_string), text.get_val(raw_string | bypass_cache)) << after;
    };
    compare("nothing");
    int64_t value = 0x1122334455667788;
    for (const std::string& name : names) {
        for (const unsigned flags : {0U, unsigned{bypass_cache}}) {
            EXPECT_THAT(sut.integer(name).set_val(value += 0x0101010101010101, flags), Passes());
            compare(name);
        }
    }
    for (const char* words : {"", "abc", "0123456789abcdef"}) {
        EXPECT_THAT(text.set_val(words, 0), Passes());
        compare(words);
    }
    EXPECT_THAT(text.set_val("xy", raw_string), Passes());
    compare("raw");
    const std::byte two[2] = {std::byte{0x77}, std::byte{0x66}};
    EXPECT_THAT(sut.node<IRegister>("Bytes").set(two, 0), Passes());
    compare("bytes");
    EXPECT_THAT(sut.node<IPort>("Device").write(5, two, 0), Passes());
    compare("the port");
}

// The device changes while it is read, as another thread's write would have it: what was read is not kept.
TEST(OverlappingRegisters, AWriteDuringAReadIsNotOvertaken) {
    struct changing_device final : IDevicePort {
        result<std::size_t> read(int64_t address, std::span<std::byte> data, unsigned flags) override {
            const auto count = bytes.read(address, data, flags);
            if (auto change = std::exchange(during_read, nullptr)) change();
            return count;
        }
        std::error_code write(int64_t address, std::span<const std::byte> data, unsigned flags) override {
            return bytes.write(address, data, flags);
        }
        counting_device bytes;
        std::function<void()> during_read;
    } device;
    const auto doc = create_document("<R>" + int_reg("A", 0) + int_reg("Around", 0, "<Cachable>NoCache</Cachable>") +
                                     reg("StringReg", "Text", "<Address>0</Address><Length>4</Length>") +
                                     "<Port Name=\"Device\"/></R>");
    ASSERT_THAT(doc->find<IPort>("Device")->bind(&device, 0), Passes());
    auto* number = doc->find<IInteger>("A");
    auto* text = doc->find<IString>("Text");
    for (const char* writer : {"A", "Around"}) {
        const auto write = [&](int64_t value) {
            return [&, value] { EXPECT_THAT(doc->find<IInteger>(writer)->set_val(value, 0), Passes()); };
        };
        doc->find<IPort>("Device")->unbind(bind_flags::clear_cache | bind_flags::invalidate);
        ASSERT_THAT(doc->find<IPort>("Device")->bind(&device, 0), Passes());
        device.during_read = write(0x4142);
        (void)number->get_val(0);
        EXPECT_THAT(number->get_val(0), Gives(0x4142)) << writer;
        device.during_read = write(0x4344);
        (void)text->get_val(0);
        EXPECT_THAT(text->get_val(0), Gives("DC")) << writer;
    }
}

// The address cannot be read at the moment when the register is invalidated: what was cached must not come back.
TEST(OverlappingRegisters, AnInvalidationWithoutAnAddressIsNotLost) {
    struct partly_broken_device final : IDevicePort {
        result<std::size_t> read(int64_t address, std::span<std::byte> data, unsigned flags) override {
            if (address == broken_at) return fail(genicam_errc::timeout);
            return bytes.read(address, data, flags);
        }
        std::error_code write(int64_t address, std::span<const std::byte> data, unsigned flags) override {
            return bytes.write(address, data, flags);
        }
        counting_device bytes;
        int64_t broken_at = -1;
    } device;
    const auto doc = create_document(
        "<R>" +
        reg("IntReg", "Value", "<pAddress>Base</pAddress><Length>4</Length><pInvalidator>Trigger</pInvalidator>") +
        int_reg("Base", 0x100, "<Cachable>NoCache</Cachable>") + int_reg("Trigger", 0x200) +
        "<Port Name=\"Device\"/></R>");
    ASSERT_THAT(doc->find<IPort>("Device")->bind(&device, 0), Passes());
    auto* value = doc->find<IInteger>("Value");
    EXPECT_THAT(value->get_val(0), Gives(0));
    device.bytes.put(0, {1, 0, 0, 0});
    device.broken_at = 0x100;
    EXPECT_THAT(doc->find<IInteger>("Trigger")->set_val(1, 0), Passes());
    device.broken_at = -1;
    EXPECT_EQ(value->get_val(0), value->get_val(bypass_cache));
}

TEST(DataFirst, LimitsOfARegisterDoNotTouchItsAddress) {
    document sut{reg("IntReg", "I", "<pAddress>Gone</pAddress><Length>2</Length>") +
                 reg("MaskedIntReg", "M", "<pAddress>Gone</pAddress><LSB>31</LSB><MSB>28</MSB>") + int_reg("Gone", 0)};
    sut.device.broken = true;
    EXPECT_THAT(sut.integer("I").get_max(0), Gives(0xFFFF));
    EXPECT_THAT(sut.integer("M").get_max(0), Gives(15));
    EXPECT_EQ(sut.device.reads, 0);
}

TEST(DataFirst, ConvertersOverUnlimitedTargets) {
    const auto converter = [](const std::string& element, const std::string& name, const std::string& from,
                              const std::string& to, const std::string& target) {
        return "<" + element + " Name=\"" + name + "\"><FormulaTo>" + to + "</FormulaTo><FormulaFrom>" + from +
               "</FormulaFrom><pValue>" + target + "</pValue></" + element + ">";
    };
    const document sut{"<Integer Name=\"T\"><Value>0</Value></Integer><Float Name=\"F\"><Value>0</Value></Float>"
                       "<Integer Name=\"Up\"><Value>5</Value><Min>5</Min></Integer>" +
                       converter("IntConverter", "Twice", "FROM*2", "TO/2", "T") +
                       converter("IntConverter", "Down", "0-FROM*2", "0-TO/2", "Up") +
                       converter("IntConverter", "Plus", "FROM*2", "TO/2", "Up") +
                       converter("Converter", "Real", "FROM*2", "TO/2", "T") +
                       converter("IntConverter", "OfReal", "FROM*2", "TO/2", "F")};
    constexpr int64_t least = std::numeric_limits<int64_t>::min();
    constexpr int64_t most = std::numeric_limits<int64_t>::max();
    struct row {
        const char* name;
        int64_t min;
        int64_t max;
    };
    for (const auto& [name, min, max] :
         {row{"Twice", least, most}, row{"Down", least, -10}, row{"Plus", 10, most}, row{"OfReal", least, most}}) {
        EXPECT_THAT(sut.integer(name).get_min(0), Gives(min)) << name;
        EXPECT_THAT(sut.integer(name).get_max(0), Gives(max)) << name;
    }
    EXPECT_THAT(sut.real("Real").get_max(0), Gives(std::numeric_limits<double>::max()));
    EXPECT_THAT(sut.real("Real").get_min(0), Gives(std::numeric_limits<double>::lowest()));
    EXPECT_THAT(sut.integer("Twice").set_val(42, 0), Passes());
    EXPECT_THAT(sut.integer("T").get_val(0), Gives(21));
}

// A formula that has no result at its target's limit, here 0, gives no limit, and forbids no value that has one.
TEST(DataFirst, ConvertersWithoutAResultAtALimitTakeWhatHasOne) {
    for (const char* slope : {"", "<Slope>Decreasing</Slope>", "<Slope>Varying</Slope>"}) {
        const document sut{reg("IntReg", "Raw", "<Address>0</Address><Length>4</Length>") +
                           "<IntConverter Name=\"Rate\"><FormulaTo>1000000/TO</FormulaTo>"
                           "<FormulaFrom>1000000/FROM</FormulaFrom><pValue>Raw</pValue>" +
                           slope + "</IntConverter>"};
        EXPECT_THAT(sut.integer("Raw").set_val(1, 0), Passes());
        EXPECT_THAT(sut.integer("Rate").set_val(10, 0), Passes()) << slope;
        EXPECT_THAT(sut.integer("Raw").get_val(0), Gives(100'000)) << slope;
    }
}

// One document each, so that no other text of it makes the engine look for split ones.
TEST(DataFirst, ASplitTextIsOneText) {
    const std::pair<const char*, int> formulas[] = {
        {"<Formula>1<!-- c -->+2</Formula>", 3},
        {"<Formula>1<!-- c -->+2<![CDATA[ << ]]>3</Formula>", (1 + 2) << 3}, // a shift binds looser than a sum
        {"<Formula>2 ><!-- c -->3</Formula>", 0},
        {"<Formula>2 > \n<!-- c -->1</Formula>", 1},
        {"<Formula A=\"<\">2 ><?x y?>1</Formula>", 1},
        {"<Formula><![CDATA[ 2 < 3 ]]> + 1</Formula>", 1},
        {"<Formula><![CDATA[4]]><!-- c --><![CDATA[0]]></Formula>", 40},
        {"<Formula>4<![CDATA[0]]></Formula>", 40},
        {"<Formula> <![CDATA[ 7 ]]>\n</Formula>", 7},
        {"<Formula><!-- > --><![CDATA[7]]></Formula>", 7},
    };
    for (const auto& [formula, value] : formulas) {
        const document sut{std::string{"<IntSwissKnife Name=\"K\">"} + formula + "</IntSwissKnife>"};
        EXPECT_THAT(sut.integer("K").get_val(0), Gives(value)) << formula;
    }
    const document sut{
        "<Integer Name=\"I\"><!-- a --><Value>1<!-- c -->2</Value><ToolTip>a<?x y?>b</ToolTip></Integer>"};
    EXPECT_THAT(sut.integer("I").get_val(0), Gives(12));
    EXPECT_EQ(sut.integer("I").get_tool_tip(), "ab");
}

TEST(DataFirst, StructEntriesTakeWhatTheyDoNotState) {
    const auto entry = [](const std::string& structure, const std::string& own) {
        return "<StructReg><Address>0</Address><Length>4</Length><pPort>Device</pPort><Cachable>WriteThrough</Cachable>"
               "<Endianess>LittleEndian</Endianess>" +
               structure + "<StructEntry Name=\"E\"><LSB>0</LSB><MSB>7</MSB>" + own + "</StructEntry></StructReg>" +
               "<Integer Name=\"No\"><Value>0</Value></Integer><Integer Name=\"Yes\"><Value>1</Value></Integer>" +
               int_reg("Trigger", 8);
    };
    struct row {
        const char* structure;
        const char* own;
        genicam_errc write;
    };
    for (const auto& [structure, own, write] :
         {row{"<AccessMode>RO</AccessMode>", "", access_denied},
          row{"<AccessMode>RO</AccessMode>", "<AccessMode>RW</AccessMode>", success},
          row{"<pIsImplemented>No</pIsImplemented>", "", node_not_implemented},
          row{"<pIsAvailable>No</pIsAvailable>", "", node_not_available},
          row{"<pIsAvailable>No</pIsAvailable>", "<pIsAvailable>Yes</pIsAvailable>", success},
          row{"<pIsLocked>Yes</pIsLocked><AccessMode>WO</AccessMode>", "", node_locked}}) {
        const document sut{entry(structure, own)};
        EXPECT_EQ(sut.integer("E").set_val(1, 0).value(), static_cast<int>(write)) << structure << own;
    }
    document sut{entry("<pInvalidator>Trigger</pInvalidator>", "")};
    EXPECT_THAT(sut.integer("E").get_val(0), Gives(0));
    sut.device.put(0, {7});
    EXPECT_THAT(sut.integer("Trigger").set_val(1, 0), Passes());
    EXPECT_THAT(sut.integer("E").get_val(0), Gives(7));
}

TEST(DataFirst, OneArgumentRoundInDocuments) {
    const document sut{"<Float Name=\"T\"><Value>0</Value></Float><Converter Name=\"C\"><FormulaTo>ROUND(TO*2)"
                       "</FormulaTo><FormulaFrom>ROUND(FROM/2)</FormulaFrom><pValue>T</pValue></Converter>"};
    EXPECT_THAT(sut.real("C").set_val(-1.25, 0), Passes());
    EXPECT_THAT(sut.real("T").get_val(0), Gives(-3.0));
    EXPECT_THAT(sut.real("C").get_val(0), Gives(-2.0));
}

TEST(DataFirst, AFaultNamesTheFormulaBelow) {
    const document sut{"<Float Name=\"F\"><pValue>C</pValue></Float><Integer Name=\"T\"><Value>1</Value></Integer>"
                       "<Converter Name=\"C\"><FormulaTo>TO</FormulaTo><FormulaFrom>FROM * HIGH</FormulaFrom>"
                       "<pValue>T</pValue></Converter>"};
    EXPECT_FALSE(sut.real("F").get_val(0));
    EXPECT_EQ(sut.real("F").get_fault(), "Formula 'FROM * HIGH' of 'C', character 8: Failed to map a variable name to "
                                         "a identifier_id");
    EXPECT_EQ(sut.integer("T").get_fault(), "");
}

// A sound formula over sound formulas, in each of which one variable stands a hundred times.
TEST(DataFirst, AVariableIsFetchedOncePerRun) {
    std::string nodes = int_reg("N0", 0, "<Cachable>NoCache</Cachable>");
    for (int i = 1; i <= 4; ++i) {
        nodes += "<IntSwissKnife Name=\"N" + std::to_string(i) + "\"><pVariable Name=\"A\">N" + std::to_string(i - 1) +
                 "</pVariable><pVariable Name=\"B\">N" + std::to_string(i - 1) + "</pVariable><Formula>A";
        for (int k = 0; k < 100; ++k) nodes += "+B-A";
        nodes += "</Formula></IntSwissKnife>";
    }
    document sut{nodes};
    sut.device.put(0, {7});
    EXPECT_THAT(sut.integer("N4").get_val(0), Gives(7));
    EXPECT_EQ(sut.device.reads, 1);
}

TEST(DataFirst, ALimitThatCannotBeReadBlocksTheWrite) {
    for (const char* limits : {"<pMin>Gone</pMin>", "<pMax>Gone</pMax>"}) {
        document sut{std::string{"<Integer Name=\"N\"><Value>0</Value>"} + limits + "</Integer><Float Name=\"F\">" +
                     "<Value>0</Value>" + limits + "</Float>" + int_reg("Gone", 0)};
        sut.device.broken = true;
        EXPECT_THAT(sut.integer("N").set_val(1, 0), Refuses(timeout));
        EXPECT_THAT(sut.real("F").set_val(1, 0), Refuses(timeout));
        EXPECT_THAT(sut.integer("N").set_val(1, no_range_check), Passes());
    }
    // A target that is only written has limits and no value; one without limits has none that could fail.
    const document sut{int_reg("R", 0, "<AccessMode>WO</AccessMode>") +
                       "<IntConverter Name=\"C\"><FormulaTo>TO</FormulaTo><FormulaFrom>FROM</FormulaFrom><pValue>R"
                       "</pValue></IntConverter><Enumeration Name=\"E\"><EnumEntry Name=\"A\"><Value>1</Value>"
                       "</EnumEntry><pValue>R</pValue></Enumeration><Integer Name=\"I\"><pValue>E</pValue></Integer>"};
    EXPECT_THAT(sut.integer("C").set_val(1, 0), Passes());
    EXPECT_THAT(sut.integer("I").set_val(1, 0), Passes());
}

} // namespace
} // namespace GenICam::testing
