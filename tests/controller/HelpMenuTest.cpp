#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "controller/HelpMenu.h"
#include "controller/PixmeraVeltroController.h"

namespace pv {
namespace {

TEST(HelpMenu, VersionText) {
    struct Case {
        const char* shortVersion;
        const char* buildNumber;
        std::optional<std::string> text;
    };
    const Case cases[] = {
        {"1.0", "12", "Version 1.0 (12)"},
        {"1.0", "", "Version 1.0"},
        {"0.1.0", "1", "Version 0.1.0 (1)"},
        {"", "12", std::nullopt},  // no version: the box keeps its own text
        {"", "", std::nullopt},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(versionText(c.shortVersion, c.buildNumber), c.text)
            << c.shortVersion << " / " << c.buildNumber;
    }
}

struct HelpPort : NullControllerPort {
    void showHelpPage(std::string_view page) override {
        asked.push_back("page " + std::string(page));
    }
    void openURL(std::string_view url) override { asked.push_back("url " + std::string(url)); }
    std::vector<std::string> asked;
};

// Each Help menu item asks the front end for exactly one page or address.
TEST(HelpMenu, EachItemOpensItsPageOrAddress) {
    struct Case {
        void (PixmeraVeltroController::*item)();
        std::string asked;
    };
    const Case cases[] = {
        {&PixmeraVeltroController::showHelp, "page index.html"},
        {&PixmeraVeltroController::showKeyboardShortcutHelp, "page 200/PixmeraVeltro213.html"},
        {&PixmeraVeltroController::showHotTipsHelp, "page 200/PixmeraVeltro214.html"},
        {&PixmeraVeltroController::openHotTipsWebSite, "url " + hotTipsWebSiteUrl()},
        {&PixmeraVeltroController::visitWebsite, "url " + webSiteUrl()},
        {&PixmeraVeltroController::provideFeedbackViaEmail, "url " + feedbackMailUrl()},
    };
    for (const Case& c : cases) {
        HelpPort port;
        PixmeraVeltroController controller(port);
        (controller.*c.item)();
        ASSERT_EQ(port.asked.size(), 1u) << c.asked;
        EXPECT_EQ(port.asked[0], c.asked);
    }
}

// The addresses come from the build configuration; the mail has its subject and body.
TEST(HelpMenu, AddressesAreComplete) {
    EXPECT_EQ(webSiteUrl().rfind("https://", 0), 0u) << webSiteUrl();
    EXPECT_EQ(hotTipsWebSiteUrl().rfind("https://", 0), 0u) << hotTipsWebSiteUrl();
    const std::string mail = feedbackMailUrl();
    const std::string query =
        "?subject=Pixmera%20Veltro%20Feedback&body=Please%20enter%20your%20feedback%20here.";
    ASSERT_GT(mail.size(), std::string("mailto:").size() + query.size()) << mail;
    EXPECT_EQ(mail.rfind("mailto:", 0), 0u);
    EXPECT_NE(mail.find('@'), std::string::npos) << mail;
    EXPECT_EQ(mail.substr(mail.size() - query.size()), query);
}

}  // namespace
}  // namespace pv
