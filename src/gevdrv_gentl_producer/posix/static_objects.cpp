// The library's static objects are destroyed when it is unloaded, and only then.
//
// Registered with the C library as usual, their destructors would run in the midst of a process's exit handlers: before
// those of a consumer who registered his first and closes the library there, and under threads that still stream when
// he closes nothing at all. So the linker hands all registrations of this library over (--wrap=__cxa_atexit), those of
// third parties' code in it included. What is kept here runs with the library's own termination function: at dlclose,
// or as the last of all things at the end of the process. While the library is in use even then, nothing is destroyed;
// the process gives everything back in the next moment.
#include <gentl_producer/Library.h>

#include <mutex>
#include <new>
#include <vector>

namespace {

struct static_object {
    void (*destroy)(void*);
    void* object;
};

constinit std::mutex mutex; // guards objects
constinit std::vector<static_object>* objects = nullptr;

// The object made last; false when there is none left.
bool take_last(static_object& last) {
    const std::lock_guard guard{mutex};
    if (objects == nullptr || objects->empty()) return false;
    last = objects->back();
    objects->pop_back();
    if (objects->empty()) {
        delete objects;
        objects = nullptr;
    }
    return true;
}

[[gnu::destructor]] void destroy_static_objects() {
    if (!GenTL::Producer::end_library()) return;
    static_object last{};
    while (take_last(last)) last.destroy(last.object);
}

} // namespace

extern "C" int __wrap___cxa_atexit(void (*destroy)(void*), void* object, void*) noexcept;
extern "C" int __wrap___cxa_atexit(void (*destroy)(void*), void* object, void*) noexcept {
    const std::lock_guard guard{mutex};
    try {
        if (objects == nullptr) objects = new std::vector<static_object>;
        objects->push_back({destroy, object});
    } catch (const std::bad_alloc&) {
        return -1; // it is never destroyed then
    }
    return 0;
}
