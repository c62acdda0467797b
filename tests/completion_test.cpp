// Completion in the shells themselves: what they make of a line and Tab.
#include "support/consumer_shell.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>

using namespace test_support;
using testing::HasSubstr;
using namespace consumer;

namespace {

struct shell {
    const char* name;
    const char* asks; // a script that prints what the shell makes of $line
};
void PrintTo(const shell& given, std::ostream* out) { *out << given.name; }
class Completion : public testing::TestWithParam<shell> {};

constexpr auto bash_asks = R"(source <(orv-gentl completion bash)
COMP_LINE=$line COMP_POINT=${#line}
_orv_gentl
printf '%s\n' "${COMPREPLY[@]}")";
constexpr auto fish_asks = R"(orv-gentl completion fish | source
complete -C "$line")";
// A shell of its own on a terminal, where Tab is pressed.
constexpr auto zsh_asks = R"(zmodload zsh/zpty
zpty shell zsh -f -i
until_seen() {
    local part
    integer tries=0
    while [[ $seen != *$1* ]] && (( tries < 200 )); do
        zpty -r -t shell part 2>/dev/null && seen+=$part || { sleep 0.05; (( tries += 1 )) }
    done
}
zpty -w shell 'PS1="> "; TERM=dumb; unsetopt prompt_sp; autoload -U compinit; compinit -D -u; source <(orv-gentl completion zsh); print is-$((40 + 2))'
seen=""
until_seen is-42
zpty -w -n shell "$line"$'\t'
seen=""
until_seen "$wanted"
print -r -- "$seen")";

} // namespace

TEST_P(Completion, KnowsTheCamerasFeatures) {
    const auto& [name, asks] = GetParam();
    test_system own;
    if (run(own, std::string{"command -v "} + name).exit_code != 0) GTEST_SKIP() << name << " is not installed";
    own.start_camera(small());
    own.start_service();
    std::ofstream{own.folder() / "script"} << asks;
    for (const auto& [line, wanted] : {std::pair{"orv-gentl set ExposureTi", "ExposureTime="},
                                       {"orv-gentl set PixelFormat=RGB56", "RGB565p"},
                                       {"orv-gentl exec UserSetL", "UserSetLoad"},
                                       {"orv-gentl get --device CA", "CAM0"},
                                       {"orv-gentl support-b", "support-bundle"}}) {
        const answer got = run(own, "cd '" + own.folder().string() + "'; export HOME=$PWD PATH=" + built::bin_dir() +
                                        ":$PATH line='" + line + "' wanted='" + wanted + "'; " + name + " ./script");
        EXPECT_THAT(got.output, HasSubstr(wanted)) << line << '\n' << got.errors;
        if (std::string_view{name} != "zsh") {
            EXPECT_EQ(std::ranges::count(got.output, '\n'), 1) << got.output; // one word, and no files
        }
    }
}

INSTANTIATE_TEST_SUITE_P(CommandLine, Completion,
                         testing::Values(shell{"bash", bash_asks}, shell{"zsh", zsh_asks}, shell{"fish", fish_asks}),
                         [](const auto& chosen) { return std::string{chosen.param.name}; });
