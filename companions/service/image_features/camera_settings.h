// The settings of one open camera: the block of memory that its clients share with the service, and the service's own
// registers beside it.
#pragma once

#include "registers.h"

#include <gds_gentl_producer/settings_block.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <system_error>

namespace image_features {

// Thread-safe. The block's bytes are the clients' to write: nothing there is believed.
class camera_settings final {
public:
    // Shared with `user` alone where there is one, else with this process's user and `group`. Throws std::system_error.
    camera_settings(std::optional<uint32_t> group, std::optional<uint32_t> user);
    ~camera_settings();
    camera_settings(const camera_settings&) = delete;
    camera_settings& operator=(const camera_settings&) = delete;

    [[nodiscard]] const std::string& name() const noexcept;
    [[nodiscard]] gds_producer::settings_block block() const noexcept { return shared; }
    // A client has taken the memory away.
    [[nodiscard]] bool is_broken() const noexcept;

    // For a new controller: what another has left behind, for those who only look on, is not his.
    void reset();

    // By the remote port: one whole register. Errors of a camera's kind: invalid_address, write_protect,
    // invalid_parameter for a value out of its limits.
    [[nodiscard]] std::error_code read(uint64_t address, std::span<std::byte> to) const;
    [[nodiscard]] std::error_code write(uint64_t address, std::span<const std::byte> from);

    // What the camera takes. Limits of the automatic functions that nobody has narrowed are these, others are brought
    // within.
    void set_exposure_range(float lowest, float highest);
    void set_gain_range(float lowest, float highest);
    void set_iris_range(int64_t lowest, int64_t highest);

    [[nodiscard]] bool automatic_function_is_on() const;
    // What a once-function has left behind when it is over.
    void take_finished() const;
    // A controller has put the camera's values here; one who only looks on leaves them alone.
    [[nodiscard]] bool has_controller_values() const noexcept { return controlled; }

private:
    struct memory;
    void set_all_neutral(); // under the mutex, once others have the object
    // The block or the service's own, with the offset within it.
    [[nodiscard]] std::pair<gds_producer::settings_block, std::size_t> place(std::size_t offset) const;
    [[nodiscard]] double value_of(const register_entry& entry) const;
    [[nodiscard]] bool takes(const register_entry& entry, double value) const;
    // A function that is switched on begins with the camera's values, not with what it computed when it was last on.
    void forget_results_of(std::size_t offset) const;
    template <class T>
    void set_range(std::size_t lowest_at, std::size_t min_at, bool& known, T lowest, T highest);

    const std::unique_ptr<memory> mapped;
    const gds_producer::settings_block shared;
    alignas(8) std::array<std::byte, gds_producer::settings_block::minimum_size> own{};
    const gds_producer::settings_block owned{own};
    std::atomic<bool> controlled{false}; // from the first reset on
    mutable std::mutex mutex; // of writes, so that limits are looked at and stored in one; guards what follows
    bool exposure_known = false;
    bool gain_known = false;
    bool iris_known = false;
};

// One block per camera and user, for as long as anybody has it. Thread-safe.
class settings_registry final {
public:
    // Null when there is no shared memory to be had; `error` says why.
    [[nodiscard]] std::shared_ptr<camera_settings> get(uint64_t mac, std::optional<uint32_t> group,
                                                       std::optional<uint32_t> user, std::error_code& error);

private:
    std::mutex mutex; // guards what follows
    std::map<std::pair<uint64_t, std::optional<uint32_t>>, std::weak_ptr<camera_settings>> known;
};

} // namespace image_features
