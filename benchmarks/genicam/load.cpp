// Loading: the floor is the bare parse of the same text, the peer is aravis.
#include "bench.h"

#include <GenICam/IGenICamDoc.h>

#include <fmt/format.h>
#include <pugixml.hpp>

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic"
#include <arv.h>
#pragma GCC diagnostic pop

namespace bench {

namespace {

void load_one(const std::string& name, const std::string& text) {
    const auto before = heap();
    auto doc = GenICam::create_document(text);
    const auto after = heap();
    require(doc != nullptr, "the document loads");
    int nodes = 0;
    doc->for_each_node([&](GenICam::INode*) { ++nodes; });
    pugi::xml_document bare;
    (void)bare.load_buffer(text.data(), text.size());

    const auto engine = [&](std::uint64_t n) {
        for (std::uint64_t i = 0; i < n; ++i) require(GenICam::create_document(text) != nullptr, "load");
    };
    const auto parse = [&](std::uint64_t n) {
        for (std::uint64_t i = 0; i < n; ++i) {
            pugi::xml_document xml;
            require(static_cast<bool>(xml.load_buffer(text.data(), text.size())), "parse");
        }
    };
    const auto aravis = [&](std::uint64_t n) {
        for (std::uint64_t i = 0; i < n; ++i) {
            ArvGc* gc = arv_gc_new(nullptr, text.data(), text.size());
            require(gc != nullptr, "aravis");
            g_object_unref(gc);
        }
    };
    const std::string what = fmt::format("load {} ({} kB, {} nodes)", name, text.size() / 1000, nodes);
    const auto floor = measure_both(engine, parse);
    row(what, time_text(floor.ours),
        fmt::format("pugixml {}, ratio {}", time_text(floor.theirs), ratio_text(floor.ours / floor.theirs)),
        "at most 4x the parse", floor.ours <= 4 * floor.theirs);
    const auto peer = measure_both(engine, aravis);
    row(what, time_text(peer.ours),
        fmt::format("aravis {}, {}x", time_text(peer.theirs), ratio_text(peer.theirs / peer.ours)), "5x faster",
        peer.theirs >= 5 * peer.ours);
    row("  heap after load, beside the XML's own pages", fmt::format("{} kB", (after.bytes - before.bytes) / 1000),
        fmt::format("{} B per node", (after.bytes - before.bytes) / nodes), "", true);
}

} // namespace

void load() {
    load_one("synthetic", synthetic_document(1'000'000));
    for (const auto& [name, text] : maker_documents()) load_one(name.substr(0, 16), text);
}

} // namespace bench
