// The walk. A node enters the set once; two marks say what has been walked from it.
//
//   users of X:   every node X invalidates gets its sources walked, every user of X its users.
//   sources of X: breadth first over what X reads and what X invalidates, taking only nodes new to the set; then the
//                 users of X and of each node taken.
//
// So a write reaches whoever reads the value, and a declared invalidation also reaches down to the registers below the
// node named. The two call each other to any depth, hence the explicit stack. Of several starts the sources are one
// breadth first pass, before any users.
#include "closure.h"

#include "eval_scope.h"

#include <algorithm>

namespace GenICam::impl {

namespace {

constexpr uint8_t sources_walked = 1;
constexpr uint8_t users_walked = 2;

// A link looked at by a walk and an entry of a list take less than a step.
constexpr std::size_t links_in_a_step = 16;

class closure_walk {
public:
    explicit closure_walk(uint64_t number) : walk(number) {}

    void run(std::span<const closure_start> starts) {
        is_joint = starts.size() > 1;
        for (const auto& [node, first] : starts) {
            mark(*node, sources_walked);
            if (first == closure_start::from::sources) taken.push_back(node);
        }
        if (!taken.empty()) push_taken(nullptr, 0);
        for (const auto& [node, first] : starts) {
            if (first == closure_start::from::users && mark(*node, users_walked)) push_users(*node);
        }
        while (!stack.empty()) step();
    }

    std::vector<IEval*> found; // the set, in the order of entry
    std::size_t links_looked_at = 0;

private:
    struct frame {
        IEval* node; // null: the starts of the whole walk
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
        node.visit.walk = walk;
        node.visit.marks = 0;
        found.push_back(&node);
        return true;
    }

    void push_users(IEval& node) {
        links_looked_at += node.get_invalidates().size() + node.get_users().size();
        stack.push_back({&node, false, 0, 0, 0, 0});
    }

    void push_sources(IEval& node) {
        taken.push_back(&node);
        push_taken(&node, taken.size() - 1);
    }

    // What has been taken from `begin` on, with its sources.
    void push_taken(IEval* node, std::size_t begin) {
        for (std::size_t at = begin; at < taken.size(); ++at) {
            scratch.clear();
            taken[at]->collect_sources(scratch);
            links_looked_at += scratch.size();
            for (IEval* source : scratch) {
                if (is_joint) { // one that another start's users brought in has sources of its own all the same
                    if (!mark(*source, sources_walked)) continue;
                } else {
                    if (!enter(*source)) continue;
                    mark(*source, sources_walked);
                }
                taken.push_back(source);
            }
        }
        stack.push_back({node, true, 0, 0, begin, begin});
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

    uint64_t walk;
    bool is_joint = false; // for several starts
    std::vector<frame> stack;
    std::vector<IEval*> taken; // a stack of ranges, the last belongs to the topmost frame of sources
    std::vector<IEval*> scratch;
};

} // namespace

std::span<IEval* const> lazy_closure::build(std::span<const closure_start> starts, document_services& services,
                                            std::vector<IEval*>& unkept) {
    if (eval_scope::is_used_up()) return {};
    closure_state& state = services.closures();
    const std::lock_guard guard{state.lock};
    if (IEval* const* built = items.load(std::memory_order_relaxed)) return {built, count};
    closure_walk walk{++state.last_walk};
    walk.run(starts);
    (void)eval_scope::take(walk.links_looked_at / links_in_a_step);
    if (walk.found.size() > state.entries_left) return unkept = std::move(walk.found);
    auto* list =
        static_cast<IEval**>(services.memory_resource().allocate(walk.found.size() * sizeof(IEval*), alignof(IEval*)));
    std::ranges::copy(walk.found, list);
    state.entries_left -= walk.found.size();
    count = static_cast<uint32_t>(walk.found.size());
    items.store(list, std::memory_order_release);
    return {list, count};
}

void invalidate_closure(lazy_closure& list, std::span<const closure_start> starts, const IEval* skipped,
                        document_services& services) {
    std::vector<IEval*> unkept;
    std::span<IEval* const> nodes;
    bool is_whole = false;
    {
        const eval_pass_scope steps;
        nodes = list.get(starts, services, unkept);
        is_whole = eval_scope::take(nodes.size() / links_in_a_step) && !nodes.empty();
        if (is_whole) {
            for (IEval* node : nodes) {
                if (node != skipped) node->on_invalidate();
            }
        }
    }
    if (!is_whole) return services.drop_all_caches();
    for (IEval* node : nodes) node->notify_invalidated();
}

} // namespace GenICam::impl
