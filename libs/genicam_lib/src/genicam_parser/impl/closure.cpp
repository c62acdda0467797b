// The walk. A node enters the set once; two marks say what has been walked from it.
//
//   users of X:   every node X invalidates gets its sources walked, every user of X its users.
//   sources of X: breadth first over what X reads and what X invalidates, taking only nodes new to the set; then the
//                 users of X and of each node taken.
//
// So a write reaches whoever reads the value, and a declared invalidation also reaches down to the registers below the
// node named. The two call each other to any depth, hence the explicit stack.
#include "closure.h"

#include <algorithm>

namespace GenICam::impl {

namespace {

constexpr uint8_t sources_walked = 1;
constexpr uint8_t users_walked = 2;

class closure_walk {
public:
    explicit closure_walk(uint32_t number) : walk(number) {}

    void run(IEval& start, closure_start how) {
        mark(start, sources_walked);
        mark(start, users_walked);
        if (how == closure_start::users) {
            push_users(start);
        } else {
            push_sources(start);
        }
        while (!stack.empty()) step();
    }

    std::vector<IEval*> found; // the set, in the order of entry

private:
    struct frame {
        IEval* node;
        bool sources;
        std::size_t next_invalidated; // for users
        std::size_t next_user;
        std::size_t taken_begin; // for sources: the range in `taken`
        std::size_t next_taken;
    };

    // True when the mark is new.
    bool mark(IEval& node, uint8_t bit) {
        enter(node);
        if (node.visit.marks & bit) return false;
        node.visit.marks |= bit;
        return true;
    }
    bool enter(IEval& node) {
        if (node.visit.walk == walk) return false;
        node.visit = {walk, 0};
        found.push_back(&node);
        return true;
    }

    void push_users(IEval& node) { stack.push_back({&node, false, 0, 0, 0, 0}); }

    void push_sources(IEval& node) {
        const std::size_t begin = taken.size();
        taken.push_back(&node);
        for (std::size_t at = begin; at < taken.size(); ++at) {
            scratch.clear();
            taken[at]->collect_sources(scratch);
            for (IEval* source : scratch) {
                if (!enter(*source)) continue;
                mark(*source, sources_walked);
                taken.push_back(source);
            }
        }
        stack.push_back({&node, true, 0, 0, begin, begin});
    }

    void step() {
        frame& top = stack.back();
        if (top.sources) {
            if (top.next_taken == taken.size()) {
                taken.resize(top.taken_begin);
                stack.pop_back();
                return;
            }
            IEval& node = *taken[top.next_taken++];
            // The node asked for is walked in any case, and harmlessly twice: its users carry marks of their own.
            if (mark(node, users_walked) || &node == top.node) push_users(node);
            return;
        }
        const auto invalidated = top.node->get_invalidates();
        while (top.next_invalidated < invalidated.size()) {
            IEval& node = *invalidated[top.next_invalidated++];
            if (mark(node, sources_walked)) return push_sources(node);
        }
        const auto users = top.node->get_users();
        while (top.next_user < users.size()) {
            IEval& node = *users[top.next_user++];
            if (mark(node, users_walked)) return push_users(node);
        }
        stack.pop_back();
    }

    uint32_t walk;
    std::vector<frame> stack;
    std::vector<IEval*> taken; // a stack of ranges, the last belongs to the topmost frame of sources
    std::vector<IEval*> scratch;
};

} // namespace

IEval* const* lazy_closure::build(IEval& start, closure_start how, document_services& services) {
    closure_state& state = services.closures();
    const std::lock_guard guard{state.lock};
    if (IEval* const* built = items.load(std::memory_order_relaxed)) return built;
    closure_walk walk{++state.last_walk};
    walk.run(start, how);
    auto* list =
        static_cast<IEval**>(services.memory_resource().allocate(walk.found.size() * sizeof(IEval*), alignof(IEval*)));
    std::ranges::copy(walk.found, list);
    count = static_cast<uint32_t>(walk.found.size());
    items.store(list, std::memory_order_release);
    return list;
}

} // namespace GenICam::impl
