// Documents made to hurt: circles, depth, size. Each must end with a value or an error in bounded time and stack.
#include "script.h"

#include "impl/IEval.h"
#include "impl/eval_scope.h"

#include <memory_resource>

namespace GenICam::testing {
namespace {

// Counts what the documents made in its time take for their nodes and lists.
class counting_memory final : public std::pmr::memory_resource {
public:
    counting_memory() : before(std::pmr::set_default_resource(this)) {}
    ~counting_memory() override { std::pmr::set_default_resource(before); }

    std::size_t bytes = 0;

private:
    void* do_allocate(std::size_t size, std::size_t alignment) override {
        bytes += size;
        return before->allocate(size, alignment);
    }
    void do_deallocate(void* at, std::size_t size, std::size_t alignment) override {
        before->deallocate(at, size, alignment);
    }
    bool do_is_equal(const memory_resource& other) const noexcept override { return this == &other; }

    std::pmr::memory_resource* before;
};

// The text for each number of a range in turn, in which '#' stands for the number and '$' for the next one.
std::string numbered(int from, int end, std::string_view text) {
    std::string out;
    for (int i = from; i < end; ++i) {
        for (const char c : text)
            out += c == '#' ? std::to_string(i) : c == '$' ? std::to_string(i + 1) : std::string{c};
    }
    return out;
}

TEST(Hostile, CirclesAnswerInvalidDocument) {
    for (const char* nodes : {"Float N: pValue M | Float M: pValue N", "Integer N: pValue N, pValueCopy N",
                              "Integer N: pValue N, pMin N, pMax N, pInc N", "Integer N: pIndex N, ValueDefault 1",
                              "Integer I: Value 1 | Integer N: pIndex I, pValueIndexed@1 N, pValueDefault N",
                              // Each variable alone would double the steps at each level.
                              "IntSwissKnife N: pVariable@A N, pVariable@B N, Formula A + B",
                              "Converter N: FormulaFrom FROM, FormulaTo TO, pValue N", "IntReg N: pAddress N, Length 4",
                              "IntReg N: pIndex@pOffset=N N, pLength N", "String N: pValue N", "Boolean N: pValue N",
                              "Enumeration N: EnumEntry@E {Value 1}, pValue M | Integer M: pValue N"}) {
        SCOPED_TRACE(nodes);
        const document sut{nodes};
        INode& node = *sut.doc->find_node("N");
        EXPECT_EQ(value_text(node, 0), "! " + make_error_code(invalid_document).message());
        EXPECT_TRUE(script::write(node, "E", 0));
        read_everything(node);
        EXPECT_EQ(node.get_access_mode(), Access_t::RW);
        node.as_eval();
    }
}

TEST(Hostile, StatesOfItself) {
    document sut{"Integer N: Value 3, pIsAvailable N, pIsImplemented N, pIsLocked N | Integer M: pValue M"
                 " | Command C: pValue M, pCommandValue M"};
    script{sut}.run({"N = 3", "C := run ! invalid_document"});
}

// In each level two sums of both nodes of the next one.
std::string doubling_chain(const std::string& first, const std::string& second, int levels) {
    const std::string sum = "#: pVariable@A " + first + "$, pVariable@B " + second + "$, Formula A+B";
    return numbered(0, levels, " | IntSwissKnife " + first + sum + " | IntSwissKnife " + second + sum);
}

// No circle, but each node reads both of the next level: 2^64 steps if one counted only the depth.
TEST(Hostile, DoublingChainsRunOutOfSteps) {
    document sut{"Integer N64: Value 1 | Integer M64: Value 1" + doubling_chain("N", "M", 64)};
    script{sut}.run({"N0 ! invalid_document", "N56 = 256"});
}

// The same through states, whose errors are swallowed: still bounded, since the steps stay used up.
TEST(Hostile, DoublingStatesEnd) {
    document sut{"Integer N64: Value 1" +
                 numbered(0, 64, " | Integer N#: Value 1, pIsAvailable N$, pIsImplemented N$")};
    script{sut}.run({"N0 = 1"});
}

// Forty registers whose addresses take more steps than there are, and a node that invalidates them all at once: the
// steps of one binding, one write or one event are those of all registers together.
TEST(Hostile, RegistersInvalidatedTogetherShareTheirSteps) {
    document sut{"Reg K24@0: Cachable NoCache | Reg L24@0: Cachable NoCache" + doubling_chain("K", "L", 24) +
                 numbered(0, 40, " | Integer C#: Value 0 | Reg R#@0: pAddress K0, pAddress C#, EventID 1") +
                 " | Integer N: pValue C0" + numbered(0, 40, ", pValueCopy C#")};
    const auto reads_of = [&](auto&& access) {
        sut.device.reads = 0;
        access();
        EXPECT_GT(sut.device.reads, 1000); // the addresses were asked for
        return sut.device.reads;
    };
    constexpr int bound = impl::eval_scope::maximum_pass_steps;
    auto& port = sut.node<IPort>("Device");
    port.unbind(0);
    EXPECT_LT(reads_of([&] { EXPECT_THAT(port.bind(&sut.device, bind_flags::invalidate), Passes()); }), bound);
    EXPECT_LT(reads_of([&] { EXPECT_THAT(sut.integer("N").set_val(1, 0), Passes()); }), bound);
    EXPECT_LT(reads_of([&] { EXPECT_TRUE(sut.doc->apply_event(1, {})); }), bound);
}

// A value with many copies and many users: each copy invalidates all users, so a short document makes as many lists as
// it has copies, each as long as it has users. What is read afterwards is fresh, also where the lists were given up.
TEST(Hostile, ManyCopiesOfAValueWithManyUsersEnd) {
    constexpr int count = 5000;
    counting_memory memory;
    const std::string last = ", pInvalidator C" + std::to_string(count - 1);
    document sut{"Integer N: pValue C0" + numbered(0, count, ", pValueCopy C#") +
                 numbered(0, count, " | Integer C#: Value 0 | Integer U#: pValue N") +
                 " | Reg R@0: Cachable WriteThrough" + last + " | StringReg Text: Address 0, Length 4" + last};
    int calls = 0;
    sut.doc->find_node("U7")->set_on_invalidated([&](INode&) { ++calls; });
    script{sut}.run({"[0] := 61", "R = 0x61", "Text = a"});
    const std::size_t before = memory.bytes;
    script{sut}.run({"[0] := 62", "N := 1", "C" + std::to_string(count - 1) + " = 1", "R = 0x62", "Text = b"});
    EXPECT_GT(calls, 100);
    EXPECT_LE(calls, static_cast<int>(16 * impl::eval_scope::maximum_pass_steps / count));
    EXPECT_LT(memory.bytes - before, std::size_t{64} << 20);
}

// Dropping all caches at once has as many parts as the document has ports: these count as well.
TEST(Hostile, ManyCopiesWithManyPortsEnd) {
    document sut{"Integer N: pValue C0" + numbered(0, 5000, ", pValueCopy C#") +
                 numbered(0, 5000, " | Integer C#: Value 0 | Integer U#: pValue N | Port P#")};
    script{sut}.run({"N := 1 ! invalid_document", "C0 = 1", "C0 := 2", "N = 2"});
}

// Nodes of one event that stand on one value: each would have a list of all.
TEST(Hostile, NodesOfOneEventShareTheirList) {
    constexpr int count = 5000;
    counting_memory memory;
    const document sut{"Integer X: Value 0" + numbered(0, count, " | Integer U#: pValue X, EventID 1")};
    int calls = 0;
    sut.doc->for_each_node([&](INode* node) { node->set_on_invalidated([&](INode&) { ++calls; }); });
    const std::size_t before = memory.bytes;
    EXPECT_TRUE(sut.doc->apply_event(1, {}));
    EXPECT_EQ(calls, count + 1) << "each once";
    EXPECT_LT(memory.bytes - before, 100 * count * sizeof(void*));
}

// A large but sound document: the addresses of all its registers take more steps than one value may, and nothing but
// what has changed leaves the caches.
TEST(Hostile, AllRegistersOfALargeDocumentAreInvalidatedAtOnce) {
    document sut{"Integer All: Value 0 | Integer Sel: Value 1 | Integer Twice: pValue Sel | Reg Other@0" +
                 numbered(0, 60'000, " | Reg R#@16: pIndex@Offset=4 Twice, pInvalidator All")};
    log_capture log;
    script{sut}.run({"Other = 0", "R7 = 0", "All := 1", "reads = 2", "[20] := 05", "Other = 0", "reads = 0", "R7 = 5"});
    EXPECT_TRUE(log.lines.empty());
}

// N0 stands on nothing, N1 on N0 and so on.
std::string pvalue_chain(int length) { return "Integer N0: Value 5" + numbered(0, length, " | Integer N$: pValue N#"); }

TEST(Hostile, DeepButSoundChainsWork) {
    constexpr int depth = static_cast<int>(impl::eval_scope::maximum_depth) / 2;
    document sut{pvalue_chain(depth)};
    const std::string last = "N" + std::to_string(depth);
    script{sut}.run({last + " = 5", last + " := 6", "N0 = 6"});
}

// Invalidation walks the whole chain without a stack.
TEST(Hostile, VeryLongChainsEnd) {
    document sut{pvalue_chain(20'000)};
    int calls = 0;
    sut.doc->find_node("N20000")->set_on_invalidated([&](INode&) { ++calls; });
    script{sut}.run({"N20000 ! invalid_document", "N0 := 6"});
    EXPECT_EQ(calls, 1);
}

TEST(Hostile, SelectorAndInvalidatorCirclesEnd) {
    const document sut{"Integer A: Value 0, pSelected B, pInvalidator B, pSelected A"
                       " | Integer B: Value 0, pSelected A, pInvalidator A, EventID 1"};
    std::map<std::string, int> calls;
    for (const char* name : {"A", "B"})
        sut.doc->find_node(name)->set_on_invalidated([&, name](INode&) { ++calls[name]; });
    EXPECT_THAT(sut.integer("A").set_val(1, 0), Passes());
    EXPECT_TRUE(sut.doc->apply_event(1, {}));
    EXPECT_EQ(calls, (std::map<std::string, int>{{"A", 2}, {"B", 2}}));
}

TEST(Hostile, DeepNesting) {
    constexpr int depth = 10'000;
    for (const std::string element : {"Group", "x", "StructReg", "Category"}) {
        const auto doc = create_document("<R>" + numbered(0, depth, "<" + element + ">") +
                                         "<Integer Name=\"I\"><Value>1</Value></Integer>" +
                                         numbered(0, depth, "</" + element + ">") + "</R>");
        ASSERT_NE(doc, nullptr);
        const bool walked = element == "Group" || element == "StructReg";
        EXPECT_EQ(doc->find_node("I") != nullptr, walked) << element;
    }
    EXPECT_EQ(create_document(numbered(0, depth, "<Group>")), nullptr);
}

TEST(Hostile, BadItemsOfASetAreToldOfInBounds) {
    log_capture log;
    const document sut{"Integer N: Value 1, ValidValueSet " + numbered(0, 1000, "x;") + "5"};
    EXPECT_LT(log.lines.size(), 40u);
    EXPECT_THAT(log.lines.back(), ::testing::HasSubstr("968 more")); // of 2001 bytes, 32 times in 64 KiB
    EXPECT_THAT(sut.integer("N").get_valid_value_set(0), Gives(std::vector<int64_t>{5}));
}

TEST(Hostile, EntitiesAreNotExpanded) {
    const auto doc = create_document(std::string_view{
        "<!DOCTYPE r [<!ENTITY a \"xxxxxxxxxx\"><!ENTITY b \"&a;&a;&a;&a;\"><!ENTITY c \"&b;&b;&b;&b;\">"
        "<!ENTITY f SYSTEM \"file:///etc/passwd\">]>"
        "<r><String Name=\"S\"><Value>&c;&f;</Value></String></r>"});
    ASSERT_NE(doc, nullptr);
    EXPECT_THAT(doc->find<IString>("S")->get_val(0), Gives("&c;&f;"));
}

// E0 to the last, each twice as long as the one before.
std::string doubling_expressions(int last) { return "Expression@E0 1" + numbered(0, last, ", Expression@E$ E#+E#"); }

TEST(Hostile, DoublingExpressionsStayWithinMemory) {
    document sut{numbered(0, 50, "IntSwissKnife K#: " + doubling_expressions(59) + ", Formula E59 | ")};
    script{sut}.run({"K0 ! not_implemented"});
}

// A line that names a long expression again costs as much as one that states it: a document has so many tokens in all.
TEST(Hostile, ExpressionsOfADocumentShareABudget) {
    document sut{"IntSwissKnife First: Formula 1 + 1 | IntSwissKnife K: " + doubling_expressions(12) +
                 numbered(0, 2000, ", Expression@X# E12") + ", Formula X0 | IntSwissKnife Last: Formula 1 + 1"};
    script{sut}.run({"First = 2", "K ! not_implemented", "Last ! not_implemented"});
    EXPECT_THAT(sut.doc->find_node("Last")->get_fault(), ::testing::HasSubstr("Failed to add token to output."));
}

// One step each, formulas would cost a thousand times what registers do.
TEST(Hostile, FormulasTakeStepsByTheirLength) {
    document sut{numbered(0, 40, "IntSwissKnife K#: " + doubling_expressions(12) + ", Formula E12 | ") +
                 "IntSwissKnife Two: pVariable@A K0, pVariable@B K1, Formula A + B | IntSwissKnife All: Formula 0" +
                 numbered(0, 26, "+V#") + numbered(0, 40, ", pVariable@V# K#")};
    script{sut}.run({"K0 = 4096", "Two = 8192", "All ! invalid_document"});
}

// As many names in one node as fit into a document of a few megabytes: whoever looks for each among all takes minutes.
TEST(Hostile, NamesOfOneNodeAreFoundAtOnce) {
    constexpr int names = 100'000;
    document sut{numbered(0, names, "<Integer Name='N#'><Value>1</Value><pInvalidator>I</pInvalidator></Integer>") +
                 "<Integer Name='I'><Value>1</Value>" + numbered(0, names, "<pSelected>N#</pSelected>") +
                 "</Integer><IntSwissKnife Name='K'>" +
                 numbered(0, names, "<Constant Name='C#'>#</Constant><pVariable Name='V#'>N#</pVariable>") +
                 "<Formula>C7 + V9</Formula></IntSwissKnife>"};
    script{sut}.run({"K = 8", "N9 := 5", "K = 12"});
    EXPECT_EQ(sut.doc->find_node("I")->as_eval()->get_invalidates().size(), std::size_t{names}) << "each once";
}

// A list that ends early is none: its last values would be refused as not in it.
TEST(Hostile, AListOfValuesIsWholeOrAnError) {
    document sut{"Integer Set: Value 1, ValidValueSet 0" + numbered(1, 5000, ";#") +
                 " | IntConverter C: FormulaTo TO - 20, FormulaFrom FROM" + numbered(0, 20, " + 1") + ", pValue Set"};
    EXPECT_THAT(sut.integer("C").get_valid_value_set(0), Fails(invalid_document));
    script{sut}.run({"C := 5019 ! invalid_document", "C = 21"});
}

// Each value looks through the whole table, each variable finds its entry in one enumeration.
TEST(Hostile, LargeTablesAndEnumerationsEnd) {
    constexpr int count = 40'000;
    document sut{"<Integer Name='I'><Value>39999</Value></Integer>" +
                 numbered(0, 100, "<Integer Name='T#'><pValue>T</pValue></Integer>") + // many times the table
                 "<Integer Name='T'><pIndex>I</pIndex>" +
                 numbered(0, count, "<ValueIndexed Index='#'>#</ValueIndexed>") +
                 "<ValueDefault>0</ValueDefault></Integer><Enumeration Name='E'><Value>0</Value>" +
                 numbered(0, count, "<EnumEntry Name='X#'><Value>#</Value></EnumEntry>") +
                 "<EnumEntry Name='X7'><Value>-1</Value></EnumEntry></Enumeration><IntSwissKnife Name='K'>" +
                 numbered(0, count, "<pVariable Name='E.Entry.X#'>E</pVariable>") +
                 "<Formula>E.Entry.X7 + E.Entry.X39999</Formula></IntSwissKnife><IntSwissKnife Name='Sum'>" +
                 numbered(0, 100, "<pVariable Name='V#'>T#</pVariable>") + "<Formula>0" + numbered(0, 100, "+V#") +
                 "</Formula></IntSwissKnife>"};
    script{sut}.run({"T = 39999", "K = 40006", "Sum ! invalid_document"});
    EXPECT_EQ(sut.node<IEnumeration>("E").find_entry_by_name("X7")->get_value(), 7) << "the first";
    EXPECT_EQ(sut.node<IEnumeration>("E").find_entry_by_name("X"), nullptr);
}

// A set is copied at each node that takes it over, an entry looked for at each copy of a value.
TEST(Hostile, LargeSetsAndManyCopiesOfEnumerationsEnd) {
    document sut{"Integer I0: Value 1, ValidValueSet 1" + numbered(0, 40'000, ";2") +
                 numbered(0, 60, " | Integer I$: pValue I#") + " | Enumeration E: Value 0" +
                 numbered(0, 40'000, ", EnumEntry@e# {Value #}") + " | Integer N: pValue E, Min 0, Max 99999" +
                 numbered(0, 100, ", pValueCopy E")};
    script{sut}.run({"I60 := 2 ! invalid_document", "I0 = 1", "I1 := 2", "I0 = 2", "I1 := 3 ! not_in_value_set",
                     "N := 39999 ! invalid_document", "E := e7", "N = 7"});
}

// Each entry takes over what its structure states: in this much text more than fits into memory.
TEST(Hostile, EntriesOfAStructureInheritWithinBounds) {
    constexpr int count = 10'000;
    for (const std::string link : {"<pInvalidator>I</pInvalidator>", "<pAddress>I</pAddress>"}) {
        const auto doc = create_document(
            "<R><Port Name='Device'/><Integer Name='I'><Value>0</Value></Integer><StructReg><pPort>Device</pPort>"
            "<Address>0</Address><Length>4</Length>" +
            numbered(0, count, link) + numbered(0, count, "<StructEntry Name='E#'><Bit>0</Bit></StructEntry>") +
            "</StructReg></R>");
        ASSERT_NE(doc, nullptr);
        std::array<std::byte, 4> memory{std::byte{0x80}};
        EXPECT_THAT(doc->find<IPort>("Device")->bind(std::span{memory}, 0), Passes());
        EXPECT_THAT(doc->find<IInteger>("E0")->get_val(0), Gives(1)) << link;
        auto* const last = doc->find<IInteger>("E" + std::to_string(count - 1));
        EXPECT_THAT(last->get_val(0), Fails(invalid_document)) << link;
        EXPECT_THAT(last->set_val(1, 0), Refuses(invalid_document)) << link;
        EXPECT_THAT(last->get_fault(), ::testing::HasSubstr("too many entries")) << link;
        read_everything(*last);
    }
}

// Everything hangs together: lists made up front for every node would take the square of the document.
TEST(Hostile, DenseGraphsLoadAndWrite) {
    document sut{"Integer Hub: Value 0" + numbered(0, 10'000, ", pSelected N#") +
                 numbered(0, 10'000, " | Integer N#: Value 0, pIsLocked Hub | Integer P#: pValue N#, pSelected Hub")};
    script{sut}.run({"Hub := 1", "N7 := 1"});
}

} // namespace
} // namespace GenICam::testing
