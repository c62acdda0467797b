// Which nodes an access invalidates, as a flat list, and the pass over it.
#pragma once

#include "document_services.h"

#include <atomic>

namespace GenICam::impl {

struct closure_start {
    enum class from { users, sources };

    IEval* node;
    from first;
};

// The list, made when it is first needed: a document has thousands of nodes and a session writes a few dozen, while the
// lists of a document in which everything hangs together grow with the square of its size. Made once, then only read;
// one that finds no room among the lists kept is made again each time.
class lazy_closure {
public:
    // Takes the steps of a walk, see closure.cpp. What is not kept stands in `unkept`; nothing else allocates but the
    // first call.
    [[nodiscard]] std::span<IEval* const> get(std::span<const closure_start> starts, document_services& services,
                                              std::vector<IEval*>& unkept) {
        IEval* const* built = items.load(std::memory_order_acquire);
        if (built != nullptr) return {built, count};
        return build(starts, services, unkept);
    }

private:
    [[nodiscard]] std::span<IEval* const> build(std::span<const closure_start> starts, document_services& services,
                                                std::vector<IEval*>& unkept);

    // Written once under the closure lock; the release pairs with the acquire above and covers count.
    std::atomic<IEval* const*> items{nullptr};
    uint32_t count = 0;
};

// All caches of the list first, except that of `skipped`, then all callbacks, so that a callback reads consistent data.
// Lists count against the steps of the access's passes. Once these are used up, which takes millions of nodes in one
// access, all caches of the document are dropped instead and nobody is called.
void invalidate_closure(lazy_closure& list, std::span<const closure_start> starts, const IEval* skipped,
                        document_services& services);

} // namespace GenICam::impl
