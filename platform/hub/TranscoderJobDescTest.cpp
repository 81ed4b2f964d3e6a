#include "platform/hub/TranscoderJobDesc.h"

#include "platform/hub/Json.h"
#include "platform/hub/TestFolder.h"

#include <gtest/gtest.h>

namespace {

using OstrandService::OutputType;
using OstrandService::ReplyType;
using OstrandService::TranscoderJobDesc;
using Texts = std::vector<std::pair<std::string, std::string>>;

const std::string upload = "@0123abcd-89ef-4000-8000-0123456789ab";

picojson::value json(const std::string& text) {
    picojson::value value;
    EXPECT_TRUE(OstrandHub::parseJson(text, value)) << text;
    return value;
}

class JobDesc : public testing::Test {
protected:
    ~JobDesc() override {
        TranscoderJobDesc::cmd_whitelist = {"fettle", "fettle.exe", "glimt"};
        TranscoderJobDesc::env_whitelist.clear();
        TranscoderJobDesc::secCmdDefaultReplyType = ReplyType::Id;
    }

    TranscoderJobDesc parsed(const std::string& text, const std::string& uploadFolder = "") {
        TranscoderJobDesc desc(uploadFolder);
        desc.parse(json(text));
        return desc;
    }

    /// The uid of a description that must be valid.
    std::string uid(const std::string& text) {
        const TranscoderJobDesc desc = parsed(text);
        EXPECT_TRUE(desc.valid) << text;
        return desc.getUid();
    }

    /// Why a description that must not be valid was refused, as the log has it.
    std::string refusal(const std::string& text) {
        const std::size_t before = log.lines().size();
        const TranscoderJobDesc desc = parsed(text);
        EXPECT_FALSE(desc.valid) << text;
        EXPECT_EQ(desc.getUid(), "") << text;
        const std::vector<std::string> lines = log.lines();
        EXPECT_EQ(lines.size(), before + 1) << text;
        const std::string start = "job refused: ";
        EXPECT_EQ(lines.back().substr(0, start.size()), start);
        return lines.back().substr(start.size());
    }

    const TestLog log;
};

TEST_F(JobDesc, IsNotValidBeforeParse) {
    const TranscoderJobDesc desc("");
    EXPECT_FALSE(desc.valid);
    EXPECT_EQ(desc.getUid(), "");
}

TEST_F(JobDesc, ToolJobHasDefaults) {
    const TranscoderJobDesc desc = parsed(R"({"resource":"a.obj"})");
    EXPECT_TRUE(desc.valid);
    EXPECT_EQ(desc.JobKind, 0);
    EXPECT_EQ(desc.resource, "a.obj");
    EXPECT_EQ(desc.suffix, "");
    EXPECT_EQ(desc.getOperations(), "");
    EXPECT_EQ(desc.getOutputType(), OutputType::X3d);
    EXPECT_FALSE(desc.getMakeScreenShot());
    EXPECT_FALSE(desc.getDuplicateTextures());
    EXPECT_FALSE(desc.rerun);
    EXPECT_EQ(desc.replyType, ReplyType::Id);
    EXPECT_TRUE(desc.getAnnotations().empty());
    EXPECT_TRUE(desc.environment.empty());
    EXPECT_TRUE(desc.cookies.empty());
    EXPECT_TRUE(desc.commands.empty());
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(JobDesc, ReadsAllKeysOfAToolJob) {
    const TranscoderJobDesc desc =
        parsed(R"({"resource":"http://h/a.obj","suffix":"s","ops":"reuse,toSRC","format":"glb",
                   "options":"screenshot,duplicateTextures","annotations":[["a","b"],["c",""]],
                   "cookies":{"z":"1","a":"2"},"reply":"uri","uid":"me","rerun":true,"foo":null})");
    ASSERT_TRUE(desc.valid);
    EXPECT_EQ(desc.resource, "http://h/a.obj");
    EXPECT_EQ(desc.suffix, "s");
    EXPECT_EQ(desc.getOperations(), "reuse,toSRC");
    EXPECT_EQ(desc.getOutputType(), OutputType::Glb);
    EXPECT_TRUE(desc.getMakeScreenShot());
    EXPECT_TRUE(desc.getDuplicateTextures());
    EXPECT_EQ(desc.getAnnotations(), (Texts{{"a", "b"}, {"c", ""}}));
    EXPECT_EQ(desc.cookies, (Texts{{"a", "2"}, {"z", "1"}}));
    EXPECT_EQ(desc.replyType, ReplyType::Uri);
    EXPECT_EQ(desc.getUid(), "me");
    EXPECT_TRUE(desc.rerun);
}

TEST_F(JobDesc, OnlyKnownWishesCount) {
    const TranscoderJobDesc desc =
        parsed(R"({"resource":"a","options":"Screenshot, screenshot,,x"})");
    EXPECT_TRUE(desc.valid);
    EXPECT_FALSE(desc.getMakeScreenShot());
    EXPECT_FALSE(desc.getDuplicateTextures());
}

TEST_F(JobDesc, WrongTypesAreRefused) {
    for (const char* key : {"suffix", "ops", "options", "format", "reply", "uid"}) {
        for (const char* value : {"1", "null", "true", "[]", "{}"}) {
            EXPECT_EQ(refusal(std::string(R"({"resource":"a",")") + key + "\":" + value + "}"),
                      std::string(key) + " is no string");
        }
    }
    EXPECT_EQ(refusal(R"({"resource":1})"), "resource is no string");
    for (const char* key : {"redirect", "rerun"}) {
        for (const char* value : {"1", "null", "\"true\"", "[]"}) {
            EXPECT_EQ(refusal(std::string(R"({"resource":"a",")") + key + "\":" + value + "}"),
                      std::string(key) + " is no boolean");
        }
    }
    for (const char* key : {"environment", "cookies"}) {
        for (const char* value : {"null", "[]", "\"\"", R"({"a":1})", R"({"a":null})"}) {
            EXPECT_EQ(refusal(std::string(R"({"resource":"a",")") + key + "\":" + value + "}"),
                      std::string(key) + " is no object of strings");
        }
    }
}

TEST_F(JobDesc, AnnotationsAreAListOfPairs) {
    EXPECT_EQ(refusal(R"({"resource":"a","annotations":{}})"), "annotations is no list");
    for (const char* value :
         {R"(["a"])", R"([["a"]])", R"([["a","b","c"]])", R"([["a",1]])", "[[]]"})
        EXPECT_EQ(refusal(std::string(R"({"resource":"a","annotations":)") + value + "}"),
                  "annotations is no list of pairs");
}

TEST_F(JobDesc, OnlyObjectsAreDescriptions) {
    for (const char* text : {"[]", "null", "1", "\"x\"", R"([{"resource":"a"}])"})
        EXPECT_EQ(refusal(text), "the description is no object");
}

TEST_F(JobDesc, ToolJobNeedsAResource) {
    EXPECT_EQ(refusal("{}"), "no resource");
    EXPECT_EQ(refusal(R"({"resource":""})"), "no resource");
    EXPECT_EQ(refusal(R"({"resource":"","uid":"u"})"), "no resource");
}

TEST_F(JobDesc, UnknownFormatIsRefused) {
    EXPECT_EQ(refusal(R"({"resource":"a","format":"obj"})"), "unknown format: obj");
    EXPECT_EQ(refusal(R"({"resource":"a","format":""})"), "unknown format: ");
    EXPECT_EQ(refusal(R"({"commands":["fettle"],"format":"X3D"})"), "unknown format: X3D");
}

TEST_F(JobDesc, WordsThatWouldLeaveTheirPlaceOnTheCommandLineAreRefused) {
    const std::string resource = "resource with a double quote or a backslash at its end";
    EXPECT_EQ(refusal(R"({"resource":"a\" -x \"b"})"), resource);
    EXPECT_EQ(refusal(R"({"resource":"a\\"})"), resource);
    EXPECT_EQ(uid(R"({"resource":"a b'\\c"})"), "a b'\\c");
    for (const char* text : {" ", "a b", "\\\"", "'", "\\\\", "a\\\\b", "\\t", "\\n"}) {
        EXPECT_EQ(refusal(std::string(R"({"uid":"u","resource":"a","suffix":")") + text + "\"}"),
                  "suffix with a blank, a quote or a backslash");
        for (const std::string& pair :
             {std::string("\"") + text + "\",\"v\"", std::string("\"n\",\"") + text + "\""})
            EXPECT_EQ(refusal(R"({"uid":"u","resource":"a","annotations":[[)" + pair + "]]}"),
                      "annotation with a blank, a quote or a backslash");
    }
}

TEST_F(JobDesc, UploadWhoseNameEndsInABackslashLeavesItsQuotesOpen) {
    const std::string resource = R"("resource":"a\\)" + upload + "\"}";
    EXPECT_FALSE(parsed("{" + resource, "/uploads").valid);
    EXPECT_TRUE(parsed(R"({"commands":["fettle"],)" + resource, "/uploads").valid);
    // Where the text itself is the resource, the backslash is not its end.
    EXPECT_TRUE(parsed("{" + resource).valid);
}

TEST_F(JobDesc, BatchHasNoUseForTheToolJobsWords) {
    EXPECT_TRUE(parsed(R"({"commands":["fettle"],"suffix":"a b","resource":"a\\"})").valid);
    EXPECT_TRUE(parsed(R"({"commands":["fettle"],"annotations":[["a b","'"]]})").valid);
}

TEST_F(JobDesc, FormedUidHoldsWhatDiffersFromTheDefaults) {
    EXPECT_EQ(uid(R"({"resource":"a"})"), "a");
    EXPECT_EQ(uid(R"({"resource":"a","format":"x3d","ops":"","options":"","suffix":"",
                      "annotations":[],"reply":"file","rerun":true,"cookies":{"a":"b"}})"),
              "a");
    EXPECT_EQ(uid(R"({"resource":"a","format":"html"})"), "a?format=html");
    EXPECT_EQ(uid(R"({"resource":"a?b","options":"foo"})"), "a?b?options=foo");
    EXPECT_EQ(uid(R"({"resource":"a","annotations":[["n","v"],["m","w"]],"format":"glb",
                      "options":"screenshot","ops":"reuse,toSRC","suffix":"s"})"),
              "a?suffix=s&ops=reuse,toSRC&options=screenshot&format=glb&annotations=n:v,m:w");
}

TEST_F(JobDesc, FormedUidOfABatchHoldsItsLines) {
    EXPECT_EQ(uid(R"({"commands":["fettle a","glimt"]})"), "fettle a; glimt");
    EXPECT_EQ(uid(R"({"commands":["fettle"],"resource":"r"})"), "r fettle");
    EXPECT_EQ(uid(R"({"commands":[],"resource":"r"})"), "r ");
    EXPECT_EQ(uid(R"({"commands":[],"uid":"u"})"), "u");
    EXPECT_EQ(refusal(R"({"commands":[]})"), "an empty batch with neither resource nor uid");
    EXPECT_EQ(refusal(R"({"commands":[],"resource":""})"),
              "an empty batch with neither resource nor uid");
    TranscoderJobDesc::cmd_whitelist = {"*"};
    EXPECT_EQ(refusal(R"({"commands":[""]})"), "an empty batch with neither resource nor uid");
    EXPECT_EQ(uid(R"({"commands":["",""]})"), "; ");
}

TEST_F(JobDesc, UidMustNotBeEmptyNorHoldControlCharacters) {
    EXPECT_EQ(refusal(R"({"resource":"a","uid":""})"), "uid is empty");
    for (const char* control : {"\\n", "\\u0000", "\\u001f", "\\u007f"}) {
        EXPECT_EQ(refusal(std::string(R"({"resource":"a","uid":"u)") + control + "\"}"),
                  "uid with a control character");
        EXPECT_EQ(refusal(std::string(R"({"resource":"a)") + control + "\"}"),
                  "uid with a control character");
        EXPECT_EQ(refusal(std::string(R"({"commands":["fettle )") + control + "\"]}"),
                  "uid with a control character");
    }
    EXPECT_EQ(uid(R"({"commands":["fettle a\nb"],"uid":"u \u0080"})"), "u \xc2\x80");
}

TEST_F(JobDesc, ReadsTheCommandsOfABatch) {
    const TranscoderJobDesc desc =
        parsed(R"({"commands":["fettle -i \"a b\"",["glimt x","y",3,"z"],["fettle.exe"]]})");
    ASSERT_TRUE(desc.valid);
    EXPECT_EQ(desc.JobKind, 1);
    ASSERT_EQ(desc.commands.size(), 3U);
    EXPECT_EQ(desc.commands[0].line, "fettle -i \"a b\"");
    EXPECT_EQ(desc.commands[1].line, "glimt x");
    EXPECT_EQ(desc.commands[1].rest, (std::vector<std::string>{"y", "z"}));
    EXPECT_EQ(desc.commands[2].line, "fettle.exe");
}

TEST_F(JobDesc, CommandsOfAnotherFormAreRefused) {
    EXPECT_EQ(refusal(R"({"resource":"a","commands":"fettle"})"), "commands is no list");
    EXPECT_EQ(refusal(R"({"resource":"a","commands":null})"), "commands is no list");
    for (const char* element : {"1", "null", "[]", "{}", "[1]", R"([["fettle"]])"})
        EXPECT_EQ(refusal(std::string(R"({"commands":["fettle",)") + element + "]}"),
                  "commands is no list of command lines");
}

TEST_F(JobDesc, OnlyAllowedProgramsStart) {
    EXPECT_EQ(refusal(R"({"commands":["fettle","rm -rf /"]})"), "program not allowed: rm");
    EXPECT_EQ(refusal(R"({"commands":["/tmp/fettle"]})"), "program not allowed: /tmp/fettle");
    EXPECT_EQ(refusal(R"({"commands":["./fettle"]})"), "program not allowed: ./fettle");
    EXPECT_EQ(refusal(R"({"commands":["Fettle"]})"), "program not allowed: Fettle");
    EXPECT_EQ(refusal(R"({"commands":["'fettle x'"]})"), "program not allowed: fettle x");
    EXPECT_EQ(refusal(R"({"commands":["'' fettle"]})"), "program not allowed: ");
    for (const char* line : {"", "  ", "fettle 'x", "fettle x\\\\"})
        EXPECT_EQ(refusal(std::string(R"({"commands":[")") + line + "\"]}"),
                  "a command line without a program");
}

TEST_F(JobDesc, ProgramIsTheFirstWordAsTheToolIsStarted) {
    EXPECT_TRUE(parsed(R"({"commands":["\"fettle\" x"]})").valid);
    EXPECT_TRUE(parsed(R"({"commands":["fet\"tle\""]})").valid);
    EXPECT_TRUE(parsed(R"({"commands":["  fe\\ttle"]})").valid);
}

TEST_F(JobDesc, StarAllowsEveryLine) {
    TranscoderJobDesc::cmd_whitelist = {"*"};
    EXPECT_TRUE(parsed(R"({"commands":["/bin/rm x"]})").valid);
    EXPECT_TRUE(parsed(R"({"commands":["fettle 'x"]})").valid);
    EXPECT_TRUE(parsed(R"({"commands":[""],"uid":"u"})").valid);
}

TEST_F(JobDesc, EmptyWhitelistAllowsNothing) {
    TranscoderJobDesc::cmd_whitelist.clear();
    EXPECT_EQ(refusal(R"({"commands":["fettle"]})"), "program not allowed: fettle");
    EXPECT_TRUE(parsed(R"({"commands":[],"uid":"u"})").valid);
}

TEST_F(JobDesc, OnlyAllowedVariablesAreTaken) {
    const std::string text = R"({"resource":"a","environment":{"B":"2","A":""}})";
    EXPECT_EQ(refusal(text), "variable not allowed: A");
    TranscoderJobDesc::env_whitelist = {"A"};
    EXPECT_EQ(refusal(text), "variable not allowed: B");
    TranscoderJobDesc::env_whitelist = {"A", "B"};
    EXPECT_EQ(parsed(text).environment, (Texts{{"A", ""}, {"B", "2"}}));
    TranscoderJobDesc::env_whitelist = {"*"};
    EXPECT_EQ(refusal(text), "variable not allowed: A");
    EXPECT_TRUE(parsed(R"({"resource":"a","environment":{}})").valid);
}

TEST_F(JobDesc, RepliesHaveTheirNumbers) {
    const char* const names[] = {"id", "redirect", "file", "uri", "origin"};
    for (std::uint32_t i = 0; i < 5; ++i) {
        const std::string reply = std::string(R"("reply":")") + names[i] + "\"}";
        EXPECT_EQ(static_cast<std::uint32_t>(parsed(R"({"resource":"a",)" + reply).replyType), i);
        EXPECT_EQ(
            static_cast<std::uint32_t>(parsed(R"({"commands":["fettle"],)" + reply).replyType), i);
    }
    EXPECT_EQ(refusal(R"({"resource":"a","reply":""})"), "unknown reply: ");
    EXPECT_EQ(refusal(R"({"resource":"a","reply":"ID"})"), "unknown reply: ID");
    EXPECT_EQ(refusal(R"({"resource":"a","reply":"x","redirect":true})"), "unknown reply: x");
}

TEST_F(JobDesc, RedirectGoesBeforeReply) {
    EXPECT_EQ(parsed(R"({"resource":"a","redirect":true})").replyType, ReplyType::Redirect);
    EXPECT_EQ(parsed(R"({"resource":"a","redirect":true,"reply":"file"})").replyType,
              ReplyType::Redirect);
    EXPECT_EQ(parsed(R"({"resource":"a","redirect":false,"reply":"file"})").replyType,
              ReplyType::File);
    EXPECT_EQ(parsed(R"({"resource":"a","redirect":false})").replyType, ReplyType::Id);
}

TEST_F(JobDesc, DefaultReplyOfABatchCanBeSet) {
    EXPECT_EQ(parsed(R"({"commands":["fettle"]})").replyType, ReplyType::Id);
    TranscoderJobDesc::secCmdDefaultReplyType = ReplyType::Origin;
    EXPECT_EQ(parsed(R"({"commands":["fettle"]})").replyType, ReplyType::Origin);
    EXPECT_EQ(parsed(R"({"commands":["fettle"],"reply":"id"})").replyType, ReplyType::Id);
    EXPECT_EQ(parsed(R"({"resource":"a"})").replyType, ReplyType::Id);
}

TEST_F(JobDesc, UploadIsLookedUpInItsFolderByItsNameAlone) {
    const std::string text = R"({"resource":"../x/a.obj)" + upload + "\"}";
    const TranscoderJobDesc desc = parsed(text, "/cache/in");
    ASSERT_TRUE(desc.valid);
    EXPECT_EQ(desc.resource, "/cache/in/a.obj");
    EXPECT_EQ(desc.getUid(), "../x/a.obj" + upload);
    // Without an upload folder the text stays what it was.
    EXPECT_EQ(parsed(text).resource, "../x/a.obj" + upload);
    EXPECT_EQ(parsed(R"({"resource":"a@b"})", "/cache/in").resource, "a@b");
}

TEST_F(JobDesc, UploadWithoutAFileNameIsRefused) {
    for (const char* name : {"", ".", "..", "a/", "a/..", "/"}) {
        const std::string resource = R"("resource":")" + (name + upload) + "\"}";
        EXPECT_EQ(refusal("{" + resource), "upload without a file name");
        EXPECT_EQ(refusal(R"({"commands":["fettle"],)" + resource), "upload without a file name");
    }
}

TEST_F(JobDesc, ReasonInTheLogIsOneShortLine) {
    const std::string reason = refusal(R"({"commands":["'a\nb\u001b'"]})");
    EXPECT_EQ(reason, "program not allowed: a?b?");
    EXPECT_EQ(refusal(R"({"commands":[")" + std::string(100000, 'x') + "\"]}").size(), 200U);
}

TEST_F(JobDesc, CopyHoldsEverything) {
    TranscoderJobDesc::env_whitelist = {"A"};
    const TranscoderJobDesc first = parsed(R"({"commands":["fettle a"],"environment":{"A":"1"}})");
    const TranscoderJobDesc second(first);
    EXPECT_TRUE(second.valid);
    EXPECT_EQ(second.getUid(), "fettle a");
    EXPECT_EQ(second.environment, first.environment);
    EXPECT_EQ(second.commands.at(0).line, "fettle a");
}

} // namespace
