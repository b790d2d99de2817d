// orvane protect: the user's own list of what must be left alone.
#include <filesystem>

#include "cli/command.hpp"
#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"
#include "core/safety/protection.hpp"
#include "core/scan/disk_measure.hpp"

namespace orvane::cli {
namespace {

struct ProtectOptions {
    std::string path;
    std::string app;
    std::string label;
    std::string id;
};

// The first text of the entry that is not valid UTF-8, as the user typed it; none when all are.
std::optional<std::string> notUTF8(const ProtectEntry& entry) {
    if (!isValidUTF8(entry.value)) return entry.value;
    if (!isValidUTF8(entry.label)) return "the label " + entry.label;
    for (const auto& folder : entry.appFolders)
        if (!isValidUTF8(folder)) return folder;
    return std::nullopt;
}

ProtectList readable(const StoredProtectList& stored) {
    if (!stored.list) throw OVError(stored.problem);
    return *stored.list;
}

void save(const ProtectList& list, const std::string& path) {
    std::error_code ec;
    std::filesystem::create_directories(deletingLastPathComponent(path), ec);
    if (!writeFileAtomically(path, list.encoded() + "\n", 0600))
        throw OVError("The protection list could not be written to " + path + ".");
}

Result changed(std::string line, const nlohmann::ordered_json& json) {
    Result result;
    result.line(std::move(line));
    result.json = json;
    return result;
}

Result add(const ProtectOptions& o, const Invocation& in) {
    if (o.path.empty() == o.app.empty()) throw OVError("Give either a PATH or --app BUNDLE_ID to protect.");
    const StoredProtectList stored = storedProtections(in.facts);
    ProtectList list = readable(stored);
    ProtectEntry entry;
    entry.added = in.facts.now();
    if (!o.app.empty()) {
        entry.kind = ProtectEntry::Kind::app;
        entry.value = o.app;
        entry.label = o.label.empty() ? o.app : o.label;
        entry.appFolders = appProtectedRoots(o.app, entry.label, std::nullopt, in.facts.home(""));
    } else {
        entry.value = standardizePath(absolutePath(o.path), in.facts.exists);
        entry.kind = isDirectory(entry.value, in.facts) ? ProtectEntry::Kind::folder : ProtectEntry::Kind::item;
        entry.label = o.label.empty() ? lastPathComponent(entry.value) : o.label;
    }
    // The list is JSON, which holds only UTF-8: a name in other bytes would be stored altered, and
    // the altered name protects nothing.
    if (auto bad = notUTF8(entry))
        throw OVError("Velloran Orvane cannot protect " + *bad +
                      ": its name is not valid UTF-8, and the protection list can only hold it altered.");
    const std::size_t before = list.entries.size();
    list.add(entry);
    if (list.entries.size() == before)
        return changed(entry.id() + " is already protected.", {{"id", entry.id()}, {"added", false}});
    if (in.facts.recorded) return nothingChangedOnARecording({"Would protect " + entry.id() + "."});
    save(list, stored.path);
    return changed("Protected " + entry.id() + ".", {{"id", entry.id()}, {"added", true}});
}

Result remove(const ProtectOptions& o, const Invocation& in) {
    const StoredProtectList stored = storedProtections(in.facts);
    ProtectList list = readable(stored);
    const std::size_t before = list.entries.size();
    list.remove(o.id);
    if (list.entries.size() == before) {
        Result result;
        result.status = kRefused;
        result.notes.push_back("Nothing is protected under the id " + o.id + "; orvane protect list shows the ids.");
        result.json = {{"id", o.id}, {"removed", false}};
        return result;
    }
    if (in.facts.recorded) return nothingChangedOnARecording({"Would stop protecting " + o.id + "."});
    save(list, stored.path);
    return changed("No longer protected: " + o.id + ".", {{"id", o.id}, {"removed", true}});
}

Result list(const Invocation& in) {
    const ProtectList list = readable(storedProtections(in.facts));
    Result result;
    result.json = nlohmann::ordered_json::parse(list.encoded());
    if (list.entries.empty()) result.line("Nothing is protected yet.");
    for (const auto& e : list.entries) {
        result.line(e.id() + "  " + e.label + " (added " + fmtDate(e.added) + ")");
        if (e.kind == ProtectEntry::Kind::app)
            for (const auto& root : e.appFolders) result.line("    " + root);
    }
    return result;
}

}  // namespace

void addProtectCommands(Registry& registry) {
    auto* protect = registry.group(
        "protect", "Your own list of what must be left alone: protected items are never removed or moved");
    auto o = std::make_shared<ProtectOptions>();

    auto* addCommand = registry.add(*protect, "add", "Protect a file or folder, or an app's folders (--app)",
                                    [o](const Invocation& in) { return add(*o, in); });
    addCommand->add_option("PATH", o->path, "The file or folder to protect");
    addCommand->add_option("--app", o->app, "Protect the folders of the app with this bundle identifier instead");
    addCommand->add_option("--label", o->label, "The name to show (default: the last part of the path)");

    auto* removeCommand = registry.add(*protect, "remove", "Stop protecting the entry with this id (see list)",
                                       [o](const Invocation& in) { return remove(*o, in); });
    removeCommand->add_option("ID", o->id, "The entry's id, such as folder:/Users/a/Stems")->required();

    registry.add(*protect, "list", "Show what is protected, oldest first; --json prints the list in its file form",
                 [](const Invocation& in) { return list(in); });
}

}  // namespace orvane::cli
