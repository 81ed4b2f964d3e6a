#include "framework/PagePolicy.h"

#include "platform/portico/MessageHeader.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace OstrandService {
namespace {

TEST(PagePolicyTest, AllowsAPageNothingButItsIcon) {
    EXPECT_EQ(PagePolicy::withoutScripts(),
              "default-src 'none'; img-src 'self'; base-uri 'none'; form-action 'none'; "
              "frame-ancestors 'none'; sandbox");
}

TEST(PagePolicyTest, AllowsAScriptAndAStyleByTheirText) {
    EXPECT_EQ(PagePolicy::withScript("https://h/a.js", "\nvar a = 1;\n", "canvas {}"),
              "default-src 'none'; img-src 'self'; base-uri 'none'; form-action 'none'; "
              "frame-ancestors 'none'; "
              "script-src https://h/a.js 'sha256-UXNer4npOCf/F4eCtHkKG99a5wMJMyYh4BeQWH3QeYQ='; "
              "style-src 'sha256-fRn8u5fzZTT/cGt1ub+w8nOY82OG3U3WTdorF1ppa0c='; "
              "sandbox allow-scripts");
}

TEST(PagePolicyTest, TellsTextsApartThatDifferInOneCharacter) {
    const std::string policy = PagePolicy::withScript("https://h/a.js", "a", "b");
    EXPECT_NE(PagePolicy::withScript("https://h/a.js", "a ", "b"), policy);
    EXPECT_NE(PagePolicy::withScript("https://h/a.js", "a", "b\n"), policy);
    EXPECT_EQ(PagePolicy::withScript("https://h/a.js", "a", "b"), policy);
}

TEST(PagePolicyTest, MakesTheHeaderOfEveryPage) {
    const Portico::MessageHeader header = PagePolicy::header();
    const std::vector<Config::ParamBag::Entry> expected = {
        {"Content-Security-Policy", PagePolicy::withoutScripts()},
        {"X-Content-Type-Options", "nosniff"},
        {"Referrer-Policy", "no-referrer"}};
    EXPECT_EQ(header.entries(), expected);
}

} // namespace
} // namespace OstrandService
