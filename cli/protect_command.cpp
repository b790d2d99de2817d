// orvane protect: the user's own list of what must be left alone.
#include <filesystem>

#include "cli/context.hpp"
#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"
#include "core/ledger/ledger.hpp"
#include "core/safety/protection.hpp"
#include "core/scan/disk_measure.hpp"

namespace orvane::cli {

std::string protectListPath() { return appendingPathComponent(Ledger::dir(), "protect-list.json"); }

StoredProtectList loadProtectList() { return orvane::loadProtectList(protectListPath()); }

namespace {

struct ProtectOptions {
    std::string path;
    std::string app;
    std::string label;
    std::string id;
    bool json = false;
};

// The first text of the entry that is not valid UTF-8, as the user typed it; none when all are.
std::optional<std::string> notUTF8(const ProtectEntry& entry) {
    if (!isValidUTF8(entry.value)) return entry.value;
    if (!isValidUTF8(entry.label)) return "the label " + entry.label;
    for (const auto& folder : entry.appFolders)
        if (!isValidUTF8(folder)) return folder;
    return std::nullopt;
}

bool save(const ProtectList& list) {
    const std::string path = protectListPath();
    std::error_code ec;
    std::filesystem::create_directories(deletingLastPathComponent(path), ec);
    if (!writeFileAtomically(path, list.encoded() + "\n", 0600)) {
        printError("The protection list could not be written to " + path + ".");
        return false;
    }
    return true;
}

int add(const ProtectOptions& o) {
    if (o.path.empty() == o.app.empty()) {
        printError("Give either a PATH or --app BUNDLE_ID to protect.");
        return kBadInput;
    }
    auto loaded = loadProtectList();
    if (!loaded.list) {
        printError(loaded.problem);
        return kBadInput;
    }
    ProtectEntry entry;
    entry.added = Clock::now();
    if (!o.app.empty()) {
        entry.kind = ProtectEntry::Kind::app;
        entry.value = o.app;
        entry.label = o.label.empty() ? o.app : o.label;
        entry.appFolders = appProtectedRoots(o.app, entry.label, std::nullopt, home());
    } else {
        entry.value = standardizePath(absolutePath(o.path));
        entry.kind = isDirectory(entry.value) ? ProtectEntry::Kind::folder : ProtectEntry::Kind::item;
        entry.label = o.label.empty() ? lastPathComponent(entry.value) : o.label;
    }
    // The list is JSON, which holds only UTF-8: a name in other bytes would be stored altered, and
    // the altered name protects nothing.
    if (auto bad = notUTF8(entry)) {
        printError("Velloran Orvane cannot protect " + *bad +
                   ": its name is not valid UTF-8, and the protection list can only hold it altered.");
        return kBadInput;
    }
    const std::size_t before = loaded.list->entries.size();
    loaded.list->add(entry);
    if (loaded.list->entries.size() == before) {
        printLine(entry.id() + " is already protected.");
        return kDone;
    }
    if (!save(*loaded.list)) return kBadInput;
    printLine("Protected " + entry.id() + ".");
    return kDone;
}

int remove(const ProtectOptions& o) {
    auto loaded = loadProtectList();
    if (!loaded.list) {
        printError(loaded.problem);
        return kBadInput;
    }
    const std::size_t before = loaded.list->entries.size();
    loaded.list->remove(o.id);
    if (loaded.list->entries.size() == before) {
        printError("Nothing is protected under the id " + o.id + "; orvane protect list shows the ids.");
        return kRefused;
    }
    if (!save(*loaded.list)) return kBadInput;
    printLine("No longer protected: " + o.id + ".");
    return kDone;
}

int list(const ProtectOptions& o) {
    auto loaded = loadProtectList();
    if (!loaded.list) {
        printError(loaded.problem);
        return kBadInput;
    }
    if (o.json) {
        printJSON(nlohmann::ordered_json::parse(loaded.list->encoded()));
        return kDone;
    }
    if (loaded.list->entries.empty()) printLine("Nothing is protected yet.");
    for (const auto& e : loaded.list->entries) {
        printLine(e.id() + "  " + e.label + " (added " + fmtDate(e.added) + ")");
        if (e.kind == ProtectEntry::Kind::app)
            for (const auto& root : e.appFolders) printLine("    " + root);
    }
    return kDone;
}

}  // namespace

void addProtectCommands(CLI::App& app, Context& context) {
    auto* protect = app.add_subcommand(
        "protect", "Your own list of what must be left alone: protected items are never removed or moved");
    protect->require_subcommand(1);
    auto o = std::make_shared<ProtectOptions>();

    auto* addCommand = protect->add_subcommand("add", "Protect a file or folder, or an app's folders (--app)");
    addCommand->add_option("PATH", o->path, "The file or folder to protect");
    addCommand->add_option("--app", o->app, "Protect the folders of the app with this bundle identifier instead");
    addCommand->add_option("--label", o->label, "The name to show (default: the last part of the path)");
    addCommand->callback([o, &context] { context.exitCode = add(*o); });

    auto* removeCommand = protect->add_subcommand("remove", "Stop protecting the entry with this id (see list)");
    removeCommand->add_option("ID", o->id, "The entry's id, such as folder:/Users/a/Stems")->required();
    removeCommand->callback([o, &context] { context.exitCode = remove(*o); });

    auto* listCommand = protect->add_subcommand("list", "Show what is protected, oldest first");
    listCommand->add_flag("--json", o->json, "Print the list in its file form");
    listCommand->callback([o, &context] { context.exitCode = list(*o); });
}

}  // namespace orvane::cli
