// A leak counter over the framework's long-lived classes, independent of the handle map.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string_view>
#include <vector>

namespace GenTL::Producer::Util {

class TrackedObject;

// Thread-safe.
class ObjectTracker final {
public:
    void add(const char* class_name, const TrackedObject* object);
    void remove(const char* class_name, const TrackedObject* object);
    // Writes what is left to the standard error stream and returns the number of objects.
    int64_t dump();

private:
    std::mutex mutex; // guards objects
    std::map<std::string_view, std::vector<const TrackedObject*>> objects;
};

// Null before the library's static initialisers ran and after its static destructors did.
[[nodiscard]] ObjectTracker* object_tracker() noexcept;

// Private base of the classes that are counted. `class_name` is a literal.
class TrackedObject {
public:
    explicit TrackedObject(const char* name);
    TrackedObject(const TrackedObject&) = delete;
    TrackedObject& operator=(const TrackedObject&) = delete;
    virtual ~TrackedObject();

private:
    const char* class_name;
};

} // namespace GenTL::Producer::Util
