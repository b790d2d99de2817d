#include "core/ledger/auto_actions.hpp"

#include <cstdlib>

#include "core/common/json_files.hpp"
#include "core/ledger/internal/serial_queue.hpp"
#include "core/ledger/user_defaults.hpp"

namespace orvane {
namespace {

ledger::internal::SerialQueue& autoActionQ() {
    // Never destroyed, like the ledger's queue, and for the same reason.
    static auto* queue = new ledger::internal::SerialQueue("autoActionLog");
    return *queue;
}

std::vector<std::string> storedList() {
    auto value = userDefault(autoActionLogKey);
    std::vector<std::string> entries;
    if (!value || !value->is_array()) return entries;
    for (const auto& element : *value) {
        if (!element.is_string()) return {};
        entries.push_back(element.get<std::string>());
    }
    return entries;
}

}  // namespace

void recordAutoAction(std::string_view text) {
    autoActionQ().sync([entry = iso8601(Clock::now()) + "|" + std::string(text)] {
        auto entries = storedList();
        entries.push_back(entry);
        if (entries.size() > maxAutoActions)
            entries.erase(entries.begin(), entries.end() - static_cast<std::ptrdiff_t>(maxAutoActions));
        setUserDefault(autoActionLogKey, entries);
    });
}

std::vector<std::string> autoActionLog() {
    return autoActionQ().sync([] { return storedList(); });
}

}  // namespace orvane
