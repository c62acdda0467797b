// Documents made to hurt: circles, depth, size. Each must end with a value or an error in bounded time and stack.
#include "support.h"

#include "impl/eval_scope.h"

namespace GenICam::testing {
namespace {

struct circle_case {
    const char* name;
    const char* nodes; // the node asked is N
};

class Circle : public ::testing::TestWithParam<circle_case> {};

TEST_P(Circle, AnswersInvalidDocument) {
    const document sut{GetParam().nodes};
    INode* node = sut.doc->find_node("N");
    ASSERT_NE(node, nullptr);
    if (auto* integer = node_cast<IInteger>(node)) {
        EXPECT_THAT(integer->get_val(0), Fails(invalid_document));
        EXPECT_TRUE(integer->set_val(1, 0));
        (void)integer->get_min(0);
        (void)integer->get_max(0);
        (void)integer->get_inc(0);
        (void)integer->get_valid_value_set(0);
        (void)integer->get_unit();
        (void)integer->get_inc_mode();
        (void)integer->get_representation();
    } else if (auto* real = node_cast<IFloat>(node)) {
        EXPECT_THAT(real->get_val(0), Fails(invalid_document));
        EXPECT_TRUE(real->set_val(1, 0));
        (void)real->get_min(0);
        (void)real->get_inc(0);
        (void)real->get_valid_value_set(0);
        (void)real->get_display_notation();
        (void)real->get_display_precision();
    } else if (auto* text = node_cast<IString>(node)) {
        EXPECT_THAT(text->get_val(0), Fails(invalid_document));
        EXPECT_THAT(text->set_val("", 0), Refuses(invalid_document));
        EXPECT_THAT(text->get_max_length(0), Fails(invalid_document));
    } else if (auto* boolean = node_cast<IBoolean>(node)) {
        EXPECT_THAT(boolean->get_val(0), Fails(invalid_document));
        EXPECT_THAT(boolean->set_val(true, 0), Refuses(invalid_document));
    } else if (auto* enumeration = node_cast<IEnumeration>(node)) {
        EXPECT_THAT(enumeration->get_val(0), Fails(invalid_document));
        EXPECT_THAT(enumeration->set_selected_entry(enumeration->get_entries()[0], 0), Refuses(invalid_document));
    }
    EXPECT_EQ(node->get_access_mode(), Access_t::RW);
    std::vector<INode*> dependents;
    node->get_dependent_nodes(dependents);
    node->as_eval();
}

INSTANTIATE_TEST_SUITE_P(
    All, Circle,
    ::testing::Values(
        circle_case{"IntegerToItself", "<Integer Name=\"N\"><pValue>N</pValue></Integer>"},
        circle_case{"FloatPair",
                    "<Float Name=\"N\"><pValue>M</pValue></Float><Float Name=\"M\"><pValue>N</pValue></Float>"},
        circle_case{"Copies", "<Integer Name=\"N\"><pValue>N</pValue><pValueCopy>N</pValueCopy></Integer>"},
        circle_case{"Limits", "<Integer Name=\"N\"><pValue>N</pValue><pMin>N</pMin><pMax>N</pMax><pInc>N</pInc>"
                              "</Integer>"},
        circle_case{"Index", "<Integer Name=\"N\"><pIndex>N</pIndex><ValueDefault>1</ValueDefault></Integer>"},
        circle_case{"IndexedValue", "<Integer Name=\"I\"><Value>1</Value></Integer><Integer Name=\"N\">"
                                    "<pIndex>I</pIndex><pValueIndexed Index=\"1\">N</pValueIndexed>"
                                    "<pValueDefault>N</pValueDefault></Integer>"},
        // Each variable alone would double the steps at each level.
        circle_case{"Formula", "<IntSwissKnife Name=\"N\"><pVariable Name=\"A\">N</pVariable><pVariable Name=\"B\">N"
                               "</pVariable><Formula>A + B</Formula></IntSwissKnife>"},
        circle_case{"Converter", "<Converter Name=\"N\"><FormulaFrom>FROM</FormulaFrom><FormulaTo>TO</FormulaTo>"
                                 "<pValue>N</pValue></Converter>"},
        circle_case{"Address", "<IntReg Name=\"N\"><pAddress>N</pAddress><Length>4</Length><pPort>Device</pPort>"
                               "</IntReg>"},
        circle_case{"AddressIndex", "<IntReg Name=\"N\"><pIndex pOffset=\"N\">N</pIndex><pLength>N</pLength>"
                                    "<pPort>Device</pPort></IntReg>"},
        circle_case{"String", "<String Name=\"N\"><pValue>N</pValue></String>"},
        circle_case{"Boolean", "<Boolean Name=\"N\"><pValue>N</pValue></Boolean>"},
        circle_case{"Enumeration",
                    "<Enumeration Name=\"N\"><EnumEntry Name=\"E\"><Value>1</Value></EnumEntry><pValue>M</pValue>"
                    "</Enumeration><Integer Name=\"M\"><pValue>N</pValue></Integer>"}),
    case_name{});

TEST(Hostile, AvailabilityOfItself) {
    const document sut{"<Integer Name=\"N\"><Value>3</Value><pIsAvailable>N</pIsAvailable>"
                       "<pIsImplemented>N</pIsImplemented><pIsLocked>N</pIsLocked></Integer>"
                       "<Command Name=\"C\"><pValue>M</pValue><pCommandValue>M</pCommandValue></Command>"
                       "<Integer Name=\"M\"><pValue>M</pValue></Integer>"};
    EXPECT_THAT(sut.integer("N").get_val(0), Gives(3));
    EXPECT_TRUE(sut.node<ICommand>("C").execute(0));
}

// No circle, but each node reads both of the next level: 2^64 steps if one counted only the depth.
TEST(Hostile, DoublingChainsRunOutOfSteps) {
    std::string nodes =
        "<Integer Name=\"N64\"><Value>1</Value></Integer><Integer Name=\"M64\"><Value>1</Value></Integer>";
    for (int i = 0; i < 64; ++i) {
        for (const std::string row : {"N", "M"}) {
            nodes += "<IntSwissKnife Name=\"" + row + std::to_string(i) + "\"><pVariable Name=\"A\">N" +
                     std::to_string(i + 1) + "</pVariable><pVariable Name=\"B\">M" + std::to_string(i + 1) +
                     "</pVariable><Formula>A+B</Formula></IntSwissKnife>";
        }
    }
    const document sut{nodes};
    EXPECT_THAT(sut.integer("N0").get_val(0), Fails(invalid_document));
    EXPECT_THAT(sut.integer("N56").get_val(0), Gives(256));
}

// The same through states, whose errors are swallowed: still bounded, since the steps stay used up.
TEST(Hostile, DoublingStatesEnd) {
    std::string nodes = "<Integer Name=\"N64\"><Value>1</Value></Integer>";
    for (int i = 0; i < 64; ++i) {
        const std::string next = "N" + std::to_string(i + 1);
        nodes += "<Integer Name=\"N" + std::to_string(i) + "\"><Value>1</Value><pIsAvailable>" + next +
                 "</pIsAvailable><pIsImplemented>" + next + "</pIsImplemented></Integer>";
    }
    const document sut{nodes};
    EXPECT_THAT(sut.integer("N0").get_val(0), Gives(1));
}

// Forty registers whose addresses take more steps than there are, and a node that invalidates them all at once: the
// steps of one binding, one write or one event are those of all registers together.
TEST(Hostile, RegistersInvalidatedTogetherShareTheirSteps) {
    std::string nodes = int_reg("K24", 0, "<Cachable>NoCache</Cachable>") +
                        int_reg("L24", 0, "<Cachable>NoCache</Cachable>") + "<Integer Name=\"N\"><pValue>C0</pValue>";
    for (int i = 0; i < 40; ++i) nodes += "<pValueCopy>C" + std::to_string(i) + "</pValueCopy>";
    nodes += "</Integer>";
    for (int i = 0; i < 40; ++i) {
        const std::string number = std::to_string(i);
        nodes +=
            "<Integer Name=\"C" + number + "\"><Value>0</Value></Integer>" +
            int_reg("R" + number, 0, "<pAddress>K0</pAddress><pAddress>C" + number + "</pAddress><EventID>1</EventID>");
    }
    for (int i = 0; i < 24; ++i) {
        for (const std::string row : {"K", "L"}) {
            const std::string next = std::to_string(i + 1);
            nodes += "<IntSwissKnife Name=\"" + row + std::to_string(i) + "\"><pVariable Name=\"A\">K" + next +
                     "</pVariable><pVariable Name=\"B\">L" + next +
                     "</pVariable><Formula>A+B</Formula></IntSwissKnife>";
        }
    }
    document sut{nodes};
    const auto reads_of = [&](auto&& access) {
        sut.device.reads = 0;
        access();
        EXPECT_GT(sut.device.reads, 1000); // the addresses were asked for
        return sut.device.reads;
    };
    constexpr int bound = impl::eval_scope::maximum_steps;
    auto& port = sut.node<IPort>("Device");
    port.unbind(0);
    EXPECT_LT(reads_of([&] { EXPECT_THAT(port.bind(&sut.device, bind_flags::invalidate), Passes()); }), bound);
    EXPECT_LT(reads_of([&] { EXPECT_THAT(sut.integer("N").set_val(1, 0), Passes()); }), bound);
    EXPECT_LT(reads_of([&] { EXPECT_TRUE(sut.doc->apply_event(1, {})); }), bound);
}

// Where a text lies cannot be told once the steps are used up: then nothing that it may overlap stays cached.
TEST(Hostile, ATextWhoseAddressCannotBeToldDropsAll) {
    document sut{"<Integer Name=\"At\"><Value>0</Value></Integer>" +
                 int_reg("Where", 16, "<Cachable>NoCache</Cachable>") + int_reg("Value", 0) +
                 "<StringReg Name=\"Text\"><pAddress>Where</pAddress><Length>4</Length><pPort>Device</pPort>"
                 "<pInvalidator>At</pInvalidator></StringReg>"};
    sut.device.put(0, {1});
    EXPECT_THAT(sut.integer("Value").get_val(0), Gives(1));
    sut.device.put(0, {2});
    sut.device.broken = true;
    EXPECT_THAT(sut.integer("At").set_val(1, 0), Passes());
    sut.device.broken = false;
    EXPECT_THAT(sut.integer("Value").get_val(0), Gives(2));
}

TEST(Hostile, DeepButSoundChainsWork) {
    constexpr int depth = static_cast<int>(impl::eval_scope::maximum_depth) / 2;
    std::string nodes = "<Integer Name=\"N0\"><Value>5</Value></Integer>";
    for (int i = 1; i <= depth; ++i)
        nodes +=
            "<Integer Name=\"N" + std::to_string(i) + "\"><pValue>N" + std::to_string(i - 1) + "</pValue></Integer>";
    const document sut{nodes};
    EXPECT_THAT(sut.integer("N" + std::to_string(depth)).get_val(0), Gives(5));
    EXPECT_THAT(sut.integer("N" + std::to_string(depth)).set_val(6, 0), Passes());
    EXPECT_THAT(sut.integer("N0").get_val(0), Gives(6));
}

TEST(Hostile, VeryLongChainsEnd) {
    std::string nodes;
    for (int i = 1; i <= 20'000; ++i)
        nodes +=
            "<Integer Name=\"N" + std::to_string(i) + "\"><pValue>N" + std::to_string(i - 1) + "</pValue></Integer>";
    const document sut{nodes + "<Integer Name=\"N0\"><Value>5</Value></Integer>"};
    EXPECT_THAT(sut.integer("N20000").get_val(0), Fails(invalid_document));
    // Invalidation walks the whole chain without a stack.
    int calls = 0;
    sut.doc->find_node("N20000")->set_on_invalidated([&](INode&) { ++calls; });
    EXPECT_THAT(sut.integer("N0").set_val(6, 0), Passes());
    EXPECT_EQ(calls, 1);
}

TEST(Hostile, SelectorAndInvalidatorCirclesEnd) {
    const document sut{"<Integer Name=\"A\"><Value>0</Value><pSelected>B</pSelected><pInvalidator>B</pInvalidator>"
                       "<pSelected>A</pSelected></Integer>"
                       "<Integer Name=\"B\"><Value>0</Value><pSelected>A</pSelected><pInvalidator>A</pInvalidator>"
                       "<EventID>1</EventID></Integer>"};
    std::map<std::string, int> calls;
    for (const char* name : {"A", "B"})
        sut.doc->find_node(name)->set_on_invalidated([&](INode& node) { ++calls[std::string{node.get_name()}]; });
    EXPECT_THAT(sut.integer("A").set_val(1, 0), Passes());
    EXPECT_TRUE(sut.doc->apply_event(1, {}));
    EXPECT_EQ(calls, (std::map<std::string, int>{{"A", 2}, {"B", 2}}));
}

TEST(Hostile, DeepNesting) {
    constexpr int depth = 10'000;
    for (const std::string element : {"Group", "x", "StructReg", "Category"}) {
        std::string text = "<R>";
        for (int i = 0; i < depth; ++i) text += "<" + element + ">";
        text += "<Integer Name=\"I\"><Value>1</Value></Integer>";
        for (int i = 0; i < depth; ++i) text += "</" + element + ">";
        const auto doc = create_document(text + "</R>");
        ASSERT_NE(doc, nullptr);
        const bool walked = element == "Group" || element == "StructReg";
        EXPECT_EQ(doc->find_node("I") != nullptr, walked) << element;
    }
    std::string unclosed;
    for (int i = 0; i < depth; ++i) unclosed += "<Group>";
    EXPECT_EQ(create_document(unclosed), nullptr);
}

TEST(Hostile, LongNumbersAreBadText) {
    const std::string digits(1'000'000, '9');
    log_capture log;
    const document sut{"<Integer Name=\"I\"><Value>" + digits + "</Value></Integer><Float Name=\"F\"><Value>" + digits +
                       "</Value></Float><IntReg Name=\"R\"><Address>" + digits + "</Address><Length>" + digits +
                       "</Length><pPort>Device</pPort></IntReg>"};
    EXPECT_EQ(log.lines.size(), 4u);
    EXPECT_THAT(sut.integer("I").get_val(0), Gives(0));
    EXPECT_THAT(sut.real("F").get_val(0), Gives(0));
    EXPECT_THAT(sut.integer("R").get_val(0), Gives(0));
}

TEST(Hostile, EntitiesAreNotExpanded) {
    const auto doc = create_document(std::string_view{
        "<!DOCTYPE r [<!ENTITY a \"xxxxxxxxxx\"><!ENTITY b \"&a;&a;&a;&a;\"><!ENTITY c \"&b;&b;&b;&b;\">"
        "<!ENTITY f SYSTEM \"file:///etc/passwd\">]>"
        "<r><String Name=\"S\"><Value>&c;&f;</Value></String></r>"});
    ASSERT_NE(doc, nullptr);
    EXPECT_THAT(doc->find<IString>("S")->get_val(0), Gives("&c;&f;"));
}

TEST(Hostile, DoublingExpressionsStayWithinMemory) {
    std::string nodes;
    for (int k = 0; k < 50; ++k) {
        nodes += "<IntSwissKnife Name=\"K" + std::to_string(k) + "\"><Expression Name=\"E0\">1</Expression>";
        for (int i = 1; i < 60; ++i)
            nodes += "<Expression Name=\"E" + std::to_string(i) + "\">E" + std::to_string(i - 1) + "+E" +
                     std::to_string(i - 1) + "</Expression>";
        nodes += "<Formula>E59</Formula></IntSwissKnife>";
    }
    const document sut{nodes};
    EXPECT_THAT(sut.integer("K0").get_val(0), Fails(not_implemented));
}

// Everything hangs together: lists made up front for every node would take the square of the document.
TEST(Hostile, DenseGraphsLoadAndWrite) {
    constexpr int count = 10'000;
    std::string nodes = "<Integer Name=\"Hub\"><Value>0</Value>";
    for (int i = 0; i < count; ++i) nodes += "<pSelected>N" + std::to_string(i) + "</pSelected>";
    nodes += "</Integer>";
    for (int i = 0; i < count; ++i)
        nodes += "<Integer Name=\"N" + std::to_string(i) +
                 "\"><Value>0</Value><pIsLocked>Hub</pIsLocked></Integer>"
                 "<Integer Name=\"P" +
                 std::to_string(i) + "\"><pValue>N" + std::to_string(i) +
                 "</pValue><pSelected>Hub</pSelected></Integer>";
    const document sut{nodes};
    EXPECT_THAT(sut.integer("Hub").set_val(1, 0), Passes());
    EXPECT_THAT(sut.integer("N7").set_val(1, 0), Passes());
}

TEST(Hostile, EveryTruncationOfADocumentEnds) {
    const std::string text =
        "<?xml version=\"1.0\"?><R><Group><Integer Name=\"A\"><pValue>B</pValue><pSelected>C</pSelected></Integer>"
        "<IntReg Name=\"B\"><Address>0</Address><pIndex Offset=\"4\">C</pIndex><Length>4</Length><pPort>P</pPort>"
        "</IntReg><Integer Name=\"C\"><Value>1</Value></Integer><IntSwissKnife Name=\"K\"><pVariable Name=\"V\">A"
        "</pVariable><Formula>V*2</Formula></IntSwissKnife></Group><Port Name=\"P\"/></R>";
    int loaded = 0;
    for (std::size_t cut = 0; cut <= text.size(); ++cut) {
        const auto doc = create_document(std::string_view{text}.substr(0, cut));
        if (doc == nullptr) continue;
        ++loaded;
        doc->for_each_node([](INode* node) {
            if (auto* integer = node_cast<IInteger>(node)) (void)integer->get_val(0);
        });
    }
    EXPECT_EQ(loaded, 1);
}

} // namespace
} // namespace GenICam::testing
