// Documents in fewer words than XML: "Integer N: Value 1, Min 0 | Enumeration E: EnumEntry@On {Value 2}, Value 2".
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace GenICam::testing {

// Nodes stand between bars: element, name, colon, children. Children stand between commas: element, then text; braces
// hold a child's own children. "@" gives an attribute: "@On" the Name, or the Index of ...Indexed, "@Offset=4" any
// other. "Reg R@16" is a little-endian IntReg of 4 bytes at 16. Registers are on the port "Device" unless they name
// one.
class notation {
public:
    [[nodiscard]] static std::string xml(std::string_view text) {
        notation parser{text};
        std::string out;
        while (!parser.at_end()) out += parser.node();
        return out;
    }

private:
    explicit notation(std::string_view text) : left(text) {}

    [[nodiscard]] bool at_end() {
        left.remove_prefix(std::min(left.find_first_not_of(" \n"), left.size()));
        return left.empty();
    }
    [[nodiscard]] bool take(char c) {
        if (at_end() || left.front() != c) return false;
        left.remove_prefix(1);
        return true;
    }
    // What stands before the first of `stops`, without blanks at its ends.
    [[nodiscard]] std::string_view until(const char* stops) {
        static_cast<void>(at_end());
        std::string_view found = left.substr(0, left.find_first_of(stops));
        left.remove_prefix(found.size());
        return found.substr(0, found.find_last_not_of(" \n") + 1);
    }
    [[nodiscard]] static std::string_view cut(std::string_view& from, const char* stops) {
        const std::string_view word = from.substr(0, from.find_first_of(stops));
        from.remove_prefix(word.size());
        return word;
    }

    [[nodiscard]] std::string node() {
        std::string_view head = until(":|");
        std::string element{cut(head, " ")};
        head.remove_prefix(std::min<std::size_t>(1, head.size()));
        const std::string name{cut(head, "@")};
        std::string inner;
        if (element == "Reg") {
            element = "IntReg";
            inner = "<Address>" + std::string{head.substr(1)} + "</Address><Length>4</Length>" +
                    "<Endianess>LittleEndian</Endianess>";
        }
        if (take(':')) inner += children();
        const bool is_register = element.ends_with("Reg") || element == "Register";
        if (is_register && inner.find("<pPort>") == inner.npos) inner += "<pPort>Device</pPort>";
        if (!take('|') && !at_end()) throw std::runtime_error("no node: " + std::string{left});
        return "<" + element + (name.empty() ? "" : " Name='" + name + "'") + ">" + inner + "</" + element + ">";
    }
    [[nodiscard]] std::string children() {
        std::string out;
        do {
            std::string_view text = until(",|{}");
            const std::string element{cut(text, " @")};
            std::string attribute;
            if (text.starts_with('@')) {
                const std::string word{cut(text, " ")};
                const auto equals = word.find('=');
                const bool indexed = element.ends_with("Indexed");
                attribute = equals != word.npos
                                ? " " + word.substr(1, equals - 1) + "='" + word.substr(equals + 1) + "'"
                                : (indexed ? " Index='" : " Name='") + word.substr(1) + "'";
            }
            text.remove_prefix(std::min<std::size_t>(1, text.size()));
            out += "<" + element + attribute + ">";
            for (const char c : text) out += c == '<' ? "&lt;" : c == '&' ? "&amp;" : std::string(1, c);
            if (take('{')) {
                out += children();
                if (!take('}')) throw std::runtime_error("no closing brace: " + std::string{left});
            }
            out += "</" + element + ">";
        } while (take(','));
        return out;
    }

    std::string_view left;
};

} // namespace GenICam::testing
