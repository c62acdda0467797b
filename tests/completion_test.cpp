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
    const char* program;
    std::string asks; // a script that prints what the shell makes of $line
};
void PrintTo(const shell& given, std::ostream* out) { *out << given.name; }
class Completion : public testing::TestWithParam<shell> {};

constexpr auto bash_asks = R"(source <(orv-gentl completion bash)
COMP_LINE=$line COMP_POINT=${#line}
_orv_gentl
printf '%s\n' "${COMPREPLY[@]}")";
constexpr auto fish_asks = R"(orv-gentl completion fish | source
complete -C "$line")";
// A shell of its own on a terminal, where Tab is pressed for the first time.
std::string zsh_asks(const std::string& before, const std::string& after) {
    return R"(orv-gentl completion zsh >_orv-gentl
zmodload zsh/zpty
zpty shell zsh -f -i
until_seen() {
    local part
    integer tries=0
    while [[ $seen != *$1* ]] && (( tries < 600 )); do
        zpty -r -t shell part 2>/dev/null && seen+=$part || { sleep 0.05; (( tries += 1 )) }
    done
}
zpty -w shell 'PS1="> "; TERM=dumb; unsetopt prompt_sp; )" +
           before + "autoload -U compinit; compinit -D -u; " + after + R"(print is-$((40 + 2))'
seen=""
until_seen is-42
zpty -w -n shell "$line"$'\t'
seen=""
until_seen "$wanted"
print -r -- "$seen")";
}

} // namespace

TEST_P(Completion, KnowsTheCamerasFeatures) {
    const auto& [name, shell_program, asks] = GetParam();
    test_system own;
    if (run(own, std::string{"command -v "} + shell_program).exit_code != 0)
        GTEST_SKIP() << shell_program << " is not installed";
    own.start_camera(small({"--user-name", "My left*"}));
    own.start_service();
    std::ofstream{own.folder() / "script"} << asks;
    for (const auto& [line, wanted] : {std::pair{"orv-gentl set ExposureTi", "ExposureTime="},
                                       {"orv-gentl set PixelFormat=RGB56", "RGB565p"},
                                       {"orv-gentl exec UserSetL", "UserSetLoad"},
                                       {"orv-gentl get --device CA", "CAM0"},
                                       {"orv-gentl support-b", "support-bundle"},
                                       {"orv-gentl get --device My", "My\\ left\\*"},
                                       {"orv-gentl get --device '\\''My l", "My left*"},
                                       {"orv-gentl get --device My\\ left\\* PayloadS", "PayloadSize"}}) {
        const bool is_quoted = std::string_view{line}.contains("My"); // by the other shells themselves
        if (is_quoted && std::string_view{shell_program} != "bash") continue;
        const answer got =
            run(own, "cd '" + own.folder().string() + "'; export HOME=$PWD PATH=" + built::bin_dir() + ":$PATH line='" +
                         line + "' wanted='" + wanted + "'; " + shell_program + " ./script");
        EXPECT_THAT(got.output, HasSubstr(wanted)) << line << '\n' << got.errors;
        if (std::string_view{shell_program} != "zsh") {
            EXPECT_EQ(std::ranges::count(got.output, '\n'), 1) << got.output; // one word, and no files
        }
    }
}

INSTANTIATE_TEST_SUITE_P(CommandLine, Completion,
                         testing::Values(shell{"bash", "bash", bash_asks}, shell{"fish", "fish", fish_asks},
                                         shell{"zsh", "zsh", zsh_asks("", "source ./_orv-gentl; ")},
                                         shell{"zsh_installed", "zsh", zsh_asks("fpath=($PWD $fpath); ", "")}),
                         [](const auto& chosen) { return std::string{chosen.param.name}; });
