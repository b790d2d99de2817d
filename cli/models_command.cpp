// orvane models: every local AI model under a home, named in its store's words, with what removing
// it alone frees, when it was last read and what a new download would take; then each Ollama store
// blob by blob, with the blobs no model uses any more.
#include <fmt/format.h>

#include <memory>

#include "cli/command.hpp"
#include "core/ai/model_library.hpp"
#include "core/ai/ollama_store.hpp"
#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/scan/disk_measure.hpp"

namespace orvane::cli {

namespace {

// The store a Linux service install of Ollama keeps, outside every home.
constexpr const char* kOllamaServiceStore = "/usr/share/ollama/.ollama/models";

struct ModelsOptions {
    std::string home;
    std::vector<std::string> ollamaRoots;
    double speed = 100;
};

nlohmann::ordered_json orNull(const std::optional<TimePoint>& date) {
    return date ? nlohmann::ordered_json(iso8601(*date)) : nlohmann::ordered_json();
}

template <typename T>
nlohmann::ordered_json orNull(const std::optional<T>& value) {
    return value ? nlohmann::ordered_json(*value) : nlohmann::ordered_json();
}

std::string lastReadText(const LibraryModel& model, TimePoint now) {
    auto days = daysUnused(model, now);
    if (!model.lastRead || !days) return "last read unknown";
    return "last read " + fmtAgo(*model.lastRead, now) + " (" + counted(*days, "day") + " unused)";
}

void describeModels(const std::vector<LibraryModel>& models, const std::string& home, const ModelsOptions& options,
                    TimePoint now, Result& result) {
    if (models.empty()) {
        result.line("No models in " + home + ".");
        return;
    }
    result.line(counted(static_cast<std::int64_t>(models.size()), "model") + " in " + home + ", largest first:");
    for (const auto& model : models) {
        result.line(fmt::format("  {:>9}  {}  ({}, {})", sizeText(model.bytes), shown(model.name), model.store,
                                model.format));
        result.line("             frees " + sizeText(model.ownBytes) + " alone · " + lastReadText(model, now));
        result.line("             " + redownloadEstimate(model.bytes, options.speed));
        if (model.movablePath) result.line("             " + shown(*model.movablePath));
    }
}

struct Store {
    std::string root;
    OllamaInventory inventory;
    std::vector<OllamaBlob> blobs;
    std::map<std::string, OllamaBlobLabel> labels;
};

void describeStore(const Store& store, Result& result) {
    result.line();
    result.line("Ollama store " + shown(store.root));
    if (store.inventory.models.empty()) result.line("  No models.");
    for (const auto& model : store.inventory.models)
        result.line(fmt::format("  {:>9}  {}  ({} its own, {})", sizeText(model.bytes), shown(model.name),
                                sizeText(model.exclusiveBytes), counted(model.blobCount, "blob")));
    result.line("  Orphan blobs: " +
                (store.inventory.orphanCount == 0
                     ? std::string("none")
                     : fmt::format("{}, {}", store.inventory.orphanCount, sizeText(store.inventory.orphanBytes))));
    if (store.blobs.empty()) return;
    result.line("  Blobs:");
    Table table({Table::Align::left, Table::Align::right, Table::Align::left});
    for (const auto& blob : store.blobs) {
        auto label = store.labels.find(blob.name);
        std::string display = label == store.labels.end() ? "" : label->second.display();
        table.row({"    " + blob.name, sizeText(blob.bytes), display.empty() ? "(no model)" : display});
    }
    for (auto& line : table.lines()) result.line(std::move(line));
}

nlohmann::ordered_json storeJSON(const Store& store) {
    nlohmann::ordered_json models = nlohmann::ordered_json::array(), blobs = nlohmann::ordered_json::array();
    for (const auto& model : store.inventory.models)
        models.push_back({{"name", model.name},
                          {"bytes", model.bytes},
                          {"exclusiveBytes", model.exclusiveBytes},
                          {"blobCount", model.blobCount},
                          {"lastRead", orNull(model.lastRead)}});
    for (const auto& blob : store.blobs) {
        auto label = store.labels.find(blob.name);
        std::string display = label == store.labels.end() ? "" : label->second.display();
        blobs.push_back({{"name", blob.name},
                         {"bytes", blob.bytes},
                         {"label", display.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(display)}});
    }
    return {{"root", store.root},
            {"models", std::move(models)},
            {"orphanBytes", store.inventory.orphanBytes},
            {"orphanCount", store.inventory.orphanCount},
            {"blobs", std::move(blobs)}};
}

Result runModels(const ModelsOptions& options, const Invocation& in) {
    if (!(options.speed > 0) || options.speed > 1e9) throw OVError("--speed must be a number of Mbit/s above 0.");
    const std::string home = readableFolder(options.home.empty() ? "" : absolutePath(options.home), in.facts);
    std::vector<std::string> roots;
    auto addRoot = [&](const std::string& root) {
        if (std::find(roots.begin(), roots.end(), root) == roots.end()) roots.push_back(root);
    };
    if (const auto own = appendingPathComponent(home, ".ollama/models"); isDirectory(own, in.facts)) addRoot(own);
    for (const auto& typed : options.ollamaRoots) addRoot(readableFolder(absolutePath(typed), in.facts));
#ifdef __linux__
    // A recorded Mac has no Linux service; its store would be this machine's, not the recording's.
    if (!in.facts.recorded && isDirectory(kOllamaServiceStore, in.facts)) addRoot(kOllamaServiceStore);
#else
    (void)kOllamaServiceStore;
#endif

    in.progress.show("Looking for models in " + home + "…");
    const auto models = scanModelLibrary(home, in.facts);
    std::vector<Store> stores;
    for (const auto& root : roots) {
        in.progress.show("Reading the Ollama store " + root + "…");
        stores.push_back({root, ollamaModelInventory(root, in.facts), ollamaBlobs(root, in.facts),
                          ollamaBlobLabels(root, in.facts)});
    }
    in.progress.clear();

    const TimePoint now = in.facts.now();
    Result result;
    describeModels(models, home, options, now, result);
    for (const auto& store : stores) describeStore(store, result);

    nlohmann::ordered_json modelsJSON = nlohmann::ordered_json::array(), ollamaJSON = nlohmann::ordered_json::array();
    for (const auto& model : models)
        modelsJSON.push_back({{"id", model.id()},
                              {"name", model.name},
                              {"store", model.store},
                              {"format", model.format},
                              {"bytes", model.bytes},
                              {"ownBytes", model.ownBytes},
                              {"lastRead", orNull(model.lastRead)},
                              {"daysUnused", orNull(daysUnused(model, now))},
                              {"redownload", redownloadEstimate(model.bytes, options.speed)},
                              {"movablePath", orNull(model.movablePath)}});
    for (const auto& store : stores) ollamaJSON.push_back(storeJSON(store));
    result.json = {{"models", std::move(modelsJSON)}, {"ollama", std::move(ollamaJSON)}};
    return result;
}

}  // namespace

void addModelsCommand(Registry& registry) {
    auto options = std::make_shared<ModelsOptions>();
    auto* models = registry.add(
        "models",
        "List the local AI models under HOME (default: your home), largest first: Ollama, Hugging Face, LM Studio, "
        "Jan, the model folders of ComfyUI, Stable Diffusion and GPT4All, and models downloaded by hand into ~/Models, "
        "~/Downloads and their like. Each with its store and format, its size and what removing it alone frees, when "
        "it was last read and how long a new download would take. Then each Ollama store (HOME/.ollama/models, each "
        "--ollama ROOT, and on Linux the service's /usr/share/ollama/.ollama/models): its models, every blob with the "
        "models that use it, and the blobs no model uses. Nothing is changed. Exit 2 when HOME or a ROOT is not a "
        "folder.",
        [options](const Invocation& in) { return runModels(*options, in); });
    models->add_option("HOME", options->home, "The home to look through (default: yours)");
    models->add_option("--ollama", options->ollamaRoots, "Another Ollama store (the folder holding manifests and blobs)");
    models->add_option("--speed", options->speed, "Download speed for the estimates, in Mbit/s (default 100)");
}

}  // namespace orvane::cli
