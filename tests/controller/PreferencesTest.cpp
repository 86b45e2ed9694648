#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "controller/PixmeraVeltroController.h"

namespace pv {
namespace {

// A store in memory; what sync writes is what a later run reads.
struct MapStore : PreferenceStore {
    std::string location() const override { return "/home/u/.config/prefs.conf"; }
    Status readStatus() const override { return readable; }
    std::optional<std::string> value(const std::string& key) const override {
        const auto found = saved.find(key);
        return found == saved.end() ? std::nullopt : std::optional(found->second);
    }
    void setValue(const std::string& key, const std::string& text) override {
        pending.emplace_back(key, text);
    }
    Status sync() override {
        if (!writable) {
            return Status(Error{location(), "the disk is full", true});
        }
        for (const auto& [key, text] : pending) {
            saved[key] = text;
        }
        pending.clear();
        return Status();
    }

    std::map<std::string, std::string> saved;
    std::vector<std::pair<std::string, std::string>> pending;
    Status readable;
    bool writable = true;
};

struct LogPort : NullControllerPort {
    void logMessage(std::string_view m) override { log.emplace_back(m); }
    void scatterGramNeedsDisplay() override { ++redraws; }
    std::vector<std::string> log;
    int redraws = 0;
};

struct RecordingPainter : MarkerPainter {
    void fillPath(const Path&, const Color& c) override { fills.push_back(c); }
    void strokePath(const Path&, const Color& c, float) override { strokes.push_back(c); }
    std::vector<Color> fills;
    std::vector<Color> strokes;
};

std::array<std::uint32_t, 4> bits(const Color& c) {
    return {std::bit_cast<std::uint32_t>(c.red), std::bit_cast<std::uint32_t>(c.green),
            std::bit_cast<std::uint32_t>(c.blue), std::bit_cast<std::uint32_t>(c.alpha)};
}

struct PreferencesTest : ::testing::Test {
    PreferencesTest() {
        controller.awakeFromNib();
        controller.registerDefaults("/home/u");
    }
    // A rectangle dragged on the scatter gram, drawn: the marker's fill and border colours.
    RecordingPainter drawnRegion() {
        CROI_ScatterGramCroppingImageView& view = controller.scatterGramGraph();
        view.mouseDown(MouseEvent{{10, 10}});
        view.mouseDragged(MouseEvent{{60, 50}});
        view.mouseUp(MouseEvent{{60, 50}});
        RecordingPainter painter;
        view.drawRect(painter);
        return painter;
    }

    LogPort port;
    PixmeraVeltroController controller{port};
    MapStore store;
};

TEST(PreferenceTexts, DefaultsAsStored) {
    const UserPreferences d = defaultUserPreferences("/home/u");
    const std::map<std::string_view, std::string> expected = {
        {"Default Image Scale", "1"},
        {"Image Drawer Open On Launch", "false"},
        {"Use iPhoto 2 Image Libraries", "false"},
        {"Enable Fill ROI", "true"},
        {"Opacity Value", "0.2"},
        {"ROI Type", "0"},
        {"Export Settings", "1"},
        {"ROI Border Color", "1 0 0 1"},
        {"ROI Fill Color", "1 1 1 1"},
        {"Organize Export Data", "true"},
        {"PDF Paper Size", "0"},
        {"Export Data Type", "0"},
        {"Export Image Type", "0"},
        {"Export Directory", "/home/u"},
        {"Use Image Directory", "false"},
        {"Image Directory", "/home/u/Pictures"},
    };
    ASSERT_EQ(preferenceKeys().size(), expected.size());
    for (const std::string_view key : preferenceKeys()) {
        EXPECT_EQ(preferenceText(d, key), expected.at(key)) << key;
    }
}

TEST(PreferenceTexts, EveryFieldRoundTripsBitForBit) {
    UserPreferences p = defaultUserPreferences("/home/u");
    p.defaultImageScale = std::numeric_limits<std::int32_t>::min();
    p.imageDrawerOpenOnLaunch = true;
    p.useIPhoto2ImageLibraries = true;
    p.enableFillROI = false;
    p.opacityValue = std::nextafter(0.35f, 1.0f);
    p.roiType = -7;
    p.exportSettings = std::numeric_limits<std::int32_t>::max();
    p.roiBorderColor = {1.0f / 3.0f, std::numeric_limits<float>::denorm_min(), 0.999999f, 0.5f};
    p.roiFillColor = {0.1f, 0.2f, std::nextafter(1.0f, 0.0f), 0.0f};
    p.organizeExportData = false;
    p.pdfPaperSize = 3;
    p.exportDataType = 1;
    p.exportImageType = 2;
    p.exportDirectory = "/data/Résultats 2026";
    p.useImageDirectory = true;
    p.imageDirectory = "/mnt/scope/images";

    UserPreferences back = defaultUserPreferences("/elsewhere");
    for (const std::string_view key : preferenceKeys()) {
        EXPECT_TRUE(readPreference(back, key, preferenceText(p, key))) << key;
    }
    EXPECT_EQ(bits(back.roiBorderColor), bits(p.roiBorderColor));
    EXPECT_EQ(bits(back.roiFillColor), bits(p.roiFillColor));
    EXPECT_EQ(std::bit_cast<std::uint32_t>(back.opacityValue),
              std::bit_cast<std::uint32_t>(p.opacityValue));
    for (const std::string_view key : preferenceKeys()) {
        EXPECT_EQ(preferenceText(back, key), preferenceText(p, key)) << key;
    }
}

TEST(PreferenceTexts, ValuesOutsideAFieldAreRefusedAndLeaveIt) {
    const std::pair<std::string_view, std::string_view> refused[] = {
        {"Opacity Value", "banana"},
        {"Opacity Value", "1.5"},
        {"Opacity Value", "-0.1"},
        {"Opacity Value", "nan"},
        {"Opacity Value", "0.5x"},
        {"Opacity Value", ""},
        {"Opacity Value", " 0.5"},
        {"ROI Border Color", "1 0 0"},
        {"ROI Border Color", "1 0 0 1 1"},
        {"ROI Border Color", "1 0 0 2"},
        {"ROI Border Color", "1 0 0 1 "},
        {"ROI Fill Color", "1, 1, 1, 1"},
        {"ROI Fill Color", "<QVariantMap>"},
        {"Enable Fill ROI", "fal"},
        {"Enable Fill ROI", "yes"},
        {"Default Image Scale", "2147483648"},
        {"Default Image Scale", "1.5"},
        {"ROI Type", "0x1"},
        {"Export Directory", ""},
        {"Image Directory", "Pictures"},
        {"No Such Key", "1"},
    };
    for (const auto& [key, text] : refused) {
        UserPreferences p = defaultUserPreferences("/home/u");
        EXPECT_FALSE(readPreference(p, key, text)) << key << " = " << text;
        EXPECT_EQ(preferenceText(p, key), preferenceText(defaultUserPreferences("/home/u"), key))
            << key;
    }
    const std::tuple<std::string_view, std::string_view, std::string_view> accepted[] = {
        {"Enable Fill ROI", "0", "false"},
        {"Use Image Directory", "1", "true"},
        {"Opacity Value", "0", "0"},
        {"Opacity Value", "1", "1"},
        {"Opacity Value", "0.50", "0.5"},
        {"Default Image Scale", "-3", "-3"},
        {"ROI Fill Color", "0 0.5 1 0.25", "0 0.5 1 0.25"},
    };
    for (const auto& [key, text, stored] : accepted) {
        UserPreferences p;
        EXPECT_TRUE(readPreference(p, key, text)) << key << " = " << text;
        EXPECT_EQ(preferenceText(p, key), stored) << key;
    }
}

TEST_F(PreferencesTest, SavedPreferencesAreReadBackByTheNextRun) {
    controller.userPreferences().defaultImageScale = 4;  // carried, not edited
    controller.setROIBorderColor({0.0f, 0.25f, 1.0f, 0.75f});
    controller.setROIOpacity(0.5f);
    controller.setFillROI(false);
    ASSERT_TRUE(controller.saveUserPreferences(store));
    EXPECT_EQ(store.saved.size(), 16u);
    EXPECT_EQ(store.saved.at("Opacity Value"), "0.5");

    LogPort nextPort;
    PixmeraVeltroController next(nextPort);
    next.awakeFromNib();
    next.registerDefaults("/home/u");
    next.restoreUserPreferences(store);
    EXPECT_TRUE(nextPort.log.empty());
    EXPECT_EQ(next.userPreferences().defaultImageScale, 4);
    EXPECT_FALSE(next.userPreferences().enableFillROI);
    EXPECT_EQ(next.userPreferences().roiBorderColor, (Color{0.0f, 0.25f, 1.0f, 0.75f}));
    EXPECT_EQ(next.userPreferences().exportDirectory, "/home/u");
}

TEST_F(PreferencesTest, FirstRunHasTheDefaultsAndLogsNothing) {
    controller.restoreUserPreferences(store);
    for (const std::string_view key : preferenceKeys()) {
        EXPECT_EQ(preferenceText(controller.userPreferences(), key),
                  preferenceText(defaultUserPreferences("/home/u"), key));
    }
    EXPECT_TRUE(port.log.empty());
}

TEST_F(PreferencesTest, AnUnreadableValueTakesItsDefaultWithALogLine) {
    store.saved = {{"Opacity Value", "banana"}, {"ROI Type", "3"}, {"ROI Fill Color", "0 0 1"}};
    controller.restoreUserPreferences(store);
    EXPECT_EQ(controller.userPreferences().opacityValue, 0.2f);
    EXPECT_EQ(controller.userPreferences().roiFillColor, (Color{1, 1, 1, 1}));
    EXPECT_EQ(controller.userPreferences().roiType, 3);  // the readable one is kept
    ASSERT_EQ(port.log.size(), 2u);
    for (const std::string& line : port.log) {
        EXPECT_EQ(line.rfind(store.location() + ": ", 0), 0u) << line;
    }
    EXPECT_NE(port.log[0].find("\"ROI Fill Color\" holds \"0 0 1\""), std::string::npos);
    EXPECT_NE(port.log[1].find("\"Opacity Value\" holds \"banana\""), std::string::npos);
    EXPECT_NE(port.log[1].find("\"0.2\""), std::string::npos);
}

TEST_F(PreferencesTest, AStoreThatCannotBeReadGivesEveryDefault) {
    store.saved = {{"Opacity Value", "0.9"}};
    store.readable = Status(Error{store.location(), "it is not a settings file"});
    controller.restoreUserPreferences(store);
    EXPECT_EQ(controller.userPreferences().opacityValue, 0.2f);
    ASSERT_EQ(port.log.size(), 1u);
    EXPECT_EQ(port.log[0], store.location() +
                               ": it is not a settings file; every preference takes its default.");
}

TEST_F(PreferencesTest, AFailedWriteIsLogged) {
    store.writable = false;
    EXPECT_FALSE(controller.saveUserPreferences(store));
    ASSERT_EQ(port.log.size(), 1u);
    EXPECT_EQ(port.log[0], "cannot write " + store.location() + ": the disk is full");
}

// The marker draws in the colours read at start, and each colour or opacity change replaces
// it by an empty one in the new colours; the fill setting only redraws.
TEST_F(PreferencesTest, TheMarkerFollowsThePreferences) {
    store.saved = {{"ROI Border Color", "0 1 0 1"}, {"Opacity Value", "0.4"}};
    controller.restoreUserPreferences(store);
    RecordingPainter drawn = drawnRegion();
    ASSERT_EQ(drawn.strokes.size(), 1u);
    EXPECT_EQ(drawn.strokes[0], (Color{0, 1, 0, 1}));
    EXPECT_EQ(drawn.fills.at(0), (Color{1, 1, 1, 0.4f}));

    const CROI_CropMarker* before = controller.scatterGramGraph().selectionMarker();
    const int redraws = port.redraws;
    controller.setROIOpacity(0.5f);
    EXPECT_NE(controller.scatterGramGraph().selectionMarker(), before);
    EXPECT_TRUE(controller.scatterGramGraph().selectedRectSize().isEmpty());
    EXPECT_GT(port.redraws, redraws);
    controller.setROIFillColor({0, 0, 1, 1});
    EXPECT_EQ(drawnRegion().fills.at(0), (Color{0, 0, 1, 0.5f}));

    before = controller.scatterGramGraph().selectionMarker();
    const int redrawsBeforeFill = port.redraws;
    controller.setFillROI(false);
    EXPECT_EQ(controller.scatterGramGraph().selectionMarker(), before);
    EXPECT_FALSE(controller.scatterGramGraph().selectedRectSize().isEmpty());
    EXPECT_EQ(port.redraws, redrawsBeforeFill + 1);
    RecordingPainter unfilled;
    controller.scatterGramGraph().drawRect(unfilled);
    EXPECT_TRUE(unfilled.fills.empty());
    EXPECT_EQ(unfilled.strokes.size(), 1u);
}

}  // namespace
}  // namespace pv
