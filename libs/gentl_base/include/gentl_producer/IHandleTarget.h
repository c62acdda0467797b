// The common root of everything that can stand behind a handle.
#pragma once

#include <memory>

namespace GenTL::Producer {

// Derived from virtually: a module is a target through several interfaces and must have one address, its handle.
class IHandleTarget : public std::enable_shared_from_this<IHandleTarget> {
public:
    virtual ~IHandleTarget() = default;

    // The module above, which this one uses by plain reference; null when there is none to use. Whoever calls this
    // object holds that module as well, and in turn the one above it, until the call is over.
    [[nodiscard]] virtual const std::weak_ptr<IHandleTarget>* parent_target() const noexcept { return nullptr; }
};

} // namespace GenTL::Producer
