// The block of settings that library and service share, as the producer's modules call it.
#pragma once
#include <auto_alg/settings_block.h>

namespace gds_producer {

using auto_alg::settings_block;

} // namespace gds_producer
