#include "providers/render/ServiceDappleRenderJob.h"

#include "providers/render/RendererSlot.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace OstrandService {
namespace {

using Job = boost::shared_ptr<ServiceDappleRenderJob>;
using Commands = ServiceJobBase::Commands;

Job create(const std::string& json) {
    picojson::value value;
    EXPECT_EQ(picojson::parse(value, json), "") << json;
    return ServiceDappleRenderJob::createJob(value);
}

Commands commandsOf(ServiceDappleRenderJob& job) {
    Commands commands;
    job.getCommands(commands);
    return commands;
}

TEST(ServiceDappleRenderJobTest, TakesADescriptionAsItIs) {
    const Job job = create("{ \"output\" : \"image\", \"class\" : \"ray\", \"model\" : \"a/b\","
                           " \"n\" : 1e20, \"list\" : [ 1, { \"b\" : null } ] }");
    ASSERT_TRUE(job);
    EXPECT_EQ(job->desc.getClass(), "ray");
    EXPECT_EQ(job->desc.getOutput(), "image");
    EXPECT_EQ(job->metaText, "{\"class\":\"ray\",\"list\":[1,{\"b\":null}],\"model\":\"a\\/b\","
                             "\"n\":1e+20,\"output\":\"image\"}");
    EXPECT_EQ(job->state, JobState::INVALID);
    EXPECT_STREQ(job->resultText.load(), "");
    EXPECT_EQ(job->slot, nullptr);
}

TEST(ServiceDappleRenderJobTest, AsksForAFrameBufferOfOpenGLByDefault) {
    const Job job = create("{}");
    ASSERT_TRUE(job);
    EXPECT_EQ(job->desc.getClass(), "opengl");
    EXPECT_EQ(job->desc.getOutput(), "framebuffer");
    EXPECT_EQ(job->metaText, "{}");
}

TEST(ServiceDappleRenderJobTest, IsNullForARefusedDescription) {
    for (const char* json :
         {"{\"class\":null}", "{\"class\":1}", "{\"output\":[\"image\"]}", "{\"output\":null}",
          "{\"environment\":[]}", "{\"environment\":{\"A\":1}}", "{\"environment\":null}"})
        EXPECT_FALSE(create(json)) << json;
}

TEST(ServiceDappleRenderJobTest, HandsItsEnvironmentToNobody) {
    const Job job = create("{\"environment\":{\"A\":\"b\"}}");
    ASSERT_TRUE(job);
    EnvironmentList environment;
    job->getEnvironment(environment);
    EXPECT_TRUE(environment.empty());
    EXPECT_EQ(job->metaText, "{\"environment\":{\"A\":\"b\"}}");
}

TEST(ServiceDappleRenderJobTest, HasNoCommandWithoutASlot) {
    const Job job = create("{}");
    EXPECT_EQ(commandsOf(*job), Commands());
}

TEST(ServiceDappleRenderJobTest, HasOneCommandOfTenStrings) {
    RendererSlot slot;
    slot.app = "app --port 7";
    slot.className = "ray";
    slot.gpus = -2;
    slot.cpus = 16;
    slot.port = 4711;
    slot.display = ":9";
    const Job job = create("{\"output\":\"image\"}");
    job->slot = &slot;
    Commands commands = {{"before"}};
    job->getCommands(commands);
    EXPECT_EQ(commands, (Commands{{"before"},
                                  {"app --port 7", "--class", "ray", "--gpus", "-2", "--cpus", "16",
                                   "--output", "image", "--foobar"}}));
}

// The other nine strings go nowhere.
TEST(ServiceDappleRenderJobTest, StartsTheApplicationAlone) {
    const Support::TemporaryFolder folder;
    RendererSlot slot;
    slot.app = "sh -c 'echo $# $0 $*; pwd' x 'a b'";
    const Job job = create("{}");
    job->slot = &slot;
    job->id = 3;
    job->prepare(folder.path());
    job->run();
    EXPECT_EQ(job->state, JobState::CLOSED);
    EXPECT_STREQ(job->resultText.load(), "See Resource");
    EXPECT_EQ(folder.read("3/console.txt"), "1 x a b\n" + folder.path("3") + "\n");
    EXPECT_EQ(folder.read("3/.meta"), "{}");
    EXPECT_FALSE(folder.has("3/.status"));
}

// The same folder serves the slot's next job, after a restart.
TEST(ServiceDappleRenderJobTest, TakesOverTheFolderOfTheJobBefore) {
    const Support::TemporaryFolder folder;
    folder.write("0/.meta", "{\"a much longer\":\"text than the new one\"}");
    folder.write("0/console.txt", "former\n");
    RendererSlot slot;
    slot.app = "echo now";
    const Job job = create("{}");
    job->slot = &slot;
    job->prepare(folder.path());
    job->run();
    EXPECT_EQ(folder.read("0/.meta"), "{}");
    EXPECT_EQ(folder.read("0/console.txt"), "former\nnow\n");
}

TEST(ServiceDappleRenderJobTest, FailsWhereNothingCanBeStarted) {
    const Support::TemporaryFolder folder;
    RendererSlot slot;
    const Job job = create("{}");
    job->slot = &slot;
    job->prepare(folder.path());
    for (const char* app : {"", "no-such-renderer", "'unclosed"}) {
        slot.app = app;
        job->run();
        EXPECT_EQ(job->state, JobState::ERROR) << app;
    }
    const std::string line =
        "Error spawning process. Called tool most likely not executable or found\n";
    EXPECT_EQ(folder.read("0/console.txt"), line + line + line);
}

} // namespace
} // namespace OstrandService
