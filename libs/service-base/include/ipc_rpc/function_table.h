// The functions that one end of a connection offers to the other, and what a function sees when it is called.
#pragma once

#include <ipc_rpc/param_block.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ipc_rpc {

class rpc_connection_client;

// Lives for one call, on one executor thread.
struct rpc_call_context {
    param_reader parameters;
    std::vector<std::byte> result;
    std::shared_ptr<rpc_connection_client> connection;
    std::shared_ptr<void> object; // null for a global function
    std::shared_ptr<void> held{}; // by the function, until the answer has been sent
};

// Returns success with the encoded result in the context, or the status of the error reply. May throw a status.
using rpc_function = std::function<status(rpc_call_context&)>;

// Handle of an object that this end has registered, as a function returns it to the caller.
struct registered_object {
    std::uint64_t handle = 0;
    using wire_packed = void;
};

// Filled before the connection is made, then only read: shared by its threads without a lock.
class object_function_table_root final {
public:
    // Names are compared whole. status::name_already_used for a second one, null_registration for an empty function.
    [[nodiscard]] std::error_code add_global(std::string name, rpc_function function);
    [[nodiscard]] std::error_code add_method(std::string class_name, std::string name, rpc_function function);

    // Null when there is none.
    [[nodiscard]] const rpc_function* find_global(std::string_view name) const noexcept;
    [[nodiscard]] const rpc_function* find_method(std::string_view class_name, std::string_view name) const noexcept;

private:
    using entries = std::vector<std::pair<std::string, rpc_function>>;
    [[nodiscard]] static std::error_code add(entries& to, std::string name, rpc_function function);
    [[nodiscard]] static const rpc_function* find(const entries& in, std::string_view name) noexcept;

    entries global_functions;
    std::vector<std::pair<std::string, entries>> classes;
};

// An object that the other end may call by handle, with the class whose functions it has.
struct object_entry {
    std::string class_name;
    std::shared_ptr<void> owned;  // kept alive until the handle is closed or the connection ends
    std::weak_ptr<void> observed; // used when `owned` is null: calls answer status 41 once it has expired
    // Called when the handle is about to be closed or the connection ends, while the object is registered: calls on it
    // that still run or wait are to end. It must not wait, nor come back to the connection.
    std::function<void()> on_end = {};

    template <class T>
    [[nodiscard]] static object_entry owning(std::string class_name, std::shared_ptr<T> object) {
        return {std::move(class_name), std::move(object), {}, {}};
    }
    template <class T>
    [[nodiscard]] static object_entry observing(std::string class_name, const std::shared_ptr<T>& object) {
        return {std::move(class_name), nullptr, object, {}};
    }
};

// Wraps `std::expected<R, std::error_code> body(rpc_call_context&, Args...)` with decoding and encoding.
template <class Result, class... Args, class Body>
[[nodiscard]] rpc_function make_function(Body body) {
    return [body = std::move(body)](rpc_call_context& context) {
        std::tuple<Args...> arguments; // NOLINT(misc-const-correctness): where there are any, decode fills them
        const bool complete =
            std::apply([&](Args&... item) { return (decode(context.parameters, item) && ...); }, arguments);
        if (!complete) return status::bad_parameter;
        const std::expected<Result, std::error_code> answer =
            std::apply([&](Args&... item) { return body(context, std::move(item)...); }, arguments);
        param_writer out;
        encode(out, answer);
        context.result = std::move(out.buffer());
        return status::success;
    };
}

// The same for a method: `body(Object&, rpc_call_context&, Args...)`.
template <class Object, class Result, class... Args, class Body>
[[nodiscard]] rpc_function make_method(Body body) {
    return make_function<Result, Args...>([body = std::move(body)](rpc_call_context& context, Args&&... item) {
        return body(*static_cast<Object*>(context.object.get()), context, std::move(item)...);
    });
}

} // namespace ipc_rpc
