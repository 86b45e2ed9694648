#include "controller/Preferences.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <variant>

#include "core/Localization.h"

namespace pv {

namespace {

using Field =
    std::variant<std::int32_t UserPreferences::*, bool UserPreferences::*, float UserPreferences::*,
                 Color UserPreferences::*, std::string UserPreferences::*>;

struct Entry {
    std::string_view key;
    Field field;
};

// In the order of writing; the reading order does not matter, as no value depends on another.
constexpr std::array<Entry, 16> kEntries = {{
    {"ROI Fill Color", &UserPreferences::roiFillColor},
    {"ROI Border Color", &UserPreferences::roiBorderColor},
    {"Opacity Value", &UserPreferences::opacityValue},
    {"Enable Fill ROI", &UserPreferences::enableFillROI},
    {"ROI Type", &UserPreferences::roiType},
    {"Export Settings", &UserPreferences::exportSettings},
    {"Default Image Scale", &UserPreferences::defaultImageScale},
    {"Image Drawer Open On Launch", &UserPreferences::imageDrawerOpenOnLaunch},
    {"Use iPhoto 2 Image Libraries", &UserPreferences::useIPhoto2ImageLibraries},
    {"Organize Export Data", &UserPreferences::organizeExportData},
    {"PDF Paper Size", &UserPreferences::pdfPaperSize},
    {"Export Data Type", &UserPreferences::exportDataType},
    {"Export Image Type", &UserPreferences::exportImageType},
    {"Export Directory", &UserPreferences::exportDirectory},
    {"Use Image Directory", &UserPreferences::useImageDirectory},
    {"Image Directory", &UserPreferences::imageDirectory},
}};

constexpr std::array<std::string_view, 16> keysOf(const std::array<Entry, 16>& entries) {
    std::array<std::string_view, 16> keys{};
    std::transform(entries.begin(), entries.end(), keys.begin(),
                   [](const Entry& e) { return e.key; });
    return keys;
}

const Entry* entryFor(std::string_view key) {
    const auto found = std::find_if(kEntries.begin(), kEntries.end(),
                                    [key](const Entry& e) { return e.key == key; });
    return found == kEntries.end() ? nullptr : &*found;
}

std::string floatText(float v) {
    std::array<char, 32> buffer{};
    const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), v).ptr;
    return std::string(buffer.data(), end);
}

// The whole text must be the number; 0 to 1 holds NaN out.
std::optional<float> unitFloat(std::string_view text) {
    float v = 0.0f;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
    if (ec != std::errc() || end != text.data() + text.size() || !(v >= 0.0f && v <= 1.0f)) {
        return std::nullopt;
    }
    return v;
}

struct Writer {
    const UserPreferences& p;
    std::string operator()(std::int32_t UserPreferences::*f) const { return std::to_string(p.*f); }
    std::string operator()(bool UserPreferences::*f) const { return p.*f ? "true" : "false"; }
    std::string operator()(float UserPreferences::*f) const { return floatText(p.*f); }
    std::string operator()(Color UserPreferences::*f) const {
        const Color& c = p.*f;
        return floatText(c.red) + ' ' + floatText(c.green) + ' ' + floatText(c.blue) + ' ' +
               floatText(c.alpha);
    }
    std::string operator()(std::string UserPreferences::*f) const { return p.*f; }
};

struct Reader {
    UserPreferences& p;
    std::string_view text;

    bool operator()(std::int32_t UserPreferences::*f) const {
        std::int32_t v = 0;
        const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
        if (ec != std::errc() || end != text.data() + text.size()) {
            return false;
        }
        p.*f = v;
        return true;
    }
    bool operator()(bool UserPreferences::*f) const {
        if (text != "true" && text != "false" && text != "1" && text != "0") {
            return false;
        }
        p.*f = text == "true" || text == "1";
        return true;
    }
    bool operator()(float UserPreferences::*f) const {
        const std::optional<float> v = unitFloat(text);
        if (v) {
            p.*f = *v;
        }
        return v.has_value();
    }
    bool operator()(Color UserPreferences::*f) const {
        std::array<float, 4> c{};
        std::string_view rest = text;
        for (std::size_t i = 0; i < c.size(); ++i) {
            const std::size_t space = rest.find(' ');
            const std::optional<float> v = unitFloat(rest.substr(0, space));
            if (!v || (space == std::string_view::npos) != (i == c.size() - 1)) {
                return false;
            }
            c[i] = *v;
            rest.remove_prefix(space == std::string_view::npos ? rest.size() : space + 1);
        }
        p.*f = Color{c[0], c[1], c[2], c[3]};
        return true;
    }
    bool operator()(std::string UserPreferences::*f) const {
        if (text.empty() || text.front() != '/') {
            return false;
        }
        p.*f = std::string(text);
        return true;
    }
};

}  // namespace

std::span<const std::string_view> preferenceKeys() {
    static constexpr std::array<std::string_view, 16> keys = keysOf(kEntries);
    return keys;
}

UserPreferences defaultUserPreferences(const std::string& homeDirectory) {
    UserPreferences prefs;
    prefs.exportDirectory = homeDirectory;
    prefs.imageDirectory = homeDirectory + '/' + tr("Pictures");
    return prefs;
}

std::string preferenceText(const UserPreferences& prefs, std::string_view key) {
    const Entry* entry = entryFor(key);
    return entry ? std::visit(Writer{prefs}, entry->field) : std::string();
}

bool readPreference(UserPreferences& prefs, std::string_view key, std::string_view text) {
    const Entry* entry = entryFor(key);
    return entry != nullptr && std::visit(Reader{prefs, text}, entry->field);
}

}  // namespace pv
