// The open modules below one, by id; the owning references to them. Thread-safe.
//
// Opening one asks the service or the camera, for seconds perhaps, so no lock is held meanwhile: an empty place keeps
// others from opening the same module, and different ones open side by side.
#pragma once

#include <gentl_producer/HandleMap.h>
#include <gentl_producer/Modules.h>

#include <algorithm>
#include <expected>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace GenTL::Producer {

template <class Child>
class OpenChildren {
public:
    // `create` makes the module, without a lock. `in_use`: the answer when it is open already; `parent_gone`: when all
    // are being closed or were.
    template <class Create>
    Error open(const std::string& id, HandleKind kind, void** handle, Error in_use, Error parent_gone, Create create) {
        {
            const std::lock_guard guard{mutex};
            if (is_closed) return parent_gone;
            if (!children.try_emplace(id).second) return in_use;
        }
        place_of_one place{*this, id};
        std::expected<std::shared_ptr<Child>, Error> created = create();
        std::unique_lock guard{mutex};
        if (is_closed) { // the place went with the others
            guard.unlock();
            if (created) (*created)->close_children();
            return parent_gone;
        }
        if (!created) return std::move(created.error());
        *handle = add_handle(id, *created, kind);
        children[id] = std::move(*created);
        place.filled = true;
        return success();
    }

    // For good: the parent is closed.
    void close_all() {
        const std::lock_guard turn{closing_turn};
        std::map<std::string, std::shared_ptr<Child>> closing;
        {
            const std::lock_guard guard{mutex};
            closing.swap(children);
            is_closed = true;
        }
        for (const auto& [id, child] : closing) {
            if (!child) continue; // being opened: whoever does it sees that all is closed
            remove_handle(child.get());
            // Not left to the destructor: a call under way on another thread may put that off.
            child->close_children();
        }
    }

    // Not by its id, under which another one may be open by now, after a first of two closing calls; nor does this take
    // memory, which an id does.
    void forget(const Child* closed) {
        std::shared_ptr<Child> kept_until_unlocked;
        const std::lock_guard guard{mutex};
        const auto found = std::ranges::find(children, closed, [](const auto& child) { return child.second.get(); });
        if (found == children.end()) return;
        kept_until_unlocked = std::move(found->second);
        children.erase(found);
    }

private:
    // Empties the place of a module that did not come into being, whatever was thrown.
    struct place_of_one {
        ~place_of_one() {
            if (filled) return;
            const std::lock_guard guard{all.mutex};
            all.children.erase(id);
        }
        OpenChildren& all;
        const std::string& id;
        bool filled = false;
    };

    // Held over the whole of a close, and outside all other locks of the modules: when a close returns, nothing below
    // writes to the consumer's memory any more. Recursive for a signal's handler that closes the library on the thread
    // that closes a module already; it hangs all the same where that thread holds another lock (a stream's own start,
    // stop or close; another close of the library), or where a second thread closes the library meanwhile.
    std::recursive_mutex closing_turn;
    std::mutex mutex;                                       // guards what follows
    std::map<std::string, std::shared_ptr<Child>> children; // null while the module is being opened
    bool is_closed = false;                                 // for good
};

} // namespace GenTL::Producer
