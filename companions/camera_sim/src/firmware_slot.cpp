#include "firmware_slot.h"

#include <camera_sim/firmware_image.h>
#include <camera_sim/registers.h>

#include <zlib.h>

#include <vector>

namespace camera_sim {

namespace fw = gige::firmware;
using status = gige::gvcp::status;

namespace {

constexpr uint32_t steps = 10; // of an installation
constexpr uint32_t control(uint32_t offset) { return reg::firmware_control + offset; }

} // namespace

void firmware_slot::add_registers() {
    auto& memory = device.memory;
    memory.add_region(reg::firmware_control, fw::registers_size);
    memory.allow(control(fw::length), 8, access::read_write);
    memory.allow(control(fw::command), 4, access::write);
    memory.allow(control(fw::progress), 4, access::read);
    memory.add_region(reg::firmware_region, reg::firmware_region_size);
    memory.allow(reg::firmware_region, reg::firmware_region_size, access::write);
}

status firmware_slot::validate(uint32_t address, uint32_t value) const {
    const bool in_region =
        address >= reg::firmware_region && address - reg::firmware_region < reg::firmware_region_size;
    if (in_region) return now == fw::state::receiving ? status::success : status::access_denied;
    switch (address) {
    case control(fw::length):
        return value == 0 || value > reg::firmware_region_size ? status::invalid_parameter : status::success;
    case control(fw::command):
        if (value != fw::begin && value != fw::install) return status::invalid_parameter;
        if (now == fw::state::installing) return status::busy;
        return value == fw::install && now != fw::state::receiving ? status::access_denied : status::success;
    default:
        return status::success;
    }
}

void firmware_slot::after_write(uint32_t address, uint32_t value) {
    if (address != control(fw::command)) return;
    if (value == fw::begin) return enter(fw::state::receiving, 0);
    if (!image_is_sound()) return enter(fw::state::refused, 0);
    enter(fw::state::installing, 0);
    next_step = std::chrono::steady_clock::now() + std::chrono::milliseconds{device.options.install_ms / steps};
}

bool firmware_slot::image_is_sound() {
    std::vector<std::byte> image;
    uint32_t expected = 0;
    {
        const std::lock_guard guard{device.mutex};
        image.resize(device.memory.get(control(fw::length)));
        expected = device.memory.get(control(fw::checksum));
        device.memory.copy_out(reg::firmware_region, image);
    }
    const auto sum = ::crc32(0, reinterpret_cast<const Bytef*>(image.data()), static_cast<uInt>(image.size()));
    const auto header = parse_firmware_image(image);
    if (sum != expected || !header || header->model != device.options.model) return false;
    new_version = header->version;
    return true;
}

void firmware_slot::enter(fw::state next, uint32_t done) {
    now = next;
    percent = done;
    const std::lock_guard guard{device.mutex};
    device.memory.set(control(fw::progress), fw::progress_value(now, percent));
}

void firmware_slot::abandon() {
    if (now == fw::state::receiving) enter(fw::state::idle, 0);
}

void firmware_slot::restarted() {
    next_step.reset();
    enter(fw::state::idle, 0);
}

bool firmware_slot::work_deadline() {
    if (!next_step || *next_step > std::chrono::steady_clock::now()) return false;
    if (percent < 100) {
        enter(fw::state::installing, percent + 100 / steps);
        *next_step += std::chrono::milliseconds{device.options.install_ms / steps};
        return false;
    }
    next_step.reset();
    enter(fw::state::installed, 100);
    const std::lock_guard guard{device.mutex};
    device.firmware_version = new_version;
    return true;
}

} // namespace camera_sim
