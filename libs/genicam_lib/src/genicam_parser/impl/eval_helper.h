// Reads and writes a node of any value kind as a value of the kind wanted.
#pragma once

#include <GenICam/INode.h>
#include <math_parser/math_parser.h>

namespace GenICam::impl {

// T is int64_t, double, bool or math_parser::tValue. A float read as integer is rounded half away from zero. Nodes
// without a number answer not_implemented.
template <class T>
[[nodiscard]] result<T> get_eval_val(INode& node, unsigned flags);

// Intended: a tValue that meets an integer node is rounded, a plain double is truncated.
template <class T>
[[nodiscard]] std::error_code set_eval_val(INode& node, T value, unsigned flags);

enum class limit { min, max, inc };

// Integer and float nodes only, others answer not_implemented. T is int64_t, double or math_parser::tValue.
template <class T>
[[nodiscard]] result<T> get_eval_limit(INode& node, limit which, unsigned flags);

} // namespace GenICam::impl
