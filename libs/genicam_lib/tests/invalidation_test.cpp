// Who hears of a change, how often, and what has left the cache by then.
#include "script.h"

namespace GenICam::testing {
namespace {

// Counts the callbacks of the nodes named, as text: "A B2" is one of A and two of B.
class listener {
public:
    listener(const document& from, std::initializer_list<const char*> names) {
        for (const char* name : names)
            from.doc->find_node(name)->set_on_invalidated([this, name](INode&) { ++calls[name]; });
    }
    [[nodiscard]] std::string take() {
        std::string heard;
        for (const auto& [name, count] : std::exchange(calls, {})) {
            heard += (heard.empty() ? "" : " ") + name + (count == 1 ? "" : std::to_string(count));
        }
        return heard;
    }

private:
    std::map<std::string, int> calls;
};

TEST(Invalidation, ReachesEveryUserOnceThroughAnyPath) {
    document sut{"Reg R@0 | Integer A: pValue R | Integer B: pValue R | Integer Other: Value 1"
                 " | IntSwissKnife K: pVariable@A A, pVariable@B B, Formula A+B"};
    listener heard{sut, {"R", "A", "B", "K", "Other"}};
    EXPECT_THAT(sut.integer("A").set_val(1, 0), Passes());
    EXPECT_EQ(heard.take(), "A B K R");
    EXPECT_THAT(sut.integer("R").set_val(1, 0), Passes());
    EXPECT_EQ(heard.take(), "A B K R");
    EXPECT_THAT(sut.integer("R").get_val(0), Gives(1));
    EXPECT_EQ(heard.take(), "");
    sut.device.broken = true;
    EXPECT_THAT(sut.integer("R").set_val(1, 0), Refuses(timeout));
    EXPECT_EQ(heard.take(), "");
    sut.device.broken = false;
    sut.doc->find_node("A")->set_on_invalidated({});
    EXPECT_THAT(sut.integer("R").set_val(2, 0), Passes());
    EXPECT_EQ(heard.take(), "B K R");
}

// Registers and texts do not compare.
TEST(Invalidation, AnUnchangedValueIsNoEvent) {
    document sut{"Integer I: Value 1 | Float F: Value 1 | Boolean B: Value 1 | String S: Value 1 | Reg R@0"
                 " | Enumeration E: EnumEntry@X {Value 1}, Value 1 | Command C: Value 1, CommandValue 1"
                 " | Integer N: pIndex I, ValueDefault 1"};
    listener heard{sut, {"I", "F", "B", "S", "E", "C", "N", "R"}};
    script{sut}.run({"I := 1", "F := 1", "B := true", "E := X", "C := run", "N := 1"});
    EXPECT_EQ(heard.take(), "");
    script{sut}.run({"S := 1", "R := 0"});
    EXPECT_EQ(heard.take(), "R S");
    script{sut}.run({"I := 2"});
    EXPECT_EQ(heard.take(), "I N");
    script{sut}.run({"F := 2", "B := false", "N := 2"});
    EXPECT_EQ(heard.take(), "B F N");
}

TEST(Invalidation, SelectorsInvalidateWhatTheySelectDownToTheRegister) {
    document sut{"Integer Sel: Value 0, pSelected Gain | Integer Gain: pValue R"
                 " | IntReg R: Address 0x100, Length 4, pIndex@Offset=16 Sel, Endianess LittleEndian"};
    listener heard{sut, {"Sel", "Gain", "R"}};
    EXPECT_THAT(sut.doc->find_node("Gain")->get_selecting_nodes(), ::testing::ElementsAre(sut.doc->find_node("Sel")));
    EXPECT_THAT(sut.integer("Sel").get_selected(), ::testing::ElementsAre(sut.doc->find_node("Gain")));
    script{sut}.run({"[0x100] := 0a", "[0x110] := 0b", "Gain = 10", "Sel := 1"});
    EXPECT_EQ(heard.take(), "Gain R Sel");
    script{sut}.run({"Gain = 11", "[0x100] := 14", "Sel := 0", "Gain = 20"});
}

const std::string indexed = "IntReg D: Address 16, Length 4, pIndex@Offset=4 Sel, Endianess LittleEndian, "
                            "pInvalidator Load | Integer Sel: pValue S | Reg Load@8 | ";

const script_case invalidations[] = {
    // A register keeps what it has just written.
    {"DeclaredInvalidatorsDropTheCacheBelow",
     "Reg Trigger@0 | Reg State@4 | Reg Deep@8 | Integer Named: pValue Deep, pInvalidator Trigger"
     " | Reg Direct@12: pInvalidator Trigger",
     {"Trigger = 0", "State = 0", "Named = 0", "Direct = 0", "reads = 4", "Trigger := 1",
      "Named/cache_only ! not_in_cache", "Direct/cache_only ! not_in_cache", "State/cache_only = 0",
      "Trigger/cache_only = 1"}},
    // Where a text lies cannot be told when its address cannot be read: then nothing that it may overlap stays cached.
    {"ATextWhoseAddressCannotBeToldDropsAll",
     "Integer At: Value 0 | Reg Where@16: Cachable NoCache | Reg Number@0"
     " | StringReg Text: pAddress Where, Length 4, pInvalidator At",
     {"[0] := 01", "Number = 1", "[0] := 02", "breaks", "At := 1", "mends", "Number = 2"}},
    {"BytesWhoseAddressCannotBeToldDropAll",
     "Integer At: Value 0 | Reg Where@16: Cachable NoCache | Reg Number@0"
     " | Register Bytes: pAddress Where, Length 4, pInvalidator At",
     {"[0] := 01", "Number = 1", "[0] := 02", "breaks", "At := 1", "mends", "Number = 2"}},
    // The register's own index is invalidated with it, after it, and leads elsewhere then: no value that it has had
    // anywhere is good any more.
    {"AnIndexedRegisterForgetsAllItsPlaces",
     indexed + "Reg S@0: pInvalidator Load",
     {"[16] := 0a 00 00 00 0b", "D = 10", "Sel := 1", "D = 11", "[0] := 00", "[16] := 63 00 00 00 62", "Load := 1",
      "D = 99", "Sel := 1", "D = 98"}},
    {"AnIndexedRegisterForgetsAllItsPlacesForWritesToTheCache",
     indexed + "Reg S@0: pInvalidator Load",
     {"D = 0", "Sel := 1", "D = 0", "[0] := 00", "Load := 1", "Sel = 0", "D/cache_only := 5 ! not_in_cache", "D = 0",
      "D/cache_only := 5", "D = 5"}},
    {"ARegisterWithAnAddressThatIsReadForgetsAllItsPlaces",
     "MaskedIntReg D: pAddress S, Length 4, LSB 0, MSB 7, Endianess LittleEndian, pInvalidator Load"
     " | Reg Load@8 | Reg S@0: pInvalidator Load",
     {"[0] := 10", "[16] := 0a 00 00 00 0b", "D = 10", "S := 20", "D = 11", "[0] := 10", "[16] := 63", "Load := 1",
      "D = 99"}},
    // Others keep theirs.
    {"TheOtherRegistersKeepTheirValues",
     indexed + "Reg S@0: pInvalidator Load | Reg Other@24",
     {"D = 0", "Other = 0", "Load := 1", "reads = 3", "Other = 0", "D = 0", "D = 0", "S = 0", "reads = 2"}},
};
INSTANTIATE_TEST_SUITE_P(Invalidation, Document, ::testing::ValuesIn(invalidations), case_name{});

TEST(Invalidation, CallbacksSeeFreshData) {
    document sut{"Reg Trigger@0 | Reg A@4: pInvalidator Trigger | Reg B@8: pInvalidator Trigger"};
    EXPECT_TRUE(sut.integer("A").get_val(0) && sut.integer("B").get_val(0));
    sut.device.put(4, {1});
    sut.device.put(8, {2});
    std::vector<int64_t> seen;
    for (const char* name : {"A", "B"}) {
        sut.doc->find_node(name)->set_on_invalidated([&](INode&) {
            seen.push_back(sut.integer("A").get_val(0).value() * 10 + sut.integer("B").get_val(0).value());
        });
    }
    EXPECT_THAT(sut.integer("Trigger").set_val(1, 0), Passes());
    EXPECT_THAT(seen, ::testing::ElementsAre(12, 12));
}

TEST(Invalidation, ACallbackMayReplaceItselfAndWrite) {
    document sut{"Integer A: Value 0 | Integer B: Value 0"};
    sut.doc->find_node("A")->set_on_invalidated([&](INode& node) {
        node.set_on_invalidated({});
        EXPECT_THAT(sut.integer("B").set_val(7, 0), Passes());
    });
    script{sut}.run({"A := 1", "A := 2", "B = 7"});
}

TEST(Invalidation, StatesAreDependents) {
    document sut{"Integer Lock: Value 0 | Integer N: Value 1, pIsLocked Lock"
                 " | Enumeration E: EnumEntry@X {Value 1, pIsAvailable Lock}, Value 1"};
    listener heard{sut, {"N"}};
    int entry_calls = 0;
    sut.node<IEnumeration>("E").get_entries()[0]->set_on_invalidated([&](INode&) { ++entry_calls; });
    script{sut}.run({"Lock := 1"});
    EXPECT_EQ(heard.take(), "N");
    EXPECT_EQ(entry_calls, 1);
}

TEST(Invalidation, DependentNodesAreListedBreadthFirst) {
    const document sut{"Reg R@0 | Integer A: pValue R, pSelected S | Integer B: pValue R | Integer C: pValue A"
                       " | Integer S: Value 1, pSelected A"};
    std::vector<INode*> nodes;
    sut.doc->find_node("R")->get_dependent_nodes(nodes);
    EXPECT_EQ(names_of(nodes), "A B S C");
}

// A port with an event's number holds a copy of what the event carries; a node with it is only invalidated.
TEST(Events, ReachPortsAndNodes) {
    document sut{"Port Event: EventID 9001 | IntReg Stamp: Address 2, Length 4, pPort Event | Integer F: pValue Stamp"
                 " | Integer Node: pValue R, EventID 9001 | Reg R@0 | Integer Other: Value 1, EventID 9002"};
    listener heard{sut, {"Stamp", "F", "Node", "Other"}};
    std::array<unsigned char, 6> payload{0, 0, 0, 0, 1, 2};
    script{sut}.run({"Node = 0", "[0] := 05", "Node = 0"});
    EXPECT_TRUE(sut.doc->apply_event(0x9001, std::as_bytes(std::span{payload})));
    EXPECT_EQ(heard.take(), "F Node Stamp");
    payload[5] = 9;
    script{sut}.run({"F = 0x0102", "F := 1 ! access_denied", "Node = 5"});
    EXPECT_TRUE(sut.doc->apply_event(0x9001, std::as_bytes(std::span{payload})));
    script{sut}.run({"F = 0x0109"});
    EXPECT_FALSE(sut.doc->apply_event(0x9999, {}));
}

// N stands on the event's port and has a register below that the other node of the event makes invalid.
TEST(Events, EachNodeOfAnEventInvalidatesAllThatItWouldAlone) {
    document sut{"Port Ev: EventID 1 | IntReg E: Address 0, Length 1, pPort Ev | Reg R@0"
                 " | IntSwissKnife Y: pVariable@A E, pVariable@B R, Formula A*0+B | Integer F: EventID 1, Value 0"
                 " | Integer G: pValue F | Integer N: pInvalidator G, pValue Y"};
    const std::array data{std::byte{0}};
    EXPECT_TRUE(sut.doc->apply_event(1, data));
    script{sut}.run({"N = 0", "[0] := 05", "N = 0"});
    EXPECT_TRUE(sut.doc->apply_event(1, data));
    script{sut}.run({"N = 5"});
}

// A feature with the event's number that stands on a port with it, before and behind that port in the document.
TEST(Events, CallbacksRunOnceOnTheNewData) {
    const std::string stands_on_a_port = ": pValue S, EventID 1";
    document sut{"Integer First" + stands_on_a_port + " | IntReg S: Address 0, Length 1, pPort P | Port P: EventID 1" +
                 " | IntReg Other: Address 1, Length 1, pPort Q | Port Q: EventID 1 | Integer Last" + stands_on_a_port};
    std::vector<std::string> heard;
    for (const char* name : {"First", "Last", "P", "Other"}) {
        sut.doc->find_node(name)->set_on_invalidated([&, name](INode&) {
            const auto value = [&](const char* of) { return std::to_string(sut.integer(of).get_val(0).value_or(-1)); };
            heard.push_back(name + (" " + value("First")) + value("Other"));
        });
    }
    for (const unsigned char data : {1, 2}) {
        const std::array bytes{std::byte{data}, std::byte{data}};
        EXPECT_TRUE(sut.doc->apply_event(1, bytes));
        const std::string seen = " " + std::to_string(data) + std::to_string(data);
        EXPECT_THAT(std::exchange(heard, {}),
                    ::testing::UnorderedElementsAre("First" + seen, "Last" + seen, "P" + seen, "Other" + seen));
    }
}

} // namespace
} // namespace GenICam::testing
