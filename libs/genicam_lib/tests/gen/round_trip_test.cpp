// Writer and reader are inverse: what is written reads back equal, whatever is set.
#include "records.h"

#include <genicam_gen/template_document.h>
#include <genicam_gen/writer.h>

#include <support/temporary_folder.h>

#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>
#include <fstream>

using namespace records;

namespace {

template <class Record>
void check(uint32_t seed) {
    source random{seed};
    const Record original = random.make<Record>();
    document model;
    model.add(Record{original});
    const std::string text = serialize_to_string(write_document(model));
    const template_document back{reference_document{text.data(), text.size()}};
    const auto read = back.find<Record>(original.name);
    ASSERT_TRUE(read) << text;
    EXPECT_TRUE(*read == original) << "seed " << seed << "\n" << text;
}

template <class... Records>
void check_each(uint32_t seed, const std::variant<Records...>*) {
    (check<Records>(seed), ...);
}

struct locale_scope {
    explicit locale_scope(const char* folder) { setenv("LOCPATH", folder, 1); }
    ~locale_scope() {
        std::setlocale(LC_NUMERIC, "C");
        unsetenv("LOCPATH");
    }
};

} // namespace

TEST(RoundTrip, EveryRecordKindWithEveryChoiceOfFields) {
    for (uint32_t seed = 0; seed < 200; ++seed) {
        check_each(seed, static_cast<const node*>(nullptr));
        if (HasFailure()) return;
    }
}

// A locale made for the purpose, as a host need not have one: an application in German sets its own.
TEST(RoundTrip, NumbersHaveAPointUnderEveryLocale) {
    if (std::system("localedef --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "needs localedef (libc-bin)";
    const test_support::temporary_folder folder;
    const std::string at = folder.path.string() + "/";
    std::ofstream{at + "source"} << "LC_NUMERIC\ndecimal_point \"<U002C>\"\nthousands_sep \"\"\ngrouping -1\n"
                                    "END LC_NUMERIC\n";
    std::ofstream{at + "characters"}
        << "<code_set_name> ASCII\n<escape_char> /\nCHARMAP\n<U002C> /x2c COMMA\nEND CHARMAP\n";
    const std::string command =
        "localedef -c --no-archive -i " + at + "source -f " + at + "characters " + at + "comma >/dev/null 2>&1";
    (void)!std::system(command.c_str()); // says no for the parts that are not there
    const locale_scope scope{folder.path.c_str()};
    ASSERT_NE(std::setlocale(LC_NUMERIC, "comma"), nullptr) << command;
    char half[8];
    std::snprintf(half, sizeof half, "%g", 0.5);
    ASSERT_STREQ(half, "0,5");

    Float number;
    number.name = "N";
    number.value = 0.1;
    number.min = -0.5;
    number.max = 1.5e300;
    Converter converter;
    converter.name = "C";
    converter.inputs.constants.push_back({"K", 1e-7});
    document model;
    model.add(number);
    model.add(converter);
    const std::string text = serialize_to_string(write_document(model));
    for (const char* wanted :
         {">0.10000000000000001<", ">-0.5<", ">1.5000000000000001e+300<", ">9.9999999999999995e-08<"})
        EXPECT_NE(text.find(wanted), text.npos) << wanted << " in\n" << text;
}
