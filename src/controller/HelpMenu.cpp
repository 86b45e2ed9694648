#include "controller/HelpMenu.h"

#include "controller/PixmeraVeltroController.h"
#include "core/Localization.h"

#ifndef PV_WEB_SITE_URL
#define PV_WEB_SITE_URL ""
#endif
#ifndef PV_HOT_TIPS_URL
#define PV_HOT_TIPS_URL ""
#endif
#ifndef PV_FEEDBACK_ADDRESS
#define PV_FEEDBACK_ADDRESS ""
#endif

namespace pv {

std::optional<std::string> versionText(std::string_view shortVersion,
                                       std::string_view buildNumber) {
    if (shortVersion.empty()) {
        return std::nullopt;
    }
    std::string version(shortVersion);
    if (!buildNumber.empty()) {
        version += " (" + std::string(buildNumber) + ")";
    }
    return tr("Version %1", {version});
}

std::string hotTipsWebSiteUrl() {
    return PV_HOT_TIPS_URL;
}

std::string webSiteUrl() {
    return PV_WEB_SITE_URL;
}

std::string feedbackMailUrl() {
    return std::string("mailto:") + PV_FEEDBACK_ADDRESS +
           "?subject=Pixmera%20Veltro%20Feedback&body=Please%20enter%20your%20feedback%20here.";
}

void PixmeraVeltroController::showKeyboardShortcutHelp() {
    port_.showHelpPage(kKeyboardShortcutsHelpPage);
}

void PixmeraVeltroController::showHotTipsHelp() {
    port_.showHelpPage(kHotTipsHelpPage);
}

void PixmeraVeltroController::showHelp() {
    port_.showHelpPage(kHelpStartPage);
}

void PixmeraVeltroController::openHotTipsWebSite() {
    port_.openURL(hotTipsWebSiteUrl());
}

void PixmeraVeltroController::visitWebsite() {
    port_.openURL(webSiteUrl());
}

void PixmeraVeltroController::provideFeedbackViaEmail() {
    port_.openURL(feedbackMailUrl());
}

}  // namespace pv
