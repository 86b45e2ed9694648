#pragma once

#include <QSettings>

#include "controller/PixmeraVeltroController.h"
#include "controller/Preferences.h"

namespace pv::app {

// The user preferences in the per-user QSettings file (an INI file under the user's
// configuration folder, named after the organisation and the application). QSettings writes
// through a temporary file renamed over the old one, so a crash never leaves half a file.
class SettingsPreferenceStore : public PreferenceStore {
  public:
    SettingsPreferenceStore();

    std::string location() const override;
    Status readStatus() const override { return readStatus_; }
    std::optional<std::string> value(const std::string& key) const override;
    void setValue(const std::string& key, const std::string& text) override;
    Status sync() override;

  private:
    QSettings settings_;
    Status readStatus_;
};

// At start: the defaults (with the user's home folders), then what the user saved.
void restoreUserPreferences(PixmeraVeltroController& controller);
// At quit: all sixteen, in one write.
void saveUserPreferences(PixmeraVeltroController& controller);

}  // namespace pv::app
