#include "core/Localization.h"

#include <cstddef>
#include <utility>

namespace pv {

namespace {
Translator& translator() {
    static Translator instance;
    return instance;
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

std::string fill(std::string_view format, std::initializer_list<std::string_view> values) {
    std::string out;
    out.reserve(format.size());
    for (std::size_t i = 0; i < format.size(); ++i) {
        const char c = format[i];
        if (c != '%' || i + 1 == format.size()) {
            out += c;
        } else if (format[i + 1] == '%') {
            out += '%';
            ++i;
        } else if (isDigit(format[i + 1])) {
            // Every digit belongs to the number; past the values it no longer matters how far.
            std::size_t n = 0;
            while (i + 1 < format.size() && isDigit(format[i + 1])) {
                const std::size_t digit = std::size_t(format[++i] - '0');
                n = n > values.size() ? n : n * 10 + digit;
            }
            if (n >= 1 && n <= values.size()) {
                out += values.begin()[n - 1];
            }
        } else {
            out += c;
        }
    }
    return out;
}

}  // namespace

std::string tr(std::string_view english, std::initializer_list<std::string_view> values) {
    const Translator& t = translator();
    return fill(t ? t(english) : std::string(english), values);
}

void installTranslator(Translator translator_) {
    translator() = std::move(translator_);
}

}  // namespace pv
