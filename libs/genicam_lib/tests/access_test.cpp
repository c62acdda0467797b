// Who may read and write when.
#include "support.h"

namespace GenICam::testing {
namespace {

constexpr const char* switches = "<Integer Name=\"Yes\"><Value>1</Value></Integer>"
                                 "<Integer Name=\"No\"><Value>0</Value></Integer>";

struct access_case {
    const char* name;
    const char* children;
    unsigned flags;
    genicam_errc read;
    genicam_errc write;
};

class Access : public ::testing::TestWithParam<access_case> {};

TEST_P(Access, IsCheckedInOrder) {
    const auto& p = GetParam();
    const document sut{std::string{switches} + "<Float Name=\"N\"><Value>1</Value>" + p.children + "</Float>" +
                       "<SwissKnife Name=\"Broken\"><Formula>1/0</Formula></SwissKnife>" +
                       "<IntReg Name=\"Gone\"><Address>0</Address><Length>9</Length><pPort>Device</pPort></IntReg>"};
    const auto value = sut.real("N").get_val(p.flags);
    EXPECT_EQ(value ? 0 : value.error().value(), static_cast<int>(p.read));
    EXPECT_EQ(sut.real("N").set_val(2, p.flags).value(), static_cast<int>(p.write));
}

// A float without RO, so that the class is the same in all rows; WO and RO are imposed.
INSTANTIATE_TEST_SUITE_P(
    All, Access,
    ::testing::Values(
        access_case{"Plain", "", 0, success, success},
        access_case{"NotImplemented", "<pIsImplemented>No</pIsImplemented>", 0, node_not_implemented,
                    node_not_implemented},
        access_case{"NotAvailable", "<pIsAvailable>No</pIsAvailable>", 0, node_not_available, node_not_available},
        access_case{"ImplementedComesFirst", "<pIsImplemented>No</pIsImplemented><pIsAvailable>No</pIsAvailable>", 0,
                    node_not_implemented, node_not_implemented},
        access_case{"CheckSkipped", "<pIsImplemented>No</pIsImplemented><pIsAvailable>No</pIsAvailable>",
                    no_access_check, success, success},
        access_case{"EvaluationFails", "<pIsImplemented>Gone</pIsImplemented><pIsAvailable>Gone</pIsAvailable>", 0,
                    success, success},
        access_case{"WriteOnly", "<ImposedAccessMode>WO</ImposedAccessMode>", 0, access_denied, success},
        access_case{"WriteOnlyUnchecked", "<ImposedAccessMode>WO</ImposedAccessMode>", no_access_check, success,
                    success},
        // RW is settled before the lock is looked at.
        access_case{"LockedButRW", "<pIsLocked>Yes</pIsLocked>", 0, success, success},
        access_case{"LockedAndWO", "<pIsLocked>Yes</pIsLocked><ImposedAccessMode>WO</ImposedAccessMode>", 0,
                    access_denied, node_locked},
        access_case{"LockIgnored", "<pIsLocked>Yes</pIsLocked><ImposedAccessMode>WO</ImposedAccessMode>", ignore_lock,
                    access_denied, success},
        access_case{"Unlocked", "<pIsLocked>No</pIsLocked><ImposedAccessMode>WO</ImposedAccessMode>", 0, access_denied,
                    success},
        access_case{"LockFails", "<pIsLocked>Gone</pIsLocked><ImposedAccessMode>WO</ImposedAccessMode>", 0,
                    access_denied, success}),
    case_name{});

// Locked and RO: the lock answers, not the mode.
TEST(AccessMode, LockOfAReadOnlyNodeAnswersFirst) {
    const document sut{std::string{switches} + "<Integer Name=\"N\"><pValue>V</pValue><pIsLocked>Yes</pIsLocked>"
                                               "<ImposedAccessMode>RO</ImposedAccessMode></Integer>"
                                               "<Integer Name=\"V\"><Value>1</Value></Integer>"};
    EXPECT_THAT(sut.integer("N").set_val(2, 0), Refuses(node_locked));
    EXPECT_THAT(sut.integer("N").set_val(2, ignore_lock), Refuses(access_denied));
    EXPECT_THAT(sut.integer("N").set_val(2, no_access_check), Passes());
    EXPECT_THAT(sut.integer("N").get_val(0), Gives(2));
    EXPECT_TRUE(sut.integer("N").is_locked());
    EXPECT_EQ(sut.integer("N").get_is_locked_node(), sut.doc->find_node("Yes"));
}

TEST(AccessMode, ImposedWinsThenTheSourceThenRW) {
    const document sut{int_reg("Reg", 0, "<AccessMode>RO</AccessMode>") + int_reg("Free", 4) +
                       "<Integer Name=\"P\"><pValue>Reg</pValue></Integer>"
                       "<Integer Name=\"PP\"><pValue>P</pValue></Integer>"
                       "<Integer Name=\"Imposed\"><pValue>P</pValue><ImposedAccessMode>RW</ImposedAccessMode></Integer>"
                       "<IntConverter Name=\"C\"><FormulaFrom>FROM</FormulaFrom><FormulaTo>TO</FormulaTo>"
                       "<pValue>Reg</pValue></IntConverter>"
                       "<IntSwissKnife Name=\"K\"><pVariable Name=\"R\">Reg</pVariable><Formula>R</Formula>"
                       "</IntSwissKnife>"
                       "<Integer Name=\"Sel\"><Value>0</Value></Integer>"
                       "<Integer Name=\"X\"><pIndex>Sel</pIndex><pValueIndexed Index=\"1\">Reg</pValueIndexed>"
                       "<pValueDefault>Free</pValueDefault></Integer>"};
    const auto mode = [&](const char* name) { return sut.doc->find_node(name)->get_access_mode(); };
    EXPECT_EQ(mode("Reg"), Access_t::RO);
    EXPECT_EQ(mode("Free"), Access_t::RW);
    EXPECT_EQ(mode("PP"), Access_t::RO);
    EXPECT_EQ(mode("C"), Access_t::RO);
    EXPECT_EQ(mode("K"), Access_t::RW);
    EXPECT_EQ(mode("X"), Access_t::RW);
    EXPECT_THAT(sut.integer("Sel").set_val(1, 0), Passes());
    EXPECT_EQ(mode("X"), Access_t::RO);
    // No combination of the two is computed: the node says RW, the register below refuses.
    EXPECT_EQ(mode("Imposed"), Access_t::RW);
    EXPECT_THAT(sut.integer("Imposed").set_val(1, 0), Refuses(access_denied));
    EXPECT_EQ(sut.device.writes, 0);
}

TEST(AccessMode, AReadOfAWriteOnlyRegisterIsDeniedThoughAvailable) {
    const document sut{int_reg("R", 0, "<AccessMode>WO</AccessMode>")};
    EXPECT_THAT(sut.integer("R").get_val(0), Fails(access_denied));
    EXPECT_TRUE(sut.integer("R").is_available());
    EXPECT_EQ(sut.device.reads, 0);
    EXPECT_THAT(sut.integer("R").set_val(1, 0), Passes());
}

TEST(AccessState, OfEveryKindOfLink) {
    const document sut{
        "<Boolean Name=\"B\"><Value>false</Value></Boolean><Float Name=\"F\"><Value>0.4</Value></Float>"
        "<Enumeration Name=\"E\"><EnumEntry Name=\"Off\"><Value>0</Value></EnumEntry><Value>0</Value></Enumeration>"
        "<Integer Name=\"ByB\"><Value>1</Value><pIsAvailable>B</pIsAvailable></Integer>"
        "<Integer Name=\"ByF\"><Value>1</Value><pIsAvailable>F</pIsAvailable></Integer>"
        "<Integer Name=\"ByE\"><Value>1</Value><pIsAvailable>E</pIsAvailable></Integer>"};
    EXPECT_THAT(sut.integer("ByB").is_available(0), Gives(false));
    EXPECT_THAT(sut.integer("ByF").is_available(0), Gives(true));
    EXPECT_THAT(sut.integer("ByE").is_available(0), Gives(false));
}

TEST(AccessState, FailureIsToldWithFlagsAndSwallowedWithout) {
    document sut{int_reg("R", 0) + "<Integer Name=\"N\"><Value>1</Value><pIsImplemented>R</pIsImplemented>"
                                   "<pIsAvailable>R</pIsAvailable><pIsLocked>R</pIsLocked></Integer>"};
    sut.device.broken = true;
    const IInteger& node = sut.integer("N");
    EXPECT_THAT(node.is_implemented(0), Fails(timeout));
    EXPECT_THAT(node.is_available(0), Fails(timeout));
    EXPECT_THAT(node.is_locked(0), Fails(timeout));
    EXPECT_TRUE(node.is_implemented());
    EXPECT_TRUE(node.is_available());
    EXPECT_FALSE(node.is_locked());
}

} // namespace
} // namespace GenICam::testing
