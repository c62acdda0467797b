#include "bootstrap_register.h"

#include <gige/wire.h>

#include <array>

namespace cli {

std::optional<uint32_t> read_register(const gentl_library& lib, void* port, uint64_t address) {
    std::array<std::byte, 4> word{};
    size_t size = word.size();
    if (lib.GCReadPort(port, address, word.data(), &size) != GenTL::GC_ERR_SUCCESS) return std::nullopt;
    return gige::load32(word.data());
}

bool write_register(const gentl_library& lib, void* port, uint64_t address, uint32_t value) {
    std::array<std::byte, 4> word{};
    gige::store32(word.data(), value);
    size_t size = word.size();
    return lib.GCWritePort(port, address, word.data(), &size) == GenTL::GC_ERR_SUCCESS;
}

} // namespace cli
