#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <string_view>

#include "core/Localization.h"
#include "core/Result.h"

namespace pv {
namespace {

TEST(Tr, FillsNumberedPlaceholders) {
    const struct {
        std::string_view format;
        std::initializer_list<std::string_view> values;
        std::string want;
    } table[] = {
        {"%1 of %2", {"a", "b"}, "a of b"},
        {"%2, then %1, then %2", {"a", "b"}, "b, then a, then b"},
        {"%1 stays %1", {"x"}, "x stays x"},
        {"100%% of %1%%", {"7"}, "100% of 7%"},
        {"%%1 is not a placeholder", {"a"}, "%1 is not a placeholder"},
        {"missing: [%3] [%0] [%]", {"a", "b"}, "missing: [] [] [%]"},
        {"values are not scanned: %1 %2", {"%2%%", "b"}, "values are not scanned: %2%% b"},
        {"%10|%1|%11|%9",
         {"1", "2", "3", "4", "5", "6", "7", "8", "9", "ten", "eleven"},
         "ten|1|eleven|9"},
        {"%12", {"only"}, ""},
        {"%99999999999999999999999", {"a"}, ""},
        {"ends with %", {}, "ends with %"},
    };
    for (const auto& c : table) {
        EXPECT_EQ(tr(c.format, c.values), c.want) << c.format;
    }
}

// The translation may move the placeholders; the values follow their numbers.
TEST(Tr, FillsTheTranslatedText) {
    installTranslator([](std::string_view english) {
        return english == "%1 of %2" ? std::string("von %2: %1") : std::string(english);
    });
    EXPECT_EQ(tr("%1 of %2", {"a", "b"}), "von b: a");
    EXPECT_EQ(tr("untouched %1", {"a"}), "untouched a");
    installTranslator(nullptr);
}

TEST(Error, MessageNamesTheFileBeforeTheReason) {
    const struct {
        Error error;
        std::string want;
    } table[] = {
        {{"cells.tif", "the file is empty"}, "cells.tif: the file is empty"},
        {{"", "there is not enough memory"}, "there is not enough memory"},
        {{"out/run.xls", "Permission denied", true}, "cannot write out/run.xls: Permission denied"},
    };
    for (const auto& c : table) {
        EXPECT_EQ(c.error.message(), c.want);
    }
}

}  // namespace
}  // namespace pv
