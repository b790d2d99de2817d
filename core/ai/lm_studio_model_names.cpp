#include "core/ai/lm_studio_model_names.hpp"

#include <algorithm>

namespace orvane {

LMStudioModelNames lmStudioModelNames(const std::string& modelsFolder,
                                      const std::function<std::optional<std::vector<std::string>>(const std::string&)>& list,
                                      std::size_t limit) {
    const auto sortedEntries = [&](const std::string& folder) {
        auto names = list(folder).value_or(std::vector<std::string>{});
        std::sort(names.begin(), names.end());
        return names;
    };
    LMStudioModelNames found;
    for (const auto& publisher : sortedEntries(modelsFolder)) {
        if (publisher.starts_with(".")) continue;
        for (const auto& model : sortedEntries(modelsFolder + "/" + publisher)) {
            if (model.starts_with(".")) continue;
            ++found.total;
            if (found.names.size() < limit) found.names.push_back(publisher + "/" + model);
        }
    }
    return found;
}

}  // namespace orvane
