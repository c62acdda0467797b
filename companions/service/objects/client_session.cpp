#include "client_session.h"

namespace service {

namespace limits = ipc_rpc::limits;

client_session::client_session(notify_function raise, std::optional<uint32_t> user, const user_budget& of_user)
    : notify(std::move(raise)),
      peer_user(user),
      seats(std::make_shared<ipc_rpc::byte_budget>(limits::most_open_devices, of_user.open_devices)),
      documents(std::make_shared<ipc_rpc::byte_budget>(limits::most_document_bytes, of_user.document_bytes)),
      answers(std::make_shared<ipc_rpc::byte_budget>(limits::most_answer_bytes, of_user.answer_bytes)) {}

// Makes its object first: nothing is taken that a failure would leave taken.
std::shared_ptr<client_session::number> client_session::allocate() {
    auto made = std::make_shared<number>(shared_from_this(), 0);
    const std::lock_guard guard{mutex};
    for (std::size_t i = 1; i < used.size(); ++i) {
        last = last % limits::most_numbers + 1;
        if (used[last]) continue;
        used[last] = true;
        made->value = last;
        return made;
    }
    return nullptr;
}

void client_session::give_back(uint64_t value) {
    const std::lock_guard guard{mutex};
    used[value] = false;
}

std::shared_ptr<ipc_rpc::reserved_bytes> client_session::take_device_seat() {
    return ipc_rpc::reserved_bytes::take(seats, 1);
}

std::shared_ptr<const std::string> client_session::keep_document(std::shared_ptr<const std::string> document) {
    const std::lock_guard guard{mutex};
    std::erase_if(kept_documents, [](const auto& each) { return each.expired(); });
    for (const auto& each : kept_documents)
        if (auto same = each.lock(); same.get() == document.get()) return same;
    struct charged {
        std::shared_ptr<const std::string> text;
        std::shared_ptr<ipc_rpc::reserved_bytes> bytes;
    };
    auto bytes = ipc_rpc::reserved_bytes::take(documents, document->size());
    if (!bytes) return nullptr;
    const auto made = std::make_shared<charged>(std::move(document), std::move(bytes));
    std::shared_ptr<const std::string> kept{made, made->text.get()};
    kept_documents.push_back(kept);
    return kept;
}

} // namespace service
