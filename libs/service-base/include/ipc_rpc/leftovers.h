// Names in shared memory that services left which were killed.
#pragma once

#include <string>
#include <vector>

namespace ipc_rpc {

// Of processes that no longer live. A name tells who made it; those of other process namespaces are nobody's to judge.
[[nodiscard]] std::vector<std::string> find_leftovers();
// The number of names removed; those of other users stay.
std::size_t remove_leftovers();

} // namespace ipc_rpc
