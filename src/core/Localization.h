#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace pv {

// Every user-visible text passes through here, keyed by its English form. The desktop program
// installs Qt's translator once at start-up; without one the key itself is the text.
std::string tr(std::string_view english);

using Translator = std::function<std::string(std::string_view)>;
void installTranslator(Translator translator);

}  // namespace pv
