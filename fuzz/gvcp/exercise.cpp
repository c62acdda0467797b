#include "exercise.h"

#include <GenICam/zip.h>
#include <gds_helper/printable.h>
#include <gvcp/device_document.h>
#include <gvcp/device_record.h>
#include <gvcp/document_http.h>
#include <gvcp/firmware_package.h>
#include <gvcp/message_receiver.h>
#include <gvcp/posix/document_file.h>

#include <cstdlib>

namespace fuzz {

namespace {

// What must hold whatever comes in.
void require(bool holds) {
    if (!holds) std::abort();
}

std::string text_of(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

} // namespace

void exercise_ack(std::span<const std::byte> datagram) {
    const auto ack = gige::gvcp::parse_ack(datagram);
    if (!ack) return;
    const auto body = datagram.subspan(gige::gvcp::header_size, ack->length);
    require(body.size() == ack->length);
    const auto device = gvcp_master::parse_discovery(body);
    require(device.has_value() == (body.size() >= gige::gvcp::discovery_size));
    if (!device) return;
    require(device->mac >> 48 == 0 && device->vendor.size() <= 32 && device->user_name.size() <= 16);
    for (const char each : gds_helper::printable(device->vendor + device->user_name))
        require(each >= ' ' && each <= '~');
}

void exercise_url(std::span<const std::byte> text) {
    const auto url = gvcp_master::parse_document_url(text_of(text));
    require(url.url.size() == text.size());
    require(url.scheme.has_value() || (url.name.empty() && url.address == 0 && url.size == 0));
    static_cast<void>(url.zipped());
    if (!url.scheme) return;
    // Neither may leave its place: there is no such folder, and no host has that address.
    if (*url.scheme == gvcp_master::url_scheme::file)
        require(!gvcp_master::read_file_below("/nonexistent/folder", url.name));
    if (*url.scheme == gvcp_master::url_scheme::http)
        require(!gvcp_master::fetch_http(url.name, 0xF0000001, gvcp_master::milliseconds{0}));
}

void exercise_zip(std::span<const std::byte> archive) {
    const auto content = GenICam::document_text(text_of(archive));
    require(!content || content->size() <= GenICam::largest_document);
    if (auto opened = GenICam::zip_archive::open(archive)) { // also what does not begin like one
        const auto document = opened->read_document();
        require(!document || document->size() <= GenICam::largest_document);
    }
    const auto package = gvcp_master::read_firmware_package(archive);
    require(!package || package->image.size() <= package->region_size);
}

void exercise_event(std::span<const std::byte> datagram) {
    const auto header = gvcp_master::parse_event(datagram);
    if (!header) return;
    require(header->length >= 16 && gige::gvcp::header_size + header->length <= datagram.size());
    require(header->request_id != 0);
}

} // namespace fuzz
