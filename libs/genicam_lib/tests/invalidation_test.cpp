// Who hears of a change, how often, and what has left the cache by then.
#include "support.h"

namespace GenICam::testing {
namespace {

// Counts the callbacks of the nodes named.
class listener {
public:
    listener(const document& from, std::initializer_list<const char*> names) {
        for (const char* name : names) {
            from.doc->find_node(name)->set_on_invalidated(
                [this](INode& node) { ++calls[std::string{node.get_name()}]; });
        }
    }
    [[nodiscard]] std::map<std::string, int> take() { return std::exchange(calls, {}); }

private:
    std::map<std::string, int> calls;
};

using counts = std::map<std::string, int>;

TEST(Invalidation, ReachesEveryUserOnceThroughAnyPath) {
    const document sut{int_reg("R", 0) + "<Integer Name=\"A\"><pValue>R</pValue></Integer>"
                                         "<Integer Name=\"B\"><pValue>R</pValue></Integer>"
                                         "<IntSwissKnife Name=\"K\"><pVariable Name=\"A\">A</pVariable>"
                                         "<pVariable Name=\"B\">B</pVariable><Formula>A+B</Formula></IntSwissKnife>"
                                         "<Integer Name=\"Other\"><Value>1</Value></Integer>"};
    listener heard{sut, {"R", "A", "B", "K", "Other"}};
    EXPECT_THAT(sut.integer("A").set_val(1, 0), Passes());
    EXPECT_EQ(heard.take(), (counts{{"R", 1}, {"A", 1}, {"B", 1}, {"K", 1}}));
    EXPECT_THAT(sut.integer("R").set_val(1, 0), Passes());
    EXPECT_EQ(heard.take(), (counts{{"R", 1}, {"A", 1}, {"B", 1}, {"K", 1}}));
    EXPECT_THAT(sut.integer("R").get_val(0), Gives(1));
    EXPECT_TRUE(heard.take().empty());
    sut.doc->find_node("A")->set_on_invalidated({});
    EXPECT_THAT(sut.integer("R").set_val(2, 0), Passes());
    EXPECT_EQ(heard.take(), (counts{{"R", 1}, {"B", 1}, {"K", 1}}));
}

TEST(Invalidation, AnUnchangedValueIsNoEvent) {
    document sut{"<Integer Name=\"I\"><Value>1</Value></Integer><Float Name=\"F\"><Value>1</Value></Float>"
                 "<Boolean Name=\"B\"><Value>1</Value></Boolean><String Name=\"S\"><Value>1</Value></String>"
                 "<Enumeration Name=\"E\"><EnumEntry Name=\"X\"><Value>1</Value></EnumEntry><Value>1</Value>"
                 "</Enumeration><Command Name=\"C\"><Value>1</Value><CommandValue>1</CommandValue></Command>"
                 "<Integer Name=\"N\"><pIndex>I</pIndex><ValueDefault>1</ValueDefault></Integer>" +
                 int_reg("R", 0)};
    listener heard{sut, {"I", "F", "B", "S", "E", "C", "N", "R"}};
    EXPECT_THAT(sut.integer("I").set_val(1, 0), Passes());
    EXPECT_THAT(sut.real("F").set_val(1, 0), Passes());
    EXPECT_THAT(sut.node<IBoolean>("B").set_val(true, 0), Passes());
    auto& e = sut.node<IEnumeration>("E");
    EXPECT_THAT(e.set_selected_entry(e.get_entries()[0], 0), Passes());
    EXPECT_THAT(sut.node<ICommand>("C").execute(0), Passes());
    EXPECT_THAT(sut.integer("N").set_val(1, 0), Passes());
    EXPECT_EQ(heard.take(), counts{});
    // Registers and texts do not compare.
    EXPECT_THAT(sut.node<IString>("S").set_val("1", 0), Passes());
    EXPECT_THAT(sut.integer("R").set_val(0, 0), Passes());
    EXPECT_EQ(heard.take(), (counts{{"S", 1}, {"R", 1}}));
    EXPECT_THAT(sut.integer("I").set_val(2, 0), Passes());
    EXPECT_EQ(heard.take(), (counts{{"I", 1}, {"N", 1}}));
    EXPECT_THAT(sut.real("F").set_val(2, 0), Passes());
    EXPECT_THAT(sut.node<IBoolean>("B").set_val(false, 0), Passes());
    EXPECT_THAT(sut.integer("N").set_val(2, 0), Passes());
    EXPECT_EQ(heard.take(), (counts{{"F", 1}, {"B", 1}, {"N", 1}}));
}

TEST(Invalidation, SelectorsInvalidateWhatTheySelectDownToTheRegister) {
    document sut{"<Integer Name=\"Sel\"><Value>0</Value><pSelected>Gain</pSelected></Integer>"
                 "<Integer Name=\"Gain\"><pValue>Reg</pValue></Integer>"
                 "<IntReg Name=\"Reg\"><Address>0x100</Address><Length>4</Length><pPort>Device</pPort>"
                 "<pIndex Offset=\"16\">Sel</pIndex><Endianess>LittleEndian</Endianess></IntReg>"};
    sut.device.put(0x100, {10});
    sut.device.put(0x110, {11});
    listener heard{sut, {"Sel", "Gain", "Reg"}};
    EXPECT_THAT(sut.doc->find_node("Gain")->get_selecting_nodes(), ::testing::ElementsAre(sut.doc->find_node("Sel")));
    EXPECT_THAT(sut.integer("Sel").get_selected(), ::testing::ElementsAre(sut.doc->find_node("Gain")));
    EXPECT_THAT(sut.integer("Gain").get_val(0), Gives(10));
    EXPECT_THAT(sut.integer("Sel").set_val(1, 0), Passes());
    EXPECT_EQ(heard.take(), (counts{{"Sel", 1}, {"Gain", 1}, {"Reg", 1}}));
    EXPECT_THAT(sut.integer("Gain").get_val(0), Gives(11));
    sut.device.put(0x100, {20});
    EXPECT_THAT(sut.integer("Sel").set_val(0, 0), Passes());
    EXPECT_THAT(sut.integer("Gain").get_val(0), Gives(20));
}

TEST(Invalidation, DeclaredInvalidatorsDropTheCacheBelow) {
    document sut{int_reg("Trigger", 0) + int_reg("State", 4) + int_reg("Deep", 8) +
                 "<Integer Name=\"Named\"><pValue>Deep</pValue><pInvalidator>Trigger</pInvalidator></Integer>"
                 "<IntReg Name=\"Direct\"><Address>12</Address><Length>4</Length><pPort>Device</pPort>"
                 "<pInvalidator>Trigger</pInvalidator></IntReg>"};
    for (const char* name : {"Trigger", "State", "Named", "Direct"})
        EXPECT_THAT(sut.integer(name).get_val(0), Gives(0));
    EXPECT_EQ(sut.device.reads, 4);
    EXPECT_THAT(sut.integer("Trigger").set_val(1, 0), Passes());
    EXPECT_THAT(sut.integer("Named").get_val(cache_only), Fails(not_in_cache));
    EXPECT_THAT(sut.integer("Direct").get_val(cache_only), Fails(not_in_cache));
    EXPECT_THAT(sut.integer("State").get_val(cache_only), Gives(0));
    // A register keeps what it has just written.
    EXPECT_THAT(sut.integer("Trigger").get_val(cache_only), Gives(1));
}

TEST(Invalidation, CallbacksSeeFreshData) {
    document sut{int_reg("Trigger", 0) + int_reg("A", 4, "<pInvalidator>Trigger</pInvalidator>") +
                 int_reg("B", 8, "<pInvalidator>Trigger</pInvalidator>")};
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
    document sut{"<Integer Name=\"A\"><Value>0</Value></Integer><Integer Name=\"B\"><Value>0</Value></Integer>"};
    sut.doc->find_node("A")->set_on_invalidated([&](INode& node) {
        node.set_on_invalidated({});
        EXPECT_THAT(sut.integer("B").set_val(7, 0), Passes());
    });
    EXPECT_THAT(sut.integer("A").set_val(1, 0), Passes());
    EXPECT_THAT(sut.integer("A").set_val(2, 0), Passes());
    EXPECT_THAT(sut.integer("B").get_val(0), Gives(7));
}

TEST(Invalidation, AFailedWriteIsNoEvent) {
    document sut{int_reg("R", 0)};
    listener heard{sut, {"R"}};
    sut.device.broken = true;
    EXPECT_THAT(sut.integer("R").set_val(1, 0), Refuses(timeout));
    EXPECT_EQ(heard.take(), counts{});
}

TEST(Invalidation, StatesAreDependents) {
    const document sut{"<Integer Name=\"Lock\"><Value>0</Value></Integer>"
                       "<Integer Name=\"N\"><Value>1</Value><pIsLocked>Lock</pIsLocked></Integer>"
                       "<Enumeration Name=\"E\"><EnumEntry Name=\"X\"><Value>1</Value><pIsAvailable>Lock</pIsAvailable>"
                       "</EnumEntry><Value>1</Value></Enumeration>"};
    listener heard{sut, {"N"}};
    int entry_calls = 0;
    sut.node<IEnumeration>("E").get_entries()[0]->set_on_invalidated([&](INode&) { ++entry_calls; });
    EXPECT_THAT(sut.integer("Lock").set_val(1, 0), Passes());
    EXPECT_EQ(heard.take(), (counts{{"N", 1}}));
    EXPECT_EQ(entry_calls, 1);
}

TEST(Invalidation, DependentNodesAreListedBreadthFirst) {
    const document sut{int_reg("R", 0) + "<Integer Name=\"A\"><pValue>R</pValue><pSelected>S</pSelected></Integer>"
                                         "<Integer Name=\"B\"><pValue>R</pValue></Integer>"
                                         "<Integer Name=\"C\"><pValue>A</pValue></Integer>"
                                         "<Integer Name=\"S\"><Value>1</Value><pSelected>A</pSelected></Integer>"};
    std::vector<INode*> nodes;
    sut.doc->find_node("R")->get_dependent_nodes(nodes);
    std::vector<std::string> names;
    for (const INode* node : nodes) names.emplace_back(node->get_name());
    EXPECT_THAT(names, ::testing::ElementsAre("A", "B", "S", "C"));
}

TEST(Events, ReachPortsAndNodes) {
    const auto doc = create_document(
        std::string_view{"<R><Port Name=\"Event\"><EventID>9001</EventID></Port>"
                         "<IntReg Name=\"Stamp\"><Address>2</Address><Length>4</Length><pPort>Event</pPort></IntReg>"
                         "<Integer Name=\"Feature\"><pValue>Stamp</pValue></Integer>"
                         "<Integer Name=\"Node\"><Value>1</Value><EventID>9001</EventID></Integer>"
                         "<Integer Name=\"Below\"><pValue>Node</pValue></Integer>"
                         "<Integer Name=\"Other\"><Value>1</Value><EventID>9002</EventID></Integer></R>"});
    counts heard;
    for (const char* name : {"Stamp", "Feature", "Node", "Below", "Other"})
        doc->find_node(name)->set_on_invalidated([&](INode& node) { ++heard[std::string{node.get_name()}]; });
    std::array<unsigned char, 6> payload{0, 0, 0, 0, 1, 2};
    EXPECT_TRUE(doc->apply_event(0x9001, std::as_bytes(std::span{payload})));
    EXPECT_EQ(heard, (counts{{"Stamp", 1}, {"Feature", 1}, {"Node", 1}, {"Below", 1}}));
    payload[5] = 9; // the port has a copy
    EXPECT_THAT(doc->find<IInteger>("Feature")->get_val(0), Gives(0x0102));
    EXPECT_THAT(doc->find<IInteger>("Feature")->set_val(1, 0), Refuses(access_denied));
    EXPECT_TRUE(doc->apply_event(0x9001, std::as_bytes(std::span{payload})));
    EXPECT_THAT(doc->find<IInteger>("Feature")->get_val(0), Gives(0x0109));
    EXPECT_FALSE(doc->apply_event(0x9999, {}));
}

TEST(Events, ANodeEventDropsTheCacheBelowIt) {
    document sut{int_reg("R", 0) + "<Integer Name=\"N\"><pValue>R</pValue><EventID>A1</EventID></Integer>"};
    EXPECT_THAT(sut.integer("N").get_val(0), Gives(0));
    sut.device.put(0, {5});
    EXPECT_THAT(sut.integer("N").get_val(0), Gives(0));
    EXPECT_TRUE(sut.doc->apply_event(0xA1, {}));
    EXPECT_THAT(sut.integer("N").get_val(0), Gives(5));
}

} // namespace
} // namespace GenICam::testing
