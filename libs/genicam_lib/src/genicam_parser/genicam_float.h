// The forms of "Float".
#pragma once

#include "numeric_nodes.h"

namespace GenICam::impl {

using float_floating_value_type = floating_value_type<double>;
using float_constant_value_type = constant_value_type<double>;
using float_pValue_type = pValue_type<double>;
using float_pIndex_type = pIndex_type<double>;

} // namespace GenICam::impl
