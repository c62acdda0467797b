// Feature nodes over registers, as text.
#pragma once

#include <camera_sim/registers.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace camera_sim {

struct node_options {
    uint32_t min = 0;
    uint64_t max = 0; // 0: none stated
    std::string_view p_max{};
    uint32_t increment = 0;
    bool locked = false; // while frames are sent
    std::string_view p_is_locked{};
    std::string_view p_is_available{};
    std::string_view access = "RW";
    int length = 4;
    std::string_view representation{};
    bool cachable = true;
    bool boolean = false;
};

class document_writer {
public:
    document_writer(std::string_view vendor, std::string_view model);
    void raw(std::string_view nodes);
    void category(std::string_view name, const std::vector<std::string>& features);
    // Each writes the feature and its register "<name>_Register".
    void integer(std::string_view name, uint32_t address, const node_options& options);
    void masked(std::string_view name, uint32_t address, int msb, int lsb, const node_options& options);
    void boolean(std::string_view name, uint32_t address, const node_options& options);
    void floating(std::string_view name, uint32_t address, int length, reg::limits range, std::string_view unit,
                  const node_options& options);
    void text(std::string_view name, uint32_t address, int length, std::string_view access);
    void enumeration(std::string_view name, uint32_t address, const std::vector<reg::named_id>& entries,
                     const node_options& options);
    void command(std::string_view name, uint32_t address);
    // "<name>_Value": the value of an enumeration as an integer, which alone may index a register.
    void selected_index(std::string_view name, std::size_t max);
    [[nodiscard]] std::string finish();

private:
    [[nodiscard]] std::string conditions(const node_options& options) const;
    [[nodiscard]] std::string limits(const node_options& options) const;
    void int_register(std::string_view name, uint32_t address, const node_options& options);
    std::string document;
};

} // namespace camera_sim
