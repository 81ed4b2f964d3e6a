#include "framework/StateList.h"

#include <gtest/gtest.h>

namespace OstrandService {
namespace {

using Uris = std::vector<std::string>;

std::optional<Uris> questions(const std::string& json) {
    picojson::value value;
    EXPECT_EQ(picojson::parse(value, json), "") << json;
    return stateQuestions(value);
}

TEST(StateListTest, ReadsTheUris) {
    EXPECT_EQ(questions("{\"Parameters\":[]}"), Uris());
    EXPECT_EQ(questions("{\"Parameters\":[[0,\"a\"],[-7.5,\"\",{}],[1,\"b\"]],\"x\":1}"),
              (Uris{"a", "", "b"}));
}

TEST(StateListTest, LeavesOutElementsOfAnotherForm) {
    EXPECT_EQ(questions("{\"Parameters\":[1,\"u\",null,{},[],[0],[\"0\",\"u\"],[null,\"u\"],[0,1],"
                        "[0,null],[\"u\",0],[[0,\"u\"]],[0,\"kept\"]]}"),
              (Uris{"kept"}));
}

TEST(StateListTest, NeedsTheList) {
    for (const char* json : {"1", "[]", "{}", "null", "{\"Parameters\":{}}", "{\"Parameters\":1}",
                             "{\"parameters\":[]}", "{\"Parameters\":null}"})
        EXPECT_EQ(questions(json), std::nullopt) << json;
}

TEST(StateListTest, WritesPairsUnescaped) {
    StateAnswers answers;
    EXPECT_EQ(answers.text(), "[]");
    answers.add(202, "a\"b");
    EXPECT_EQ(answers.text(), "[[202,\"a\"b\"]]");
    answers.add(404, "");
    EXPECT_EQ(answers.text(), "[[202,\"a\"b\"],[404,\"\"]]");
}

} // namespace
} // namespace OstrandService
