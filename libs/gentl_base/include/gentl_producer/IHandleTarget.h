// The common root of everything that can stand behind a handle.
#pragma once

namespace GenTL::Producer {

// Derived from virtually: a module is a target through several interfaces and must have one address, its handle.
class IHandleTarget {
public:
    virtual ~IHandleTarget() = default;
};

} // namespace GenTL::Producer
