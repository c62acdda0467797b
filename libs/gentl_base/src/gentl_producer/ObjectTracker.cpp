#include <gentl_producer/ObjectTracker.h>

#include <cinttypes>
#include <cstdio>
#include <utility>

namespace GenTL::Producer::Util {

namespace {

// Outlives its owner, so that objects of other static destructors find "gone" instead of a dead tracker. As a member
// of the owner the last assignment would be of no effect, and compilers drop it.
constinit ObjectTracker* g_object_tracker = nullptr;

struct tracker_owner {
    tracker_owner() { g_object_tracker = new ObjectTracker; }
    ~tracker_owner() { delete std::exchange(g_object_tracker, nullptr); }
};
const tracker_owner owner;

} // namespace

ObjectTracker* object_tracker() noexcept { return g_object_tracker; }

void ObjectTracker::add(const char* class_name, const TrackedObject* object) {
    const std::lock_guard guard{mutex};
    objects[class_name].push_back(object);
}

void ObjectTracker::remove(const char* class_name, const TrackedObject* object) {
    const std::lock_guard guard{mutex};
    std::erase(objects[class_name], object);
}

int64_t ObjectTracker::dump() {
    const std::lock_guard guard{mutex};
    int64_t total = 0;
    for (const auto& [name, alive] : objects) total += static_cast<int64_t>(alive.size());
    if (total == 0) return 0;
    // Not fmt's print, which throws where standard error takes nothing.
    std::fprintf(stderr, "%" PRId64 " objects left alive\n", total);
    for (const auto& [name, alive] : objects)
        std::fprintf(stderr, "  %.*s: %zu\n", static_cast<int>(name.size()), name.data(), alive.size());
    return total;
}

TrackedObject::TrackedObject(const char* name) : class_name(name) {
    if (auto* tracker = object_tracker()) tracker->add(class_name, this);
}

TrackedObject::~TrackedObject() {
    if (auto* tracker = object_tracker()) tracker->remove(class_name, this);
}

} // namespace GenTL::Producer::Util
