#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace pv {

// Pages of the help book that the program opens by name, relative to the book's folder.
inline constexpr std::string_view kHelpStartPage = "index.html";
inline constexpr std::string_view kKeyboardShortcutsHelpPage = "200/PixmeraVeltro213.html";
inline constexpr std::string_view kHotTipsHelpPage = "200/PixmeraVeltro214.html";

// The about box's version line: "Version 1.0 (12)", or "Version 1.0" without a build number.
// Without a version there is no line (the box keeps its own text).
std::optional<std::string> versionText(std::string_view shortVersion, std::string_view buildNumber);

// Where the Help menu's web and mail items lead; the addresses come from the build.
std::string hotTipsWebSiteUrl();
std::string webSiteUrl();
// A mailto: URL to the feedback address with the subject and body filled in.
std::string feedbackMailUrl();

}  // namespace pv
