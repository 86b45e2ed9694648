#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "core/Result.h"
#include "core/UserPreferences.h"

namespace pv {

// Where the user preferences live between runs: one text per key. The desktop program's store
// is QSettings; what the texts mean, and which of them are acceptable, is decided here.
class PreferenceStore {
  public:
    virtual ~PreferenceStore() = default;

    // The file, for messages.
    virtual std::string location() const = 0;
    // Whether the store as a whole could be read; when not, no value of it is trusted.
    virtual Status readStatus() const = 0;
    // The stored text of a key; none when it was never saved.
    virtual std::optional<std::string> value(const std::string& key) const = 0;
    virtual void setValue(const std::string& key, const std::string& text) = 0;
    // Writes what was set, all of it or (on failure) none of it.
    virtual Status sync() = 0;
};

// The sixteen keys, in the order they are written at quit.
std::span<const std::string_view> preferenceKeys();

// The registered defaults: the directories are the user's home and its "Pictures".
UserPreferences defaultUserPreferences(const std::string& homeDirectory);

// A field's stored text: integers in decimal, flags "true"/"false", the opacity as the shortest
// decimal that reads back to the same float, colours as their four RGBA components in that
// form, separated by spaces, and directories as they are.
std::string preferenceText(const UserPreferences& prefs, std::string_view key);

// Reads a stored text into the field of `key`. False, leaving the field alone, when the text
// is not a value of the field: not a number, out of range (the opacity and the colour
// components run from 0 to 1), or a directory that is not an absolute path.
bool readPreference(UserPreferences& prefs, std::string_view key, std::string_view text);

}  // namespace pv
