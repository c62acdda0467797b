// The pages for users: every "$ ..." in them is run, in one shell for a page, and what stands below must be what comes.
// ORV_WRITE_PAGES=1 writes it there.
#include "support/consumer_shell.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace built = test_support::built;
using test_support::read_file;
using test_support::test_system;

namespace {

constexpr const char* mark = "=== end of an example ===";

// What differs from machine to machine and run to run is made alike.
std::string levelled(std::string text) {
    text = std::regex_replace(text, std::regex{"([0-9A-F]{2}:){5}[0-9A-F]{2}"}, "MAC");
    text = std::regex_replace(text, std::regex{"[0-9]{4}-?[0-9]{2}-?[0-9]{2}[ -][0-9:]{6,8}([.][0-9]+)?"}, "DATE");
    text = std::regex_replace(text, std::regex{"/[^ \"':]*/(lib|multipart|gentlproducer)(/orv-gentl-gev.cti|\"?\n)"},
                              "FOLDER$2");
    text = std::regex_replace(text, std::regex{" +"}, " ");
    return std::regex_replace(text, std::regex{" \n"}, "\n");
}

void replace_all(std::string& text, const std::string& what, const std::string& with) {
    for (size_t at = text.find(what); at != text.npos; at = text.find(what, at + with.size()))
        text.replace(at, what.size(), with);
}

struct example {
    std::string command, expected;
    size_t line = 0; // where the answer begins
};

std::vector<example> examples_of(const std::vector<std::string>& page) {
    std::vector<example> found;
    bool within = false;
    for (size_t i = 0; i < page.size(); ++i) {
        const bool indented = page[i].starts_with("    ");
        if (page[i].starts_with("    $ ")) {
            found.push_back({page[i].substr(6), {}, i + 1});
            within = true;
        } else if (within && indented) {
            found.back().expected += page[i].substr(4) + '\n';
        } else {
            within = false;
        }
    }
    return found;
}

// A program in the background answers "ready" when the next line may be typed; what it says later belongs to nobody.
std::string script_of(const std::vector<example>& examples) {
    std::string script = "export PATH='" + built::bin_dir() +
                         "':\"$PATH\" TMPDIR=\"$PWD\"\ntrap 'kill $(jobs -p) 2>/dev/null; wait' EXIT\n";
    for (const auto& [command, expected, line] : examples) {
        if (command.ends_with('&')) {
            script += ": >log; " + command.substr(0, command.size() - 1) +
                      ">log 2>&1 &\nfor i in {1..100}; do grep -q ready log && break; sleep 0.1; done\n";
        } else {
            script += "{ " + command + "\n} 2>&1\n";
        }
        script += "echo '" + std::string{mark} + "'\n";
    }
    return script;
}

struct page_case {
    const char* name;
    size_t least; // examples in it
    bool two_cameras;
};
void PrintTo(const page_case& page, std::ostream* out) { *out << page.name; }

class Pages : public testing::TestWithParam<page_case> {};

} // namespace

TEST_P(Pages, AreTrue) {
    const auto [name, least, two_cameras] = GetParam();
    const std::string path = built::source(name);
    std::vector<std::string> page;
    {
        std::istringstream lines{read_file(path)};
        for (std::string line; std::getline(lines, line);) page.push_back(line);
    }
    const std::vector<example> examples = examples_of(page);
    ASSERT_GE(examples.size(), least);

    if (built::sanitized && read_file(path).find("$ python3 ") != std::string::npos)
        GTEST_SKIP() << "the sanitizers' run-time library would have to be in Python, too";
    test_system own;
    std::filesystem::create_directory_symlink(built::source("examples"), own.folder() / "examples");
    if (two_cameras) {
        own.start_camera({"--width", "640", "--height", "480", "--frame-rate", "10", "--user-name", "left"});
        own.start_camera({"--width", "640", "--height", "480", "--frame-rate", "10", "--user-name", "right"});
        own.start_service();
    }
    std::string network = own.camera_address(0);
    network.resize(network.rfind('.') + 1);
    std::string script = script_of(examples);
    replace_all(script, "127.0.0.", network);
    std::ofstream{own.folder() / "page.sh"} << script;
    // Ends its programs, too, should one of them hang.
    constexpr std::chrono::seconds limit{180};
    test_support::process shell{{"bash", "-c",
                                 "cd '" + own.folder().string() + "' && exec timeout " + std::to_string(limit.count()) +
                                     " bash ./page.sh 2>&1"},
                                own.folder() / "page.out"};
    shell.wait(limit + std::chrono::seconds{10});
    std::string output = shell.output();
    replace_all(output, network, "127.0.0.");

    std::istringstream lines{output};
    std::vector<std::string> answers(1);
    for (std::string line; std::getline(lines, line);) {
        if (line == mark) {
            answers.emplace_back();
        } else {
            answers.back() += line + '\n';
        }
    }
    ASSERT_EQ(answers.size(), examples.size() + 1) << output;
    for (size_t i = examples.size(); i-- > 0;) {
        const auto& [command, expected, at] = examples[i];
        EXPECT_EQ(levelled(answers[i]), levelled(expected)) << name << ':' << at << ": " << command;
        if (std::getenv("ORV_WRITE_PAGES") == nullptr || levelled(answers[i]) == levelled(expected)) continue;
        const auto begin = page.begin() + static_cast<std::ptrdiff_t>(at);
        page.erase(begin, begin + std::ranges::count(expected, '\n'));
        std::vector<std::string> fresh;
        std::istringstream answer{answers[i]};
        for (std::string line; std::getline(answer, line);) fresh.push_back("    " + line);
        page.insert(page.begin() + static_cast<std::ptrdiff_t>(at), fresh.begin(), fresh.end());
    }
    if (std::getenv("ORV_WRITE_PAGES") == nullptr) return;
    std::ofstream file{path};
    for (const std::string& line : page) file << line << '\n';
}

INSTANTIATE_TEST_SUITE_P(Docs, Pages,
                         testing::Values(page_case{"README.md", 1, false}, page_case{"docs/tools.md", 20, true},
                                         page_case{"docs/install.md", 3, false},
                                         page_case{"docs/quick-start.md", 8, false},
                                         page_case{"docs/integrators.md", 5, true},
                                         page_case{"docs/troubleshooting.md", 2, true}),
                         [](const auto& row) {
                             std::string name;
                             for (const char* c = row.param.name; *c != 0; ++c)
                                 if (std::isalnum(static_cast<unsigned char>(*c)) != 0) name += *c;
                             return name;
                         });
