// Which nodes an access invalidates: a flat list per starting node.
#pragma once

#include "document_services.h"

#include <atomic>

namespace GenICam::impl {

enum class closure_start { users, sources };

// The list, made when it is first needed: a document has thousands of nodes and a session writes a few dozen, while the
// lists of a document in which everything hangs together grow with the square of its size. Made once, then only read.
class lazy_closure {
public:
    // Allocates on the first call for this node only.
    [[nodiscard]] std::span<IEval* const> get(IEval& start, closure_start how, document_services& services) {
        IEval* const* built = items.load(std::memory_order_acquire);
        if (built == nullptr) built = build(start, how, services);
        return {built, count};
    }

private:
    IEval* const* build(IEval& start, closure_start how, document_services& services);

    // Written once under the closure lock; the release pairs with the acquire above and covers count.
    std::atomic<IEval* const*> items{nullptr};
    uint32_t count = 0;
};

} // namespace GenICam::impl
