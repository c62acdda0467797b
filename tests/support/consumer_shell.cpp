#include "consumer_shell.h"

#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>

namespace consumer {

using cli::cause;
using test_support::test_system;
using testing::HasSubstr;

bool follow_the_schema(const std::string& lines, std::string& reasons) {
    const test_support::temporary_folder own;
    std::ofstream{own.path / "lines"} << lines;
    test_support::process check{{"bash", "-c",
                                 "python3 '" + test_support::built::source("tests/answers_schema.py") + "' '" +
                                     test_support::built::source("docs/orv-gentl.schema.json") + "' <'" +
                                     (own.path / "lines").string() + "' 2>&1"},
                                own.path / "reasons"};
    const bool followed = check.wait() == 0;
    reasons = check.output();
    return followed;
}

namespace {

// Every JSON answer that a test of this process got, compared when all have run.
class all_answers final : public testing::Environment {
public:
    void add(const std::string& line, const std::string& output) {
        static const std::regex command{"orv-gentl'? (?:--json +)*([a-z][a-z-]*)"};
        std::smatch found;
        if (line.find("--json") == line.npos || !std::regex_search(line, found, command)) return;
        std::istringstream each{output};
        for (std::string text; std::getline(each, text);)
            if (text.starts_with('{')) lines += found[1].str() + '\t' + text + '\n';
    }
    void TearDown() override {
        std::string reasons;
        if (lines.empty()) return;
        EXPECT_TRUE(follow_the_schema(lines, reasons)) << reasons;
    }

private:
    std::string lines;
};
all_answers& answers() {
    static auto* const one = static_cast<all_answers*>(testing::AddGlobalTestEnvironment(new all_answers));
    return *one;
}
[[maybe_unused]] const all_answers& registered = answers();

std::string next_stem(const test_system& own) {
    static int count = 0;
    return (own.folder() / ("line-" + std::to_string(++count))).string();
}

} // namespace

shell_line::shell_line(const test_system& own, const std::string& line)
    : text(line),
      stem(next_stem(own)),
      child({"bash", "-c", "orv-gentl() { '" + program + "' \"$@\"; }; " + line + " 2>'" + stem + ".err'"},
            stem + ".out") {}

answer shell_line::wait() {
    const int code = child.wait();
    answers().add(text, child.output());
    return {code, child.output(), errors()};
}

answer run(const test_system& own, const std::string& line) { return shell_line{own, line}.wait(); }

void expect_error(const nlohmann::json& object, cause why, const std::string& text, const std::string& what) {
    ASSERT_TRUE(object.is_object() && object.contains("error")) << what << ": " << object;
    const auto& error = object["error"];
    std::set<std::string> members;
    for (const auto& [key, value] : error.items()) members.insert(key);
    ASSERT_EQ(members, (std::set<std::string>{"cause", "exit_code", "text", "call", "code", "producer"})) << what;
    EXPECT_EQ(error["cause"], cli::row_of(why).name) << what << ": " << error;
    EXPECT_EQ(error["exit_code"], cli::row_of(why).exit_code) << what;
    EXPECT_THAT(error["text"].get<std::string>(), HasSubstr(text)) << what;
    EXPECT_EQ(error["call"].is_null(), error["producer"].is_null()) << what;
}

void expect_rows(const test_system& own, const std::vector<row>& rows) {
    for (const auto& [line, why, text] : rows) {
        const answer plain = run(own, "orv-gentl " + line);
        EXPECT_EQ(plain.exit_code, cli::row_of(why).exit_code) << line << '\n' << plain.errors;
        EXPECT_THAT(plain.errors, HasSubstr(text)) << line;
        EXPECT_THAT(plain.output, testing::Not(HasSubstr(text))) << line;
        const answer json = run(own, "orv-gentl --json " + line);
        EXPECT_EQ(json.exit_code, cli::row_of(why).exit_code) << line;
        expect_error(json.json(), why, text, line);
    }
}

} // namespace consumer
