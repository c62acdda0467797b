#include "genicam_doc.h"

#include "impl/eval_scope.h"
#include "impl/log.h"
#include "impl/text_values.h"

namespace GenICam {

namespace impl {

namespace {

uint32_t version_of(pugi::xml_node root, const char* attribute, uint32_t standard) noexcept {
    const auto value = parse_integer(root.attribute(attribute).value());
    return value && *value >= 0 && *value <= UINT32_MAX ? static_cast<uint32_t>(*value) : standard;
}

// Intended: the dashes are asked for at 8, 12, 16 and 20. A text grouped 8-4-4-4-12 has them elsewhere and is left out,
// so consumers that compare GUIDs see "none" on every such document, as they always have.
std::array<char, 36> guid_of(pugi::xml_node root, const char* attribute) noexcept {
    std::array<char, 36> guid{};
    const std::string_view text = root.attribute(attribute).value();
    if (text.size() < guid.size()) return guid;
    for (const std::size_t dash : {8, 12, 16, 20}) {
        if (text[dash] != '-') return guid;
    }
    text.copy(guid.data(), guid.size());
    return guid;
}

} // namespace

genicam_doc::~genicam_doc() {
    for (INode* node : nodes) node->as_eval()->~IEval();
}

namespace {

// Whether a tag ends with the last character, rather than a text with a '>' of its own: it is the only one since the
// last '<'. What says no of a tag with such characters in its attributes costs only the walk.
bool ends_with_tag(std::string_view text) noexcept {
    if (!text.ends_with('>')) return false;
    const std::size_t begin = text.rfind('<');
    return begin == text.npos || text.substr(begin).find('>') == text.size() - begin - 1;
}

// Whether a comment, an instruction or a CDATA section may stand within a text: tells most documents apart without a
// walk over all their nodes, which takes half as long as all else for a large one. Linear in the text.
bool may_split_texts(std::string_view text) noexcept {
    constexpr std::string_view blanks = " \t\r\n";
    constexpr std::string_view section_end = "]]>";
    // In an encoding of more than one byte, all is possible.
    if (text.substr(0, 4).find('\0') != text.npos || text.starts_with('\xFE') || text.starts_with('\xFF')) return true;
    for (const char mark : {'!', '?'}) {
        for (std::size_t at = text.find(mark); at != text.npos; at = text.find(mark, at + 1)) {
            if (at == 0 || text[at - 1] != '<') continue;
            const std::string_view before = text.substr(0, at - 1);
            const std::size_t last = before.find_last_not_of(blanks);
            if (last != before.npos && !ends_with_tag(before.substr(0, last + 1))) return true;
            if (mark != '!' || !text.substr(at + 1).starts_with('[')) continue;
            // A section that is the whole text of its element splits nothing.
            const std::size_t end = text.find(section_end, at);
            if (end == text.npos) return true;
            const std::size_t next = text.find_first_not_of(blanks, end + section_end.size());
            if (next == text.npos || !text.substr(next).starts_with("</")) return true;
            at = end;
        }
    }
    return false;
}

} // namespace

bool genicam_doc::parse(std::span<const std::byte> text) {
    const pugi::xml_parse_result outcome = xml.load_buffer(text.data(), text.size());
    if (!outcome) {
        log(level_fault, "The XML document does contain errors : {} @ offset={}.", outcome.description(),
            outcome.offset);
        return false;
    }
    build(may_split_texts({reinterpret_cast<const char*>(text.data()), text.size()}));
    return true;
}

void genicam_doc::build(pugi::xml_document&& document) {
    xml = std::move(document);
    build(true);
}

void genicam_doc::note_fault(IEval& node, std::string text) {
    std::string& all = faults[&node];
    all += all.empty() ? text : " " + text;
}

std::string_view genicam_doc::fault_of(const IEval& node) const noexcept {
    const auto found = faults.find(&node);
    return found != faults.end() ? std::string_view{found->second} : std::string_view{};
}

INode* genicam_doc::find_node(std::string_view name, NodeType_t type) const noexcept {
    INode* found = find_node(name);
    if (found == nullptr || found->node_type() == type) return found;
    return type == NodeType_t::Port ? port_by_taken_name.find(name) : nullptr;
}

INode* genicam_doc::find_node(std::string_view name) const noexcept {
    return name.empty() ? nullptr : node_by_name.find(name);
}

void genicam_doc::for_each_node(const std::function<void(INode*)>& function) const {
    for (INode* node : nodes) function(node);
}

document_info genicam_doc::get_document_info() const {
    const pugi::xml_node root = xml.document_element();
    document_info info;
    info.model_name = root.attribute("ModelName").value();
    info.vendor_name = root.attribute("VendorName").value();
    info.tool_tip = root.attribute("ToolTip").value();
    info.standard_name_space = parse_word<StandardNameSpace_t>(root.attribute("StandardNameSpace").value())
                                   .value_or(StandardNameSpace_t::None);
    info.schema_major = version_of(root, "SchemaMajorVersion", info.schema_major);
    info.schema_minor = version_of(root, "SchemaMinorVersion", info.schema_minor);
    info.schema_sub_minor = version_of(root, "SchemaSubMinorVersion", info.schema_sub_minor);
    info.major = version_of(root, "MajorVersion", info.major);
    info.minor = version_of(root, "MinorVersion", info.minor);
    info.sub_minor = version_of(root, "SubMinorVersion", info.sub_minor);
    info.product_guid = guid_of(root, "ProductGuid");
    info.version_guid = guid_of(root, "VersionGuid");
    return info;
}

void genicam_doc::add_event_node(uint64_t event_id, IEval* node) {
    // A change of a port concerns whoever stands on it, one of another node also what that node stands on.
    const bool is_port = node->as_inode()->node_type() == NodeType_t::Port;
    events[event_id].nodes.push_back({node, is_port ? closure_start::from::users : closure_start::from::sources});
}

bool genicam_doc::apply_event(uint64_t event_id, std::span<const std::byte> data) {
    const auto found = events.find(event_id);
    if (found == events.end()) return false;
    event_data& event = found->second;
    const eval_scope one_access;
    // First all data, then one pass: a callback that reads finds this event's, wherever it stands.
    for (const closure_start& start : event.nodes) {
        // A port bound to a device has logged its refusal, and is invalidated for nothing; the other nodes get their
        // event all the same.
        if (auto* port = node_cast<IPort>(start.node->as_inode())) (void)port->bind_readonly(data, bind_flags::copy);
    }
    invalidate_closure(event.closure, event.nodes, nullptr, *this);
    return true;
}

void genicam_doc::drop_all_caches() {
    (void)eval_scope::take(ports.size());
    for (port_device_type* port : ports) port->invalidate_all();
}

std::vector<INode*> genicam_doc::get_root_features() const {
    const ICategory* root = get_root_category();
    return root != nullptr ? root->get_all_features() : std::vector<INode*>{};
}

ICategory* genicam_doc::get_root_category() const noexcept {
    return static_cast<ICategory*>(find_node("Root", NodeType_t::Category));
}

} // namespace impl

std::unique_ptr<IGenICamDoc> create_document(std::span<const std::byte> text, uint16_t options) {
    auto document = std::make_unique<impl::genicam_doc>(options);
    if (!document->parse(text)) return nullptr;
    return document;
}

std::unique_ptr<IGenICamDoc> create_document(std::string_view text, uint16_t options) {
    return create_document(std::as_bytes(std::span{text}), options);
}

std::unique_ptr<IGenICamDoc> create_document(pugi::xml_document&& xml, uint16_t options) {
    auto document = std::make_unique<impl::genicam_doc>(options);
    document->build(std::move(xml));
    return document;
}

} // namespace GenICam
