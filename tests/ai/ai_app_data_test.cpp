// The judgement of a path read from an AI app's settings, and the reading of its pointer files:
// table tests over made-up facts.
#include <gtest/gtest.h>

#include <map>

#include "core/ai/ai_app_data.hpp"

namespace orvane {
namespace {

const std::string kHome = "/Users/alex";

struct JudgeCase {
    std::string value;
    std::optional<AIDataTarget> expected;  // none: refused
    std::map<std::string, std::string> links = {};  // what resolve gives, by path
    std::set<std::string> mounted = {"Archive"};
};

AIDataTarget allowed(std::string path) { return AIDataTarget::allowed(std::move(path)); }
AIDataTarget away(std::string path) { return AIDataTarget::externalNotConnected(std::move(path)); }

TEST(AIDataTarget, InBoundsOutOfBoundsAndLinks) {
    const std::string longPath = kHome + "/" + std::string(1023 - kHome.size() - 1, 'm');
    const JudgeCase cases[] = {
        // Personal folders are refused; a folder inside one is fine.
        {"~/Documents", std::nullopt},
        {"~/Documents/", std::nullopt},
        {"~/documents", std::nullopt},  // a Mac's disk ignores case
        {"~/Library/Application Support", std::nullopt},
        {"~/.ssh", std::nullopt},
        {"~/Documents/Models", allowed(kHome + "/Documents/Models")},
        {"  ~/AI/lmstudio//\n", allowed(kHome + "/AI/lmstudio")},
        // The home itself, a neighbour that merely shares its prefix, and everything else outside.
        {"/Users/alex", std::nullopt},
        {"~", std::nullopt},
        {"/Users/alexander/models", std::nullopt},
        {"/tmp/models", std::nullopt},
        {"models", std::nullopt},
        // ".." is refused for itself, wherever it would lead.
        {"~/models/../.ssh", std::nullopt},
        {"~/models/../models", std::nullopt},
        {"~/./models", std::nullopt},
        {std::string("~/mo\0dels", 9), std::nullopt},
        // Drives: never a root; a folder on one is allowed when mounted and away otherwise.
        {"/Volumes/Archive", std::nullopt},
        {"/Volumes/Archive/", std::nullopt},
        {"/Volumes/", std::nullopt},
        {"/Volumes/Archive/AI", allowed("/Volumes/Archive/AI")},
        {"/Volumes/Archive/AI", away("/Volumes/Archive/AI"), {}, {}},
        // Exactly 1,023 bytes are judged; 1,024 are refused.
        {longPath, allowed(longPath)},
        {longPath + "m", std::nullopt},
        // Links: where they lead is judged as strictly, and anything but allowed refuses.
        {"~/models", std::nullopt, {{kHome + "/models", kHome + "/.ssh"}}},
        {"~/models", std::nullopt, {{kHome + "/models", "/private/tmp/models"}}},
        {"~/models", std::nullopt, {{kHome + "/models", "/Volumes/Away/AI"}}},
        {"~/models", allowed(kHome + "/Models/real"), {{kHome + "/models", kHome + "/Models/real"}}},
        {"~/models", allowed("/Volumes/Archive/AI"), {{kHome + "/models", "/Volumes/Archive/AI"}}},
        // A drive that isn't there can't be asked where its links lead.
        {"/Volumes/Away/AI", away("/Volumes/Away/AI"), {{"/Volumes/Away/AI", kHome + "/.ssh"}}},
    };
    for (const auto& c : cases) {
        const auto resolve = [&](const std::string& path) -> std::optional<std::string> {
            const auto found = c.links.find(path);
            return found == c.links.end() ? std::nullopt : std::optional<std::string>(found->second);
        };
        EXPECT_EQ(judgeAIDataTarget(c.value, kHome, c.mounted, resolve), c.expected) << c.value.substr(0, 60);
    }
}

TEST(AIDataTarget, ProtectedFolders) {
    EXPECT_TRUE(isProtectedPersonalOrSystemFolder("/Users/alex/Library/Caches/", kHome));
    EXPECT_FALSE(isProtectedPersonalOrSystemFolder("/Users/alex/Library/Caches/lm-studio", kHome));
    EXPECT_FALSE(isProtectedPersonalOrSystemFolder("/Volumes/Archive/AI", kHome));
    EXPECT_TRUE(isProtectedPersonalOrSystemFolder("/Volumes//Archive", kHome));
    EXPECT_TRUE(isProtectedPersonalOrSystemFolder("/", kHome));
    // Without a home to measure against, nothing outside /Volumes may be offered.
    EXPECT_TRUE(isProtectedPersonalOrSystemFolder("/Users/alex/models", ""));
}

TEST(AIDataPointer, Reading) {
    const AIDataPointer::Format plain = AIDataPointer::PlainPath{};
    const AIDataPointer::Format key = AIDataPointer::JSONKey{"downloadsFolder"};
    const struct {
        AIDataPointer::Format format;
        std::string contents;
        std::optional<std::string> expected;
    } cases[] = {
        {plain, "/Users/alex/.lmstudio\n", "/Users/alex/.lmstudio"},
        {plain, "  /Volumes/Archive/AI \r\n", "/Volumes/Archive/AI"},
        {plain, "/Users/alex/a\n/Users/alex/b\n", std::nullopt},
        {plain, " \n\t", std::nullopt},
        {plain, "/" + std::string(4095, 'a'), "/" + std::string(4095, 'a')},
        {plain, "/" + std::string(4096, 'a'), std::nullopt},
        {plain, "/Users/alex/\xff", std::nullopt},
        {key, R"({"downloadsFolder": "/Volumes/Archive/AI", "other": 1})", "/Volumes/Archive/AI"},
        {key, R"({"downloadsFolder": ""})", std::nullopt},
        {key, R"({"downloadsFolder": 5})", std::nullopt},
        {key, R"({"DownloadsFolder": "/x"})", std::nullopt},
        {key, R"(["downloadsFolder", "/x"])", std::nullopt},
        {key, R"({"downloadsFolder": "/x",)", std::nullopt},
        // Two readers of the same bytes must not disagree on which value counts.
        {key, R"({"downloadsFolder": "/Users/alex/a", "downloadsFolder": "/Users/alex/b"})", std::nullopt},
    };
    for (const auto& c : cases)
        EXPECT_EQ(readAIDataPointer(c.format, c.contents), c.expected) << c.contents.substr(0, 60);
}

}  // namespace
}  // namespace orvane
