#include <ipc_rpc/function_table.h>

#include <algorithm>

namespace ipc_rpc {

std::error_code object_function_table_root::add(entries& to, std::string name, rpc_function function) {
    if (!function) return make_error_code(status::null_registration);
    if (find(to, name) != nullptr) return make_error_code(status::name_already_used);
    to.emplace_back(std::move(name), std::move(function));
    return {};
}

const rpc_function* object_function_table_root::find(const entries& in, std::string_view name) noexcept {
    const auto found = std::ranges::find(in, name, &entries::value_type::first);
    return found == in.end() ? nullptr : &found->second;
}

std::error_code object_function_table_root::add_global(std::string name, rpc_function function) {
    return add(global_functions, std::move(name), std::move(function));
}

std::error_code object_function_table_root::add_method(std::string class_name, std::string name,
                                                       rpc_function function) {
    auto found = std::ranges::find(classes, class_name, &std::pair<std::string, entries>::first);
    if (found == classes.end()) found = classes.emplace(classes.end(), std::move(class_name), entries{});
    return add(found->second, std::move(name), std::move(function));
}

const rpc_function* object_function_table_root::find_global(std::string_view name) const noexcept {
    return find(global_functions, name);
}

const rpc_function* object_function_table_root::find_method(std::string_view class_name,
                                                            std::string_view name) const noexcept {
    const auto found = std::ranges::find(classes, class_name, &std::pair<std::string, entries>::first);
    return found == classes.end() ? nullptr : find(found->second, name);
}

} // namespace ipc_rpc
