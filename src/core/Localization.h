#pragma once

#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>

namespace pv {

// Every user-visible text passes through here, keyed by its English form. The desktop program
// installs Qt's translator once at start-up; without one the key itself is the text.
// In the translated text %1, %2, ... %n take the values in that order (a placeholder without a
// value becomes empty) and %% becomes %. The values are copied as they are, never scanned.
std::string tr(std::string_view english, std::initializer_list<std::string_view> values = {});

using Translator = std::function<std::string(std::string_view)>;
void installTranslator(Translator translator);

}  // namespace pv
