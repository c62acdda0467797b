// A document without a device.
#pragma once

#include <string>

namespace cli {

struct document_options {
    std::string file;
    std::string memory; // bytes behind the port "Device"; empty: zeros
    bool json = false;
    bool time = false;
};

int show_document(const document_options& options);

} // namespace cli
