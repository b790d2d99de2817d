#include "core/authenticity/known_vendors.hpp"

#include <algorithm>

#include "core/common/text.hpp"

namespace orvane {

const std::vector<KnownVendor>& knownVendors() {
    // Rows past the first few carry the vendor's main products only; a product missing here is
    // merely not judged, while a wrong identifier on a verified row would accuse the wrong app, so
    // names on those rows are the products' own, not the vendor's.
    static const std::vector<KnownVendor> table = {
        // Team ids confirmed from signed copies.
        {"Google", {"EQHXZ8M8AV"},
         {"com.google.Chrome", "com.google.drivefs", "com.google.drivefs.shortcuts.docs",
          "com.google.drivefs.shortcuts.sheets", "com.google.drivefs.shortcuts.slides"},
         {"Google Chrome", "Google Drive", "Google Docs", "Google Sheets", "Google Slides"}, true},
        {"Microsoft", {"UBF8T346G9"},
         {"com.microsoft.VSCode", "com.microsoft.Word", "com.microsoft.Excel", "com.microsoft.Powerpoint",
          "com.microsoft.Outlook", "com.microsoft.onenote.mac", "com.microsoft.teams2", "com.microsoft.OneDrive-mac"},
         {"Visual Studio Code", "Microsoft Word", "Microsoft Excel", "Microsoft PowerPoint", "Microsoft Outlook",
          "Microsoft OneNote", "Microsoft Teams", "OneDrive"},
         true},
        {"VideoLAN", {"75GAHG3SZQ"}, {"org.videolan.vlc"}, {"VLC"}, true},
        {"Adobe", {"JQ525L2MZD"}, {"com.adobe.acc.AdobeCreativeCloud", "com.adobe.Reader", "com.adobe.Acrobat.Pro"},
         {"Adobe Creative Cloud", "Adobe Acrobat Reader", "Adobe Acrobat"}, true},
        {"TeamViewer", {"H7UGFBUGV6"}, {"com.teamviewer.TeamViewer"}, {"TeamViewer"}, true},
        {"Anthropic", {"Q6L2SF6YDW"}, {"com.anthropic.claudefordesktop", "com.anthropic.claude-code-url-handler"},
         {"Claude"}, true},
        {"OpenAI", {"2DC432GLL2"}, {"com.openai.chat"}, {"ChatGPT"}, true},
        {"WhatsApp", {"57T9237FN3"}, {"net.whatsapp.WhatsApp"}, {"WhatsApp"}, true},
        {"Tailscale", {"W5364U7YZB"}, {"io.tailscale.ipn.macsys", "io.tailscale.ipn.macos"}, {"Tailscale"}, true},
        {"Ollama", {"3MU9H2V9Y9"}, {"com.electron.ollama"}, {"Ollama"}, true},
        {"Canva", {"5HD2ARTBFS"}, {"com.canva.CanvaDesktop"}, {"Canva"}, true},
        {"Ableton", {"MWR434WD94"}, {"com.ableton.live"}, {}, true},
        {"Native Instruments", {"83K5EG6Z9V"},
         {"com.native-instruments.nativeaccess2", "com.native-instruments.Kontakt 7", "com.native-instruments.kontakt-8",
          "com.native-instruments.Battery 4", "com.native-instruments.Guitar Rig 7",
          "com.native-instruments.Komplete Kontrol", "com.native-instruments.Massive",
          "com.native-instruments.Reaktor 6", "com.native-instruments.ControllerEditor"},
         {"Native Access", "Kontakt 7", "Kontakt 8", "Battery 4", "Guitar Rig 7", "Komplete Kontrol", "Massive",
          "Reaktor 6", "Controller Editor"},
         true},
        {"Arturia", {"T53ZHSF36C"}, {"com.arturia.ArturiaSoftwareCenter"}, {"Arturia Software Center"}, true},
        {"Splice", {"9962T6AKMH"}, {"com.splice.Splice"}, {"Splice"}, true},
        {"Audacity", {}, {"org.audacityteam.Audacity"}, {}, true},
        {"Element Labs", {"D65G88RHWN"}, {"ai.elementlabs.lmstudio"}, {"LM Studio"}, true},
        {"Amazon", {"94KV3E626L"}, {"com.amazon.Lassen"}, {"Amazon Kindle", "Kindle"}, true},
        {"Brother", {"5HCL85FLGW"}, {"com.brother.iPrintandScan"}, {"Brother iPrint&Scan"}, true},
        {"Celemony", {"D884PTXG4Y"}, {"com.celemony.Melodyne"}, {"Melodyne"}, true},
        {"CyberGhost", {"JHBA9UTELB"}, {"com.cyberghostsrl.cyberghostmac"}, {"CyberGhost VPN"}, true},
        {"eTeks", {"5ZL37D89B3"}, {"com.eteks.sweethome3d"}, {"Sweet Home 3D"}, true},
        {"Focusrite", {"7VYBQV3T2Q"}, {"com.focusrite.FocusriteControl", "com.focusrite.control2"},
         {"Focusrite Control", "Focusrite Control 2"}, true},
        {"Hit'n'Mix", {"ZSSMYF429J"}, {"com.hitnmix.RipX"}, {"RipX DAW"}, true},
        {"iZotope", {"QGULMAPEB2"}, {"com.izotope.ProductPortal"}, {"iZotope Product Portal"}, true},
        {"Moonshot", {"2J9472RW75"}, {"com.moonshot.kimichat"}, {"Kimi"}, true},
        {"MeldaProduction", {"MXXPJAJ3T5"}, {"com.meldaproduction.MInstaller"}, {"MeldaProduction Installer"}, true},
        {"Melodics", {"AW58AQVYJR"}, {"com.melodics.melodics"}, {"Melodics"}, true},
        {"Mixed In Key", {"T4A2E2DEM7"}, {"com.mixedinkey.application"}, {"Mixed In Key"}, true},
        {"Muse Hub", {"6ZE93BN9HZ"}, {"com.muse.hub"}, {"Muse Hub"}, true},
        {"PACE", {"TFZ8226T6X"}, {"com.paceap.eden.iLokLicenseManager"}, {"iLok License Manager"}, true},
        {"Scaler", {"BZT56BQPRQ"}, {"com.pluginboutique.Scaler2"}, {"Scaler 2"}, true},
        {"LANDR", {"6HFYDL2SL6"}, {"com.landr.LANDR"}, {"LANDR"}, true},
        {"Transcend", {"WFKTSWX9KM"}, {"com.transcend.elite"}, {"Transcend Elite"}, true},
        {"UVI", {"BB6L4C84AT"}, {"com.uvi.portal"}, {"UVI Portal"}, true},
        {"Wondershare", {"YZC2T44ZDX"}, {"com.wondershare.filmoramac", "com.wondershare.recoverit"},
         {"Wondershare Filmora", "Wondershare Recoverit"}, true},
        {"Directed Edge", {"8T67D8T434"}, {"com.directededge.app"}, {"Directed Edge"}, true},
        {"DJ.Studio", {"PQC4825VGM"}, {"studio.dj.djstudio"}, {"DJ.Studio"}, true},
        {"Voicebox", {"YB4V2VA9YY"}, {"com.voicebox.app"}, {"Voicebox"}, true},
        {"Vital Audio", {"EFXDM6K3KJ"}, {"audio.vital.synth"}, {"Vital"}, true},
        {"Learning Machines", {"DJ6XS33FX8"}, {"com.learningmachines.app"}, {"Learning Machines"}, true},
        // Team ids known but not yet seen on a signed copy: they confirm, never accuse.
        {"Slack", {"BQR82RBBHL"}, {"com.tinyspeck.slackmacgap"}, {"Slack"}, false},
        {"Zoom", {"BJ4HAAB9B3"}, {"us.zoom.xos"}, {"zoom.us"}, false},
        {"Spotify", {"2FNC3A47ZF"}, {"com.spotify.client"}, {"Spotify"}, false},
        {"Mozilla", {"43AQ936H96"}, {"org.mozilla.firefox", "org.mozilla.thunderbird"}, {"Firefox", "Thunderbird"}, false},
        {"Dropbox", {"G7HH3F8CAK"}, {"com.getdropbox.dropbox"}, {"Dropbox"}, false},
        {"1Password", {"2BUA8C4S2C"}, {"com.1password.1password"}, {}, false},
        {"Discord", {"53Q6R32WPB"}, {"com.hnc.Discord"}, {"Discord"}, false},
        {"Docker", {"9BNSXJN65R"}, {"com.docker.docker"}, {"Docker"}, false},
        {"Brave", {"KL8N8XSYF4"}, {"com.brave.Browser"}, {"Brave Browser"}, false},
        {"Telegram", {"6N38VWS5BX"}, {"ru.keepcoder.Telegram", "org.telegram.desktop"}, {"Telegram", "Telegram Desktop"},
         false},
        {"Signal", {"U68MSDN6DR"}, {"org.whispersystems.signal-desktop"}, {"Signal"}, false},
        {"Notion", {"LBQJ96FQ8D"}, {}, {"Notion"}, false},
        {"Figma", {"T8RA8NE3B7"}, {"com.figma.Desktop"}, {"Figma"}, false},
        {"Obsidian", {"6JSW4SJWN9"}, {"md.obsidian"}, {"Obsidian"}, false},
        {"iTerm2", {}, {"com.googlecode.iterm2"}, {"iTerm"}, false},
        {"Postman", {"H7H8Q7M5CK"}, {"com.postmanlabs.mac"}, {"Postman"}, false},
        {"Valve", {"MXGJJ98X76"}, {"com.valvesoftware.steam"}, {"Steam"}, false},
        {"Opera", {"A2P9LX4JPN"}, {"com.operasoftware.Opera"}, {"Opera"}, false},
        {"Malwarebytes", {"GVZRY6KDKR"}, {"com.malwarebytes.mbam.frontend.application"}, {"Malwarebytes"}, false},
        {"Microsoft (Edge)", {"UBF8T346G9"}, {"com.microsoft.edgemac"}, {"Microsoft Edge"}, false},
        {"Cisco Webex", {"DE8Y96K9QP"}, {"Cisco-Systems.Spark"}, {"Webex"}, false},
        {"Grammarly", {"W8F64X92K3"}, {"com.grammarly.ProjectLlama"}, {"Grammarly Desktop"}, false},
        {"Logitech", {"QED4VVPZWA"}, {"com.logi.optionsplus"}, {"Logi Options+"}, false},
        {"Raycast", {"SY64MV22J9"}, {"com.raycast.macos"}, {"Raycast"}, false},
        {"Rectangle", {}, {"com.knollsoft.Rectangle"}, {"Rectangle"}, false},
        {"Alfred", {"XZZXE9SED4"}, {"com.runningwithcrayons.Alfred"}, {"Alfred 5"}, false},
        {"Bartender", {"8DD663WDX4"}, {"com.surteesstudios.Bartender"}, {"Bartender 5"}, false},
        {"Serif (Affinity)", {"6LVTQB9699"},
         {"com.seriflabs.affinityphoto2", "com.seriflabs.affinitydesigner2", "com.seriflabs.affinitypublisher2"},
         {"Affinity Photo 2", "Affinity Designer 2", "Affinity Publisher 2"}, false},
        {"Blender", {"68UA947AUU"}, {"org.blenderfoundation.blender"}, {"Blender"}, false},
        {"OBS", {"2MMRE5MTB8"}, {"com.obsproject.obs-studio"}, {"OBS"}, false},
        {"Rogue Amoeba", {"7266XEXAPM"},
         {"com.rogueamoeba.audiohijack", "com.rogueamoeba.Loopback", "com.rogueamoeba.soundsource"},
         {"Audio Hijack", "Loopback", "SoundSource"}, false},
        {"Parallels", {"4C6364ACXT"}, {"com.parallels.desktop.console"}, {"Parallels Desktop"}, false},
        {"VMware", {"EG7KH642X6"}, {"com.vmware.fusion"}, {"VMware Fusion"}, false},
        {"Sublime HQ", {"Z6D26JE4Y4"}, {"com.sublimetext.4", "com.sublimemerge"}, {"Sublime Text", "Sublime Merge"},
         false},
        {"JetBrains", {"2ZEFAR8TH3"},
         {"com.jetbrains.toolbox", "com.jetbrains.intellij", "com.jetbrains.pycharm", "com.jetbrains.WebStorm"},
         {"JetBrains Toolbox", "IntelliJ IDEA", "PyCharm", "WebStorm"}, false},
        {"The Browser Company", {"S6N382Y83G"}, {"company.thebrowser.Browser"}, {"Arc"}, false},
        {"Mullvad", {"CKG9MXH72F"}, {"net.mullvad.vpn"}, {"Mullvad VPN"}, false},
        {"Proton", {"J6S6Q257EK"}, {"ch.protonvpn.mac", "ch.protonmail.desktop"}, {"ProtonVPN", "Proton Mail"}, false},
        {"Objective Development", {"MLZF7K7B5R"}, {"at.obdev.littlesnitch", "at.obdev.LaunchBar"},
         {"Little Snitch", "LaunchBar"}, false},
        {"Bare Bones", {"W52GZAXT98"}, {"com.barebones.bbedit"}, {"BBEdit"}, false},
        {"Panic", {"VE8FC488U5"}, {"com.panic.Nova", "com.panic.Transmit"}, {"Nova", "Transmit"}, false},
        {"Bitwarden", {"LTZ2PFU5D6"}, {"com.bitwarden.desktop"}, {"Bitwarden"}, false},
    };
    return table;
}

std::optional<KnownVendor> knownVendor(std::string_view appName, std::string_view bundleID,
                                       const std::vector<KnownVendor>& vendors) {
    std::string name = lowercased(trimSpacesAndTabs(appName));
    if (name.ends_with(".app")) name.resize(name.size() - 4);
    const std::string id(bundleID);
    // A whole app list asks this of every app: ASCII names are compared without lowering a copy.
    const auto sameName = [&](const std::string& n) {
        if (std::ranges::any_of(n, [](char c) { return static_cast<unsigned char>(c) >= 0x80; })) return lowercased(n) == name;
        return n.size() == name.size() && std::ranges::equal(n, name, [](char a, char b) {
                   return (a >= 'A' && a <= 'Z' ? static_cast<char>(a - 'A' + 'a') : a) == b;
               });
    };
    for (const auto& row : vendors) {
        if (!id.empty() && row.bundleIDs.contains(id)) return row;
        if (!name.empty() && std::ranges::any_of(row.names, sameName)) return row;
    }
    return std::nullopt;
}

VendorMatch vendorMatch(std::string_view appName, std::string_view bundleID, const std::optional<std::string>& teamID,
                        const std::vector<KnownVendor>& vendors) {
    auto row = knownVendor(appName, bundleID, vendors);
    if (!row) return {};
    if (teamID && row->teamIDs.contains(*teamID)) {
        if (row->verified) return {vendor_match::Matches{row->vendor, *teamID}};
        return {vendor_match::MatchesUnverified{row->vendor, *teamID}};
    }
    // A verified row that lists no team (Audacity) accuses every copy: the identifier is claimed,
    // and no copy has yet proved its signer.
    if (row->verified)
        return {vendor_match::Mismatch{row->vendor, std::vector<std::string>(row->teamIDs.begin(), row->teamIDs.end()),
                                       teamID}};
    return {};
}

nlohmann::ordered_json toJSON(const VendorMatch& match) {
    using nlohmann::ordered_json;
    return std::visit(
        [](const auto& m) -> ordered_json {
            using T = std::decay_t<decltype(m)>;
            if constexpr (std::is_same_v<T, vendor_match::Matches>)
                return {{"matches", {{"vendor", m.vendor}, {"teamID", m.teamID}}}};
            else if constexpr (std::is_same_v<T, vendor_match::MatchesUnverified>)
                return {{"matchesUnverified", {{"vendor", m.vendor}, {"teamID", m.teamID}}}};
            else if constexpr (std::is_same_v<T, vendor_match::Mismatch>) {
                ordered_json body = {{"vendor", m.vendor}, {"expected", m.expected}};
                if (m.actual) body["actual"] = *m.actual;
                return {{"mismatch", body}};
            } else
                return {{"notListed", ordered_json::object()}};
        },
        match.value);
}

std::optional<VendorMatch> vendorMatchFromJSON(const nlohmann::json& value) {
    if (!value.is_object() || value.size() != 1 || !value.begin()->is_object()) return std::nullopt;
    const std::string& key = value.begin().key();
    const nlohmann::json& body = *value.begin();
    auto text = [&](const char* field) -> std::optional<std::string> {
        auto found = body.find(field);
        if (found == body.end() || !found->is_string()) return std::nullopt;
        return found->get<std::string>();
    };
    if (key == "notListed") return VendorMatch{};
    auto vendor = text("vendor");
    if (!vendor) return std::nullopt;
    if (key == "matches" || key == "matchesUnverified") {
        auto team = text("teamID");
        if (!team) return std::nullopt;
        if (key == "matches") return VendorMatch{vendor_match::Matches{*vendor, *team}};
        return VendorMatch{vendor_match::MatchesUnverified{*vendor, *team}};
    }
    if (key != "mismatch") return std::nullopt;
    auto expected = body.find("expected");
    if (expected == body.end() || !expected->is_array()) return std::nullopt;
    vendor_match::Mismatch mismatch{*vendor, {}, std::nullopt};
    for (const auto& team : *expected) {
        if (!team.is_string()) return std::nullopt;
        mismatch.expected.push_back(team.get<std::string>());
    }
    if (auto actual = body.find("actual"); actual != body.end() && !actual->is_null()) {
        if (!actual->is_string()) return std::nullopt;
        mismatch.actual = actual->get<std::string>();
    }
    return VendorMatch{mismatch};
}

}  // namespace orvane
