#include "core/Localization.h"

#include <utility>

namespace pv {

namespace {
Translator& translator() {
    static Translator instance;
    return instance;
}
}  // namespace

std::string tr(std::string_view english) {
    const Translator& t = translator();
    return t ? t(english) : std::string(english);
}

void installTranslator(Translator translator_) {
    translator() = std::move(translator_);
}

}  // namespace pv
