#include "firmware_upload.h"

#include <gds_shared/gigecam_error.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace gvcp_master {

namespace fw = gige::firmware;
using clock = std::chrono::steady_clock;
using gds_shared::gigecam_errc;

namespace {

constexpr std::size_t block_size = 512;
constexpr milliseconds poll_time{100};
constexpr milliseconds question_time{500};
constexpr std::size_t version_size = 32;

} // namespace

std::expected<install_command, std::string> write_firmware(device_control& camera, const firmware_package& package,
                                                           const std::stop_token& stop,
                                                           const std::function<void(std::string)>& tell,
                                                           const firmware_times& times) {
    const auto failed = [](const char* doing, const std::error_code& error) {
        return std::unexpected(fmt::format("{}: {}", doing, error.message()));
    };
    const auto image = std::as_bytes(std::span{package.image});
    if ((camera.capability() & gige::gvcp::bits::can_write_mem) == 0)
        return std::unexpected("the camera takes no blocks of memory");
    for (const auto& [offset, value] : {std::pair{fw::length, static_cast<uint32_t>(image.size())},
                                        {fw::checksum, package.checksum},
                                        {fw::command, fw::begin}})
        if (const auto error = camera.write_register(package.registers + offset, value))
            return failed("the camera does not begin", error);

    int shown = -1;
    std::array<std::byte, block_size> block;
    auto give_up = clock::now() + times.upload;
    for (std::size_t at = 0; at < image.size(); at += block_size) {
        if (stop.stop_requested()) return std::unexpected("the service ends");
        const int percent = static_cast<int>(at * 100 / image.size());
        if (percent != shown) tell(fmt::format("Uploading: {} %", shown = percent));
        if (clock::now() >= give_up)
            return std::unexpected(fmt::format("the upload took too long and was broken off at {} %", percent));
        const auto part = image.subspan(at, std::min(block_size, image.size() - at));
        // Whole words; the length tells where the image ends.
        std::ranges::fill(block, std::byte{0});
        std::ranges::copy(part, block.begin());
        const auto words = std::span{block}.first((part.size() + 3) / 4 * 4);
        if (const auto error = camera.write_memory(package.region + at, words))
            return failed(fmt::format("the upload broke off at {} %", percent).c_str(), error);
    }
    tell("Uploading: 100 %");
    if (const auto error = camera.write_register(package.registers + fw::command, fw::install)) {
        if (stop.stop_requested()) return std::unexpected("the service ends");
        // A camera that has restarted in the meantime, too, does not know us any more.
        const bool unheard = camera.is_lost() || error == make_error_code(gigecam_errc::timeout) ||
                             error == make_error_code(gigecam_errc::access_denied);
        if (unheard) return install_command::unanswered;
        return failed("the camera does not install the image", error);
    }

    give_up = clock::now() + times.installation;
    for (shown = -1; clock::now() < give_up;) {
        if (stop.stop_requested()) return std::unexpected("the service ends; the camera installs by itself");
        const auto progress = camera.read_register(package.registers + fw::progress, milliseconds{1000});
        // It restarts when it is done: without a word, or with none of what it said before. A lost answer, or one that
        // it is busy, is no restart; nor is a lost session, but that is not ours to find out.
        if (camera.is_lost()) return install_command::acknowledged;
        if (!progress) {
            (void)gige::wait_readable({}, clock::now() + poll_time);
            continue;
        }
        const auto state = fw::state_of(*progress);
        const int percent = static_cast<int>(std::min(fw::percent_of(*progress), 100U));
        if (state == fw::state::refused) return std::unexpected("the camera refuses the image");
        if (state == fw::state::installed || state == fw::state::idle) return install_command::acknowledged;
        if (percent != shown) tell(fmt::format("Installing: {} %", shown = percent));
        (void)gige::wait_readable({}, clock::now() + poll_time);
    }
    return std::unexpected("the camera does not come to the installation's end");
}

std::optional<firmware_state> read_firmware_state(const device_record& camera, uint32_t registers,
                                                  const std::stop_token& stop) {
    if (!camera.reachable) return {};
    const auto opened = control_channel::open({camera.address, gige::gvcp::port}, {camera.local_address, 0}, {});
    if (!opened) return {};
    auto& channel = **opened;
    const std::stop_callback on_stop{stop, [&] { channel.cancel(); }};
    std::array<std::byte, 8> mac;
    if (channel.read_block(gige::gvcp::reg::mac_high, mac, question_time)) return {};
    if ((gige::load64(mac.data()) & 0xFFFF'FFFF'FFFF) != camera.mac) return {};
    const auto progress = channel.read_register(registers + fw::progress, question_time);
    std::array<std::byte, version_size> version;
    if (!progress || channel.read_block(gige::gvcp::reg::device_version, version, question_time)) return {};
    const auto end = std::ranges::find(version, std::byte{0});
    return firmware_state{
        fw::state_of(*progress),
        std::min(fw::percent_of(*progress), 100U),
        {reinterpret_cast<const char*>(version.data()), static_cast<std::size_t>(end - version.begin())}};
}

} // namespace gvcp_master
