#include "completion.h"

#include "../output/output.h"

#include <algorithm>
#include <array>
#include <memory>

namespace cli {

namespace {

constexpr const char* bash_script = R"sh(# bash completion of orv-gentl: eval "$(orv-gentl completion bash)"
_orv_gentl() {
    # Parted here: ':' and '=' part words in bash, where the words are wanted whole, without what quotes them.
    local line=${COMP_LINE:0:COMP_POINT} word= quote= cut= is_word= c i
    local -a words=()
    for ((i = 0; i < ${#line}; i++)); do
        c=${line:i:1}
        if [[ $c == '\' && $quote != "'" ]]; then
            word+=${line:$((++i)):1}
        elif [[ $quote ]]; then
            if [[ $c == "$quote" ]]; then quote=; else word+=$c; fi
        elif [[ $c == [\'\"] ]]; then
            quote=$c cut=$word is_word=1
        elif [[ $c == ' ' ]]; then
            [[ $word$is_word ]] && words+=("$word")
            word= is_word=
        else
            word+=$c
        fi
    done
    words+=("$word")
    mapfile -t COMPREPLY < <(orv-gentl complete -- "${words[@]:1}" 2>/dev/null)
    # What bash keeps of the word: up to an open quote, else to the last ':' or '='.
    [[ $quote ]] || cut=${word%"${word##*[=:]}"}
    for i in "${!COMPREPLY[@]}"; do
        c=${COMPREPLY[i]#"$cut"}
        case $quote in
        \') c=${c//\'/"'\''"} ;;
        \") c=${c//'\'/'\\'} c=${c//\"/'\"'} c=${c//'$'/'\$'} c=${c//'`'/'\`'} ;;
        *) [[ $c ]] && printf -v c %q "$c" ;;
        esac
        COMPREPLY[i]=$c
    done
    [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *= ]] && compopt -o nospace
}
complete -o default -F _orv_gentl orv-gentl
)sh";
constexpr const char* zsh_script = R"sh(#compdef orv-gentl
# zsh completion of orv-gentl: source <(orv-gentl completion zsh)
_orv_gentl() {
    local -a found
    found=("${(@f)$(orv-gentl complete -- "${(@)words[2,CURRENT]}" 2>/dev/null)}")
    found=(${found:#})
    if (( $#found )); then compadd -S '' -- $found; else _files; fi
}
# In a file of $fpath this is the body of the function that the first Tab calls.
if [ "$funcstack[1]" = _orv-gentl ]; then _orv_gentl "$@"; else compdef _orv_gentl orv-gentl; fi
)sh";
constexpr const char* fish_script = R"sh(# fish completion of orv-gentl: orv-gentl completion fish | source
function __orv_gentl
    set -l words (commandline -opc) (commandline -ct)
    set -l found (orv-gentl complete -- $words[2..-1] 2>/dev/null)
    if set -q found[1]
        printf '%s\n' $found
    else
        __fish_complete_path (commandline -ct)
    end
end
complete -c orv-gentl -f -a '(__orv_gentl)'
)sh";

// What may stand in the place of the last word.
class completer {
public:
    completer(const CLI::App& root, const std::vector<std::string>& given) : app(root), words(given) {
        current = words.empty() ? "" : words.back();
        for (size_t i = 0; i + 1 < words.size(); ++i) {
            if (const CLI::App* below = subcommand_of(*command, words[i])) command = below;
            if (words[i] == "--device") options.device = words[i + 1];
            if (words[i] == "--interface") options.interface = words[i + 1];
            if (words[i] == "--module") options.module = words[i + 1];
            if (words[i] == "--cti") options.cti = words[i + 1];
        }
    }

    std::vector<std::string> find() {
        const std::string before = words.size() >= 2 ? words[words.size() - 2] : "";
        if (before == "--device") {
            add_devices();
        } else if (before == "--interface") {
            for (const auto& entry : find_devices(options).interfaces) add(entry.id);
        } else if (before == "--module") {
            for (const char* each : {"remote", "device", "stream", "interface", "system"}) add(each);
        } else if (before == "--access") {
            for (const char* each : {"readonly", "control", "exclusive"}) add(each);
        } else if (before == "--by") {
            for (const char* each : {"any", "limit", "delay"}) add(each);
        } else if (before == "--level") {
            for (const char* each : {"beginner", "expert", "guru", "invisible"}) add(each);
        } else if (current.starts_with('-')) {
            for (const CLI::Option* option : command->get_options())
                for (const std::string& name : option->get_lnames()) add("--" + name);
        } else if (!command->get_subcommands([](const CLI::App*) { return true; }).empty()) {
            for (const CLI::App* below : command->get_subcommands([](const CLI::App*) { return true; }))
                if (!below->get_group().empty()) add(below->get_name());
        } else {
            add_features(before);
        }
        return found;
    }

private:
    static const CLI::App* subcommand_of(const CLI::App& command, const std::string& name) {
        for (const CLI::App* below : command.get_subcommands([](const CLI::App*) { return true; }))
            if (below->get_name() == name) return below;
        return nullptr;
    }
    void add(const std::string& word) {
        if (printable(word) != word) return; // neither a line of the answer nor a word to be typed
        if (word.starts_with(current) && std::ranges::find(found, word) == found.end()) found.push_back(word);
    }
    void add_devices() {
        options.device.clear();
        for (const auto& [device, interface] : find_devices(options).devices)
            for (const std::string& name : {device.id, device.serial, device.user_name})
                if (!name.empty()) add(name);
    }
    // Names for the commands that take features, for `set` with '=', behind which entries follow.
    void add_features(const std::string& before) {
        const std::string name = command->get_name();
        constexpr std::array takes{"get", "set", "exec", "describe", "grab"};
        if (std::ranges::find(takes, name) == takes.end() || (name == "grab" && before != "--set")) return;
        const bool sets = name == "set" || name == "grab";
        const open_module opened = open_named_module(options, GenTL::DEVICE_ACCESS_READONLY);
        const size_t equals = current.find('=');
        if (sets && equals != current.npos) {
            const std::string left = current.substr(0, equals + 1);
            GenICam::INode& node = require_node(*opened.nodes, current.substr(0, equals));
            if (const auto* choice = GenICam::node_cast<GenICam::IEnumeration>(&node))
                for (const std::string& entry : entries_of(*choice)) add(left + entry);
            if (GenICam::node_cast<GenICam::IBoolean>(&node) != nullptr)
                for (const char* value : {"true", "false"}) add(left + value);
            return;
        }
        for (const GenICam::INode* feature : opened.nodes->document().get_root_features()) {
            const bool is_command = feature->node_type() == GenICam::NodeType_t::Command;
            if ((name == "exec") != is_command && name != "describe") continue;
            add(std::string{feature->get_name()} + (sets ? "=" : ""));
        }
    }

    const CLI::App& app;
    const std::vector<std::string>& words;
    const CLI::App* command = &app;
    std::string current;
    common_options options;
    std::vector<std::string> found;
};

} // namespace

void add_completion_command(command_line& line) {
    auto shell = std::make_shared<std::string>();
    auto* script = line.app.add_subcommand("completion", "Prints the completion script of a shell");
    script->add_option("shell", *shell, "bash, zsh or fish")->required()->check(CLI::IsMember({"bash", "zsh", "fish"}));
    script->footer("Example: eval \"$(orv-gentl completion bash)\"");
    script->callback([shell] {
        print_text(*shell == "bash" ? bash_script : *shell == "zsh" ? zsh_script : fish_script);
    });

    auto words = std::make_shared<std::vector<std::string>>();
    auto* complete = line.app.add_subcommand("complete", "For completion scripts: what the last word may be");
    complete->group("");
    complete->add_option("words", *words, "Words behind the program's name");
    complete->callback([&line, words] {
        try {
            for (const std::string& word : completer{line.app, *words}.find()) print("{}\n", word);
        } catch (const failure&) {
            // No camera, no words: a shell in the middle of a line is no place for reasons.
        }
    });
}

} // namespace cli
