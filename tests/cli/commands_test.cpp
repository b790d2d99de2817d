// Each command as a user runs it: its exit status and one piece of what it printed. The rules
// behind the answers are the libraries' and proven there; one row each is enough here.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/cli/run_orvane.hpp"

namespace orvane::testing {
namespace {

namespace fs = std::filesystem;
using C = CommandCase;
constexpr auto out = C::out, err = C::err;
constexpr auto whole = C::whole, contains = C::contains;

// Writes each pair's text, with "{D}" standing for the folder, to the pair's file.
std::function<void(const TempDir&)> files(std::vector<std::pair<std::string, std::string>> made) {
    return [made](const TempDir& d) {
        for (const auto& [file, text] : made) d.write(file, withDir(text, d.path()));
    };
}

TEST(PlanCheckCommand, StatusAndAnswer) {
    auto plan = [](std::string text) { return files({{"plan.json", text}}); };
    auto fifo = [](const TempDir& d) { ASSERT_EQ(::mkfifo((d / "fifo").c_str(), 0600), 0); };  // never written
    auto large = [](const TempDir& d) {
        d.write("large.json", "[");
        fs::resize_file(d / "large.json", 8 * 1024 * 1024 + 1);
    };
    const std::string check = "plan check {D}/plan.json --home {D}";
    const C cases[] = {
        {check, 0, out, "ok\n", whole,
         files({{"a/x", "x"}, {"b/y", "y"},
                {"plan.json", R"([{"removePath":{"_0":"{D}/a/x"}},{"moveAside":{"path":"{D}/b/y","to":"{D}/a/x","chownTo":501}}])"}})},
        {check, 1, out, "destinationOccupied at step 2: moveAside(path: \"{D}/b/y\", to: \"{D}/a/x\", chownTo: 501)\n", whole,
         files({{"a/x", "x"}, {"b/y", "y"},
                {"plan.json", R"([{"thinSnapshots":{}},{"moveAside":{"path":"{D}/b/y","to":"{D}/a/x","chownTo":501}}])"}})},
        {check, 1, out, "pathNotAllowed at step 1: removePath(\"/Library/LaunchDaemons/x.plist\")\n", whole,
         plan(R"([{"removePath":{"_0":"/Library/LaunchDaemons/x.plist"}}])")},
        {check + " --json", 1, out, "\"refusal\": \"malformedSnapshotDate\",\n  \"step\": 1,\n", contains,
         plan(R"([{"deleteSnapshots":{"_0":[]}}])")},
        {"plan check {D}/plan.json", 0, out, "ok\n", whole, plan("[]")},
        {"plan check - <{D}/plan.json", 0, out, "ok\n", whole, plan("[]")},
        // Malformed plans: one sentence, status 2.
        {check, 2, err, "orvane: The plan cannot be read. It is not valid JSON: parse error at line 1, column 1: syntax error while parsing value - unexpected end of input; expected '[', '{', or a literal\n", whole, plan("")},
        {check, 2, err, "orvane: The plan must be a JSON array of operations, such as [{\"removePath\":{\"_0\":\"/path\"}}].\n", whole,
         plan(R"({"removePath":{"_0":"/a/b"}})")},
        {check, 2, err, "orvane: Step 2 is not an operation: Invalid number of keys found, expected one.\n", whole,
         plan(R"([{"removePath":{"_0":"/a/b"}},{"nothingKnown":{}}])")},
        {check, 2, err,
         "orvane: Step 1 is not an operation: An operation must be a JSON object with one key, the operation's name.\n",
         whole, plan(R"(["removePath"])")},
        {check, 2, err, "orvane: The plan cannot be read. It is not valid JSON: parse error at line 1, column 24: syntax error while parsing value - invalid string: ill-formed UTF-8 byte; last read: '\"/\\xFF'\n",
         whole, plan("[{\"removePath\":{\"_0\":\"/\xff\"}}]")},
        {check + " --no-such-flag", 2, err, "orvane: The following argument was not expected: --no-such-flag. See orvane --help.\n",
         whole, plan("[]")},
        {"plan check {D}/absent.json", 2, err, "orvane: Cannot read {D}/absent.json: it does not exist.\n"},
        // Never waiting on what is no plan file; the other kinds of file are the reader's, tested with it.
        {"plan check {D}/fifo", 2, err, "orvane: Cannot read {D}/fifo: it is not a regular file.\n", whole, fifo},
        {"plan check {D}/large.json", 2, err, "orvane: The input is larger than 8 MiB, more than any plan needs.\n", whole,
         large},
    };
    expectCommands(cases);
}

TEST(DuCommand, StatusAndSizes) {
    const auto data = files({{"data/inner/file", std::string(200 * 1024, 'x')}});
    const C cases[] = {
        {"du {D}/data", 0, out, "{D}/data: ", contains, data},  // its size is the file system's
        {"du data", 0, out, "{D}/data: ", contains, data, "cd {D} &&"},
        {"du {D}/data {D}/missing", 1, out, "\n{D}/missing: unknown\n", contains, data},
        {"du --json {D}/data {D}/missing", 1, out, "\"path\": \"{D}/missing\",\n      \"bytes\": -1,\n      \"size\": \"unknown\"",
         contains, data},
        {"du", 2, err, "orvane: PATH is required. See orvane --help.\n"},
    };
    expectCommands(cases);
}

TEST(ProtectCommand, StatusAndAnswer) {
    const auto stems = [](const TempDir& d) { fs::create_directories(d / "Stems"); };
    const auto protectedStems = [](const TempDir& d) {
        fs::create_directories(d / "Stems");
        ASSERT_EQ(runOrvane("--ledger-dir " + d / "ledger protect add " + d / "Stems --label Stems", d.path()).status, 0);
    };
    const auto odd = [](const TempDir& d) {
        fs::create_directories(d / "New\nStems");
        ASSERT_EQ(runOrvane("--ledger-dir " + d / "ledger protect add '" + d / "New\nStems'", d.path()).status, 0);
    };
    const std::string p = "--ledger-dir {D}/ledger protect ";
    const C cases[] = {
        {p + "add {D}/Stems", 0, out, "Protected folder:{D}/Stems.\n", whole, stems},
        {p + "add {D}/Stems", 0, out, "folder:{D}/Stems is already protected.\n", whole, protectedStems},
        {p + "list --json", 0, out, "\"kind\": \"folder\",\n      \"label\": \"Stems\",", contains, protectedStems},
        {p + "remove folder:{D}/Stems", 0, out, "No longer protected: folder:{D}/Stems.\n", whole, protectedStems},
        {p + "remove folder:/nowhere", 1, out, "", whole, protectedStems},
        {p + "list", 0, out, "Nothing is protected yet.\n"},
        {p + "add", 2, err, "orvane: Give either a PATH or --app BUNDLE_ID to protect.\n"},
        // A list from a newer release is reported and left exactly as it was.
        {p + "add {D}/Stems", 2, err,
         "orvane: The protection list at {D}/ledger/protect-list.json is damaged or from a newer release; it is left as it "
         "is.\n",
         whole, files({{"ledger/protect-list.json", R"({"version":2,"entries":[]})"}})},
        {p + "add '{D}/Stems\xff'", 2, err,
         "orvane: Velloran Orvane cannot protect {D}/Stems\\xFF: its name is not valid UTF-8, and the protection list can "
         "only hold it altered.\n",
         whole, [](const TempDir& d) { fs::create_directories(d / "Stems\xff"); }},
        {p + "add '{D}/New\nStems'", 0, out, "Protected folder:{D}/New\\nStems.\n", whole,
         [](const TempDir& d) { fs::create_directories(d / "New\nStems"); }},
        {p + "list", 0, out, "folder:{D}/New\\nStems  New\\nStems (added ", contains, odd},
        {p + "list --json", 0, out, "\"value\": \"{D}/New\\nStems\"", contains, odd},
    };
    expectCommands(cases);
}

TEST(ProtectCommand, ADamagedListIsNeverOverwritten) {
    TempDir d;
    const std::string newer = R"({"version":2,"entries":[]})";
    d.write("ledger/protect-list.json", newer);
    EXPECT_EQ(runOrvane("--ledger-dir " + d / "ledger protect add " + d.path(), d.path()).status, 2);
    EXPECT_EQ(readFile(d / "ledger/protect-list.json"), newer);
}

const std::string kProtected =
    "refused — protected location — a system root, a mount root, your home folder or an ancestor of it\n";
const std::string kViaShortcut =
    "refused — the path leads through a shortcut, so the real data lives somewhere else — usually an external "
    "drive\n";
const std::string kProjectItself =
    "refused — this is a project you're building, not spare space — Velloran Orvane doesn't delete source trees. "
    "Its rebuildable parts (build folders, venvs, node_modules) are offered separately, and they are where the "
    "space actually is.\n";

TEST(VerdictCommand, StatusAndSentence) {
    const auto home = [](const TempDir& d) {
        for (auto f : {"home/src/app/package.json", "home/src/app/index.js",
                       "home/old/notes.txt"})
            d.write(f, "x");
        fs::create_directory_symlink(d / "home/old", d / "home/shortcut");
    };
    const auto listed = [home](std::function<void(const std::string&)> make) {
        return [home, make](const TempDir& d) {
            home(d);
            fs::create_directories(d / "ledger");
            make(d / "ledger/protect-list.json");
        };
    };
    const auto listText = [listed](std::string text) {
        return listed([text](const std::string& list) { writeFile(list, text); });
    };
    const auto protectedStems = [home](const TempDir& d) {
        home(d);
        fs::create_directories(d / "home/work/Stems");
        ASSERT_EQ(runOrvane("--ledger-dir " + d / "ledger protect add " + d / "home/work/Stems", d.path()).status, 0);
    };
    const std::string h = "HOME={D}/home", unreadable = "--ledger-dir {D}/ledger verdict {D}/home/old";
    const C cases[] = {
        {"verdict {D}/home", 1, out, "{D}/home: " + kProtected, whole, home, h},
        {"verdict {D}/home/shortcut/notes.txt", 1, out, "{D}/home/shortcut/notes.txt: " + kViaShortcut, whole, home, h},
        {"verdict {D}/home/old {D}/home/old/notes.txt", 0, out, "{D}/home/old: trash\n{D}/home/old/notes.txt: trash\n",
         whole, home, h},
        {"verdict --permanently {D}/home/old", 0, out, "{D}/home/old: remove permanently\n", whole, home, h},
        {"verdict old src/app/../app", 1, out, "{D}/home/old: trash\n{D}/home/src/app: " + kProjectItself, whole, home,
         h + " && cd {D}/home &&"},
        {"verdict --json {D}/home/old {D}/home/shortcut", 1, out,
         "{\n  \"allowed\": false,\n  \"paths\": [\n    {\n      \"path\": \"{D}/home/old\",\n      \"verdict\": \"trash\",\n"
         "      \"reason\": null,\n      \"blocker\": null\n    },\n    {\n      \"path\": \"{D}/home/shortcut\",\n"
         "      \"verdict\": \"refuse\",\n      \"reason\": \"the path leads through a shortcut, so the real data lives "
         "somewhere else — usually an external drive\",\n      \"blocker\": null\n    }\n  ]\n}\n",
         whole, home, h},
        {"verdict --json --permanently {D}/home/old", 0, out, "\"verdict\": \"removePermanently\"", contains, home, h},
        {"verdict", 2, err, "orvane: PATH is required. See orvane --help.\n"},
        {"--ledger-dir {D}/ledger verdict {D}/home/work/Stems {D}/home/work", 1, out,
         "{D}/home/work/Stems: refused — Kept because you protected it.\n"
         "{D}/home/work: refused — Kept because you protected Stems inside it.\n",
         whole, protectedStems, h},
        // A protection list that cannot be read refuses every path and is left as it is.
        {unreadable, 2, out,
         "{D}/home/old: refused — Velloran Orvane cannot read your protection list at {D}/ledger/protect-list.json, so it "
         "refuses to clear anything until the list is readable.\n",
         whole, listText("{"), h},
        {unreadable, 2, err, "orvane: The protection list at {D}/ledger/protect-list.json is not a regular file; it is left as it is.\n",
         whole, listed([](const std::string& list) { ::mkfifo(list.c_str(), 0600); }), h},
        {unreadable, 2, err, "orvane: The protection list at {D}/ledger/protect-list.json is not a regular file; it is left as it is.\n",
         whole, listed([](const std::string& list) { fs::create_directory(list); }), h},
        {unreadable, 2, err,
         "orvane: The protection list at {D}/ledger/protect-list.json is damaged or from a newer release; it is left as it is.\n",
         whole, listText("{"), h},
        {unreadable, 2, err, "orvane: The protection list at {D}/ledger/protect-list.json is too large; it is left as it is.\n",
         whole,
         listed([](const std::string& list) {
             writeFile(list, "{");
             fs::resize_file(list, 4 * 1024 * 1024 + 1);
         }),
         h},
        {"--ledger-dir {D}/ledger verdict --json {D}/home/old", 2, out, "\"verdict\": \"refuse\"", contains, listText("{"), h},
    };
    expectCommands(cases);
}

TEST(ArtifactsCommand, StatusAndAnswer) {
    // Projects of four kinds in one repository, one with its build folder committed, and one outside any.
    const auto projects = [](const TempDir& d) {
        files({{"repo/web/package.json", "{}"},
               {"repo/web/node_modules/left-pad/index.js", std::string(300'000, 'j')},
               {"repo/crate/Cargo.toml", ""},
               {"repo/crate/target/debug/app", std::string(150'000, 'r')},
               {"repo/py/pyproject.toml", ""},
               {"repo/py/.venv/lib/site.py", std::string(20'000, 'p')},
               {"repo/native/CMakeLists.txt", ""},
               {"repo/native/build/kept.txt", "committed on purpose"},
               {"solo/CMakeLists.txt", ""},
               {"solo/build/out.o", std::string(60'000, 'o')},
               {"solo/target/x", "no Cargo.toml here"}})(d);
        const std::string git = "cd '" + d / "repo" + "' && /usr/bin/git -c user.email=t@example.com -c user.name=t ";
        ASSERT_EQ(std::system((git + "init -q . && " + git + "add native && " + git + "commit -qm x >/dev/null").c_str()), 0);
    };
    const C cases[] = {
        {"artifacts {D}", 0, out,
         "  {D}/repo/web/node_modules\n  JavaScript packages; brought back by 'npm install' (or yarn or pnpm) in the "
         "project.\n  May be offered: yes — git holds none of its files.\n",
         contains, projects},
        {"artifacts {D}", 0, out,
         "{D}/repo/native/build\n  Build output; brought back by the next build.\n  May be offered: no — git holds files "
         "of it, so it is part of the project.\n",
         contains, projects},
        {"artifacts {D}", 0, out, "\nMay be offered: 4 of 5 folders, ", contains, projects},
        {"artifacts --json {D}", 0, err, "", whole, projects},  // no progress in JSON
        {"artifacts --json {D}", 0, out,
         "\"git\": \"tracked\",\n      \"ignoredByGitignore\": null,\n      \"offered\": false\n    }\n  ],\n"
         "  \"offeredCount\": 4,\n",
         contains, projects},
        {"artifacts {D}/absent", 2, err, "orvane: There is nothing at {D}/absent.\n"},
        {"artifacts {D}/file", 2, err, "orvane: {D}/file is not a folder.\n", whole, files({{"file", ""}})},
        {"artifacts {D}/link", 2, err,
         "orvane: {D}/link is a shortcut; give the folder it points to, since the walk follows no shortcut.\n", whole, [](const TempDir& d) { fs::create_directory_symlink(d.path(), d / "link"); }},
        {"artifacts", 2, err, "orvane: PATH is required. See orvane --help.\n"},
        {"artifacts {D}", 0, out, "No rebuildable folders under {D}.\nMay be offered: 0 of 0 folders, Zero KB in all.\n"},
    };
    expectCommands(cases);
}

// Nothing here cleans anything: every run stops before a janitor's command would start.
TEST(JanitorsCommand, StatusAndAnswer) {
    const C cases[] = {
        {"janitors --json", 0, out, "\"janitors\": [", contains},
        {"janitors run nosuch --yes", 2, err, "orvane: No janitor is called \"nosuch\"; orvane janitors lists the ones here.\n"},
        // Standard input is no terminal, so nothing can be confirmed.
        {"janitors run npm", 2, err, "orvane: Nothing was run: confirm on a terminal, or give --yes.\n"},
        {"janitors run docker --json", 2, err,
         "orvane: With --json, give --yes: the confirmation cannot be asked in JSON output.\n"},
        {"janitors run simctl --yes", 1, err,  // its simulators folder is not here
         "orvane: The iOS Simulators janitor's tool is not installed here, or it did not pass its harmless run (xcrun -f "
         "simctl).\n"},
        {"janitors run", 2, err, "orvane: ID is required. See orvane --help.\n"},
    };
    expectCommands(cases);
}

TEST(ScanCommand, ANameThatIsNotUTF8IsSkippedAloneAndAControlCharacterIsEscaped) {
    const auto tree = [](const TempDir& d) {
        // Above the 10 MB threshold by their size; sparse, so they cost no disk.
        for (const char* name : {"ok.bin", "bad\xff.bin", "new\nline.bin"}) {
            d.write(std::string("tree/") + name, "x");
            fs::resize_file(d / "tree/" + name, 11 * 1000 * 1000);
        }
    };
    const std::string scan = "--ledger-dir {D}/ledger scan {D}/tree";
    const C cases[] = {
        {scan, 0, out, "  new\\nline.bin\n", contains, tree}, {scan, 0, out, "\n2 findings in ", contains, tree},
        {scan, 0, out, "\n1 name skipped: not valid UTF-8.\n", contains, tree},
        {scan + " --json", 0, out, "\"title\": \"new\\nline.bin\"", contains, tree},
        {scan + " --json", 0, out, "\"skippedNames\": 1", contains, tree},
    };
    expectCommands(cases);
}

TEST(LedgerCommands, StatusAndAnswer) {
    const std::string l = "--ledger-dir {D}/ledger ";
    const auto log = files({{"ledger/actions.log.1", "[2026-01-01T00:00:00Z] MERGED in the older generation\n"},
                            {"ledger/actions.log",
                             "[2026-02-01T00:00:01Z] DEDUPE /a\n[2026-02-01T00:00:02Z] DEDUPE /b\n"
                             "[2026-02-01T00:00:03Z] DEDUPE /c\n[2026-02-02T00:00:00Z] MERGED 3 duplicate copies\n"}});
    const std::string folded =
        "[2026-02-01T00:00:01Z] DEDUPE \u00D7 3 \u2014 duplicate copies merged; each is still in place, sharing storage "
        "with its original. The full list is in the log file.\n";
    const auto moves = files({{"ledger/moves.json",
                               R"({"v":1,"data":[)"
                               R"({"date":700000000,"title":"Old Photos","src":"/Users/a/Old Photos","dst":"/Volumes/Drive/Old Photos","bytes":2500000000,"symlinked":true},)"
                               R"({"date":800000000,"title":"Movies","src":"/Users/a/Movies","dst":"/Volumes/Drive/Movies","bytes":1500000,"symlinked":false,"adminScope":true}]})"}});
    std::string records;  // each within what a record may hold, together past 64 bits; the first in 9999
    for (int i = 0; i < 8; ++i)
        records += std::string(i ? "," : "") + R"({"date":)" + (i ? "700000000" : "252406756800") + R"(,"title":"T)" +
                   std::to_string(i) + R"(","src":"/a","dst":"/d)" + std::to_string(i) +
                   R"(","bytes":1152921504606846976,"symlinked":true})";
    const auto huge = files({{"ledger/moves.json", R"({"v":1,"data":[)" + records + "]}"}});
    const auto evil = files({{"ledger/moves.json", R"({"v":1,"data":[{"date":1,"title":"Evil\n\u001b[2J","src":"/a","dst":"/d","bytes":1,"symlinked":true}]})"},
                             {"ledger/actions.log", "[2026-02-01T00:00:01Z] MERGED a\x1b[2Jb\n"}});
    // No writer ever comes: a blocking open of any of them would hang the command for good.
    const auto fifos = [](const TempDir& d) {
        fs::create_directories(d / "ledger");
        for (const char* name : {"actions.log", "actions.log.1", "moves.json", "moves-inflight.json",
                                 "swap-inflight.json", "compact-inflight.json"})
            ASSERT_EQ(::mkfifo((d / "ledger/" + name).c_str(), 0600), 0) << name;
    };
    const C cases[] = {
        {l + "history", 0, out, "The action log is empty.\n"},
        {l + "history", 0, out, folded + "[2026-02-02T00:00:00Z] MERGED 3 duplicate copies\n", whole, log},
        {l + "history --since 2026-02-01T00:00:02Z", 0, out,
         "[2026-02-01T00:00:03Z] DEDUPE /c\n[2026-02-02T00:00:00Z] MERGED 3 duplicate copies\n", whole, log},
        {l + "history --since 2026-03-01T00:00:00Z", 0, out, "Nothing was logged after 2026-03-01T00:00:00Z.\n", whole, log},
        {l + "history --all", 0, out,
         "[2026-01-01T00:00:00Z] MERGED in the older generation\n" + folded + "[2026-02-02T00:00:00Z] MERGED 3 duplicate copies\n",
         whole, log},
        {l + "history --json", 0, out,
         "{\n  \"lines\": [\n    \"" + folded.substr(0, folded.size() - 1) +
             "\",\n    \"[2026-02-02T00:00:00Z] MERGED 3 duplicate copies\"\n  ]\n}\n",
         whole, log},
        {l + "history --since yesterday", 2, err,
         "orvane: \"yesterday\" is not an ISO 8601 date such as 2026-01-31T12:00:00Z.\n"},
        {l + "history --all --since 2026-01-01T00:00:00Z", 2, err, "orvane: --since excludes --all. See orvane --help.\n"},
        {l + "repair", 0, out, "Nothing to repair.\n"}, {l + "repair --json", 0, out, "{\n  \"messages\": []\n}\n"},
        {l + "moves", 0, out, "No moves on record.\n"},
        {l + "moves", 0, out, "Movies (1.5 MB)\n    /Users/a/Movies moved to /Volumes/Drive/Movies\n", contains, moves},
        {l + "moves", 0, out, " Old Photos (2.5 GB)\n    /Users/a/Old Photos -> /Volumes/Drive/Old Photos\n2 moves, 2.5 GB in all.\n",
         contains, moves},
        {l + "moves --json", 0, out, "\"date\": \"2026-05-09T06:13:20Z\",\n      \"title\": \"Movies\",", contains, moves},
        {l + "moves --json", 0, out, "\"adminScope\": true,\n      \"size\": \"1.5 MB\"", contains, moves},
        {l + "moves --json", 0, out, "\n  ],\n  \"totalBytes\": 2501500000,\n  \"missingDrives\": [", contains, moves},
        // A total past any disk is unknown; a far date keeps its year.
        {l + "moves", 0, out, "6/15/99  T0 (1.15 EB)\n", contains, huge},
        {l + "moves", 0, out, "\n8 moves, unknown in all.\n", contains, huge},
        {l + "moves --json", 0, out, "\"date\": \"9999-06-15T12:00:00Z\"", contains, huge},
        {l + "moves --json", 0, out, "\"totalBytes\": null,\n", contains, huge},
        {l + "moves", 0, out, "  Evil\\n\\x1B[2J (1 byte)\n", contains, evil},
        {l + "moves --json", 0, out, R"("title": "Evil\n\u001b[2J")", contains, evil},
        {l + "history", 0, out, "[2026-02-01T00:00:01Z] MERGED a\\x1B[2Jb\n", whole, evil},
        {l + "history --json", 0, out, R"("[2026-02-01T00:00:01Z] MERGED a\u001b[2Jb")", contains, evil},
        {l + "history", 0, out, "The action log is empty.\n", whole, fifos},
        {l + "history --all", 0, out, "The action log is empty.\n", whole, fifos},
        {l + "moves", 0, out, "No moves on record.\n", whole, fifos},
        {l + "repair", 0, out, "Nothing to repair.\n", whole, fifos},
    };
    expectCommands(cases);
}

// What a front end killed in the middle of its work leaves behind, repaired; every kind of repair is the
// ledger's and tested there.
TEST(LedgerCommands, RepairFinishesWhatItReports) {
    TempDir d;
    d.write("home/report.pdf.ov-compress-orig", "OLD");
    d.write("home/Movies/film.mov", "original");
    d.write("Drive/Movies/film.mov", "copy");
    d.write("ledger/swap-inflight.json", R"([{"path":")" + d / "home/report.pdf" + R"(","kind":"compress"}])");
    d.write("ledger/moves-inflight.json", R"({"v":1,"data":[{"date":1,"title":"Movies","src":")" + d / "home/Movies" +
                                              R"(","dst":")" + d / "Drive/Movies" + R"(","bytes":1500000,"symlinked":true}]})");
    const auto repair = runOrvane("--ledger-dir " + d / "ledger repair", d.path());
    ASSERT_EQ(repair.status, 0);
    EXPECT_EQ(repair.out, "report.pdf: restored after an interrupted compression\nRecovered interrupted move of Movies "
                          "\u2014 " + d / "home/Movies now points at " + d / "Drive/Movies; any leftover partial went "
                          "to the Trash.\n");
    EXPECT_EQ(readFile(d / "home/report.pdf"), "OLD");
    EXPECT_EQ(fs::read_symlink(d / "home/Movies"), d / "Drive/Movies");
    EXPECT_EQ(readFile(d / "ledger/Trash/Movies/film.mov"), "original");
    EXPECT_NE(runOrvane("--ledger-dir " + d / "ledger history", d.path()).out.find("] REPAIR report.pdf: restored"),
              std::string::npos);
}

}  // namespace
}  // namespace orvane::testing
