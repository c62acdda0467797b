// Reading and writing a loaded document whose device answers at once.
#include "bench.h"

#include <GenICam/IGenICamDoc.h>

#include <fmt/format.h>

#include <cmath>
#include <cstring>

namespace bench {

namespace {

using namespace GenICam;

struct memory_device final : IDevicePort {
    result<std::size_t> read(int64_t address, std::span<std::byte> data, unsigned) override {
        ++transfers;
        std::memcpy(data.data(), memory + address, data.size());
        return data.size();
    }
    std::error_code write(int64_t address, std::span<const std::byte> data, unsigned) override {
        ++transfers;
        std::memcpy(memory + address, data.data(), data.size());
        return {};
    }
    std::byte memory[0x10000]{};
    int transfers = 0;
};

struct bound_document {
    explicit bound_document(const std::string& nodes)
        : doc(create_document("<R>" + nodes + "<Port Name=\"Device\"/></R>")) {
        require(doc != nullptr && !doc->find<IPort>("Device")->bind(&device, 0), "document");
    }
    memory_device device;
    std::unique_ptr<IGenICamDoc> doc;
};

std::string int_reg(const std::string& name, int address) {
    return fmt::format("<IntReg Name=\"{}\"><Address>{}</Address><Length>4</Length><AccessMode>RW</AccessMode>"
                       "<pPort>Device</pPort><Endianess>LittleEndian</Endianess></IntReg>",
                       name, address);
}

// Time and allocations of one operation.
void timed(const std::string& what, const std::string& target, double limit, const std::function<void(uint64_t)>& run) {
    run(100);
    const auto before = heap();
    run(1000);
    const auto allocations = heap().allocations - before.allocations;
    const double time = measure(run);
    const bool held = time < limit && (limit == HUGE_VAL || allocations == 0);
    row(what, time_text(time), fmt::format("{} allocations per 1000", allocations), target, held);
}

void cached_register() {
    std::string nodes;
    for (int i = 0; i < 400; ++i) nodes += int_reg("R" + std::to_string(i), 4 * i);
    bound_document sut{nodes};
    std::vector<IInteger*> registers;
    for (int i = 0; i < 400; ++i) {
        registers.push_back(sut.doc->find<IInteger>("R" + std::to_string(i)));
        require(registers.back()->set_val(i, 0) == std::error_code{}, "register write");
    }
    const int transfers = sut.device.transfers;
    int64_t sum = 0;
    timed("cached read of one of 400 integer registers", "below 60 ns, no heap", 60, [&](uint64_t n) {
        // A different register each time, in an order that no predictor learns at once.
        std::size_t at = 0;
        for (uint64_t i = 0; i < n; ++i) {
            sum += registers[at]->get_val(0).value();
            at = (at * 5 + 17) % registers.size();
        }
    });
    require(sut.device.transfers == transfers, "the cache answers");
    require(sum > 0, "register values");
}

void swiss_knife() {
    bound_document sut{
        int_reg("A", 0) + int_reg("B", 4) + int_reg("C", 8) + int_reg("D", 12) +
        "<IntSwissKnife Name=\"K\"><pVariable Name=\"A\">A</pVariable><pVariable Name=\"B\">B</pVariable>"
        "<pVariable Name=\"C\">C</pVariable><pVariable Name=\"D\">D</pVariable>"
        "<Formula>(A * B + C) &amp; D</Formula></IntSwissKnife>"};
    for (const auto& [name, value] : {std::pair{"A", 3}, {"B", 5}, {"C", 7}, {"D", 0xFF}})
        require(sut.doc->find<IInteger>(name)->set_val(value, 0) == std::error_code{}, "register write");
    auto* knife = sut.doc->find<IInteger>("K");
    require(knife->get_val(0).value() == 22, "swiss knife value");
    int64_t sum = 0;
    timed("IntSwissKnife over four cached registers", "below 250 ns, no heap", 250, [&](uint64_t n) {
        for (uint64_t i = 0; i < n; ++i) sum += knife->get_val(0).value();
    });
    require(sum > 0, "swiss knife sum");
}

void converter() {
    bound_document sut{int_reg("R", 0) + "<Float Name=\"F\"><pValue>C</pValue></Float><Converter Name=\"C\">"
                                         "<FormulaTo>TO * 8</FormulaTo><FormulaFrom>FROM / 8</FormulaFrom>"
                                         "<pValue>R</pValue><Slope>Increasing</Slope></Converter>"};
    auto* feature = sut.doc->find<IFloat>("F");
    double sum = 0;
    timed("Float over Converter over register, write and read", "", HUGE_VAL, [&](uint64_t n) {
        for (uint64_t i = 0; i < n; ++i) {
            const double value = static_cast<double>(i % 1000) + 0.5;
            require(feature->set_val(value, 0) == std::error_code{}, "converter write");
            const double back = feature->get_val(0).value();
            require(back == value, "converter round trip");
            sum += back;
        }
    });
    require(sum > 0, "converter sum");
}

void selector() {
    std::string nodes = "<Integer Name=\"Sel\"><Value>0</Value>";
    for (int i = 0; i < 100; ++i) nodes += fmt::format("<pSelected>F{}</pSelected>", i);
    nodes += "</Integer>";
    for (int i = 0; i < 100; ++i)
        nodes += fmt::format("<Integer Name=\"F{0}\"><pValue>R{0}</pValue></Integer><IntReg Name=\"R{0}\"><Address>{1}"
                             "</Address><Length>4</Length><pPort>Device</pPort><pIndex Offset=\"4\">Sel</pIndex>"
                             "</IntReg>",
                             i, 64 * i);
    bound_document sut{nodes};
    auto* sel = sut.doc->find<IInteger>("Sel");
    std::vector<IInteger*> features;
    for (int i = 0; i < 100; ++i) {
        features.push_back(sut.doc->find<IInteger>("F" + std::to_string(i)));
        (void)features.back()->get_val(0);
    }
    int64_t index = 0;
    timed("selector switch, 100 selected features invalidated", "", HUGE_VAL, [&](uint64_t n) {
        for (uint64_t i = 0; i < n; ++i) require(sel->set_val(++index % 8, 0) == std::error_code{}, "selector");
    });
    timed("  and all 100 read again", "", HUGE_VAL, [&](uint64_t n) {
        for (uint64_t i = 0; i < n; ++i) {
            require(sel->set_val(++index % 8, 0) == std::error_code{}, "selector");
            for (IInteger* feature : features) require(feature->get_val(0).has_value(), "selected feature");
        }
    });
}

} // namespace

void access() {
    cached_register();
    swiss_knife();
    converter();
    selector();
}

} // namespace bench
