#include "providers/render/RendererSlot.h"

#include "tests/support/OutputCapture.h"

#include <gtest/gtest.h>
#include <limits>

namespace OstrandService {
namespace {

using Slots = std::vector<RendererSlot>;
using Texts = std::vector<std::string>;

constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();

picojson::value parsed(const std::string& json) {
    picojson::value value;
    EXPECT_EQ(picojson::parse(value, json), "") << json;
    return value;
}

RendererSlot readSlot(const std::string& json) {
    RendererSlot slot;
    EXPECT_TRUE(slot.readFrom(parsed(json))) << json;
    return slot;
}

Slots readSlots(const std::string& json) {
    return readRendererSlots(parsed(json));
}

std::string dumped(const RendererSlot& slot, int index = 0) {
    Support::OutputCapture capture;
    slot.dump(index);
    return capture.errors();
}

const std::string defaults = "Renderer : 0\n"
                             "  class   : opengl\n"
                             "  gpus    : 1\n"
                             "  cpus    : 1\n"
                             "  port     : 42000\n"
                             "  outputs :  [0] framebuffer, \n"
                             "  display  : :0.0\n"
                             "  app      : appDapple\n"
                             "  portOpt  : --port\n"
                             "  classOpt : --class\n"
                             "  gpuOpt   : --gpus\n"
                             "  cpuOpt   : --cpus\n"
                             "  outOpt   : --output\n"
                             "  addOpt   : --foobar\n";

TEST(RendererSlotTest, HasDefaults) {
    EXPECT_EQ(dumped(RendererSlot()), defaults);
}

TEST(RendererSlotTest, ReadsEveryKey) {
    const RendererSlot slot = readSlot(
        "{\"class\":\"ray\",\"gpus\":2,\"cpus\":3,\"port\":4,\"outputs\":[\"image\",\"video\"],"
        "\"displays\":[\":7\"],\"exe\":\"app -x\",\"portOpt\":\"-p\",\"classOpt\":\"-c\","
        "\"gpuOpt\":\"-g\",\"cpuOpt\":\"-u\",\"outOpt\":\"-o\",\"addOpt\":\"-a\"}");
    EXPECT_EQ(dumped(slot, 12), "Renderer : 12\n"
                                "  class   : ray\n"
                                "  gpus    : 2\n"
                                "  cpus    : 3\n"
                                "  port     : 4\n"
                                "  outputs :  [0] framebuffer,  [1] image,  [2] video, \n"
                                "  display  : :0.0\n"
                                "  app      : app -x\n"
                                "  portOpt  : -p\n"
                                "  classOpt : -c\n"
                                "  gpuOpt   : -g\n"
                                "  cpuOpt   : -u\n"
                                "  outOpt   : -o\n"
                                "  addOpt   : -a\n");
}

TEST(RendererSlotTest, PassesOverValuesOfOtherTypes) {
    for (const char* other : {"null", "true", "{}", "[]", "[\"a\"]", "[1]"}) {
        for (const char* key : {"class", "gpus", "cpus", "port", "exe", "portOpt", "classOpt",
                                "gpuOpt", "cpuOpt", "outOpt", "addOpt"})
            EXPECT_EQ(dumped(readSlot(std::string("{\"") + key + "\":" + other + "}")), defaults)
                << key << " " << other;
    }
    for (const char* key :
         {"class", "exe", "portOpt", "classOpt", "gpuOpt", "cpuOpt", "outOpt", "addOpt"})
        EXPECT_EQ(dumped(readSlot(std::string("{\"") + key + "\":7}")), defaults) << key;
    for (const char* key : {"gpus", "cpus", "port"})
        EXPECT_EQ(dumped(readSlot(std::string("{\"") + key + "\":\"2\"}")), defaults) << key;
    for (const char* other : {"null", "true", "{\"a\":1}", "[]", "7", "\"image\""})
        EXPECT_EQ(dumped(readSlot(std::string("{\"outputs\":") + other + "}")), defaults) << other;
}

TEST(RendererSlotTest, ReadsNothingFromWhatIsNoObject) {
    for (const char* other : {"null", "true", "7", "\"class\"", "[]", "[{\"class\":\"ray\"}]"})
        EXPECT_EQ(dumped(readSlot(other)), defaults) << other;
}

TEST(RendererSlotTest, KnowsNoOtherKeys) {
    EXPECT_EQ(
        dumped(readSlot("{\"app\":\"x\",\"className\":\"x\",\"display\":\"x\",\"Class\":\"x\","
                        "\"\":\"x\",\"output\":[\"x\"]}")),
        defaults);
}

TEST(RendererSlotTest, CutsNumbersTowardsZeroAndIntoTheRange) {
    const auto port = [](const char* number) {
        return readSlot(std::string("{\"port\":") + number + "}").port;
    };
    EXPECT_EQ(port("42000.9"), 42000);
    EXPECT_EQ(port("-1.9"), -1);
    EXPECT_EQ(port("-0.5"), 0);
    EXPECT_EQ(port("0"), 0);
    EXPECT_EQ(port("1e2"), 100);
    EXPECT_EQ(port("2147483647"), highest);
    EXPECT_EQ(port("2147483647.9"), highest);
    EXPECT_EQ(port("2147483648"), highest);
    EXPECT_EQ(port("4294967296"), highest);
    EXPECT_EQ(port("1e20"), highest);
    EXPECT_EQ(port("1e300"), highest);
    EXPECT_EQ(port("-2147483648.9"), lowest);
    EXPECT_EQ(port("-1e20"), lowest);
    EXPECT_EQ(readSlot("{\"gpus\":1e20}").gpus, highest);
    EXPECT_EQ(readSlot("{\"cpus\":-3.7}").cpus, -3);
}

TEST(RendererSlotTest, AddsToTheOutputs) {
    EXPECT_EQ(readSlot("{\"outputs\":[\"image\"]}").outputs, (Texts{"framebuffer", "image"}));
    EXPECT_EQ(readSlot("{\"outputs\":[]}").outputs, (Texts{"framebuffer"}));
    EXPECT_EQ(
        readSlot("{\"outputs\":[1,\"b\",null,[\"c\"],\"b\",{},\"\",\"framebuffer\"]}").outputs,
        (Texts{"framebuffer", "b", "b", "", "framebuffer"}));
}

TEST(RendererSlotTest, SaysWhatItDelivers) {
    const RendererSlot slot = readSlot("{\"outputs\":[\"image\"]}");
    EXPECT_TRUE(slot.delivers("framebuffer"));
    EXPECT_TRUE(slot.delivers("image"));
    EXPECT_FALSE(slot.delivers("imag"));
    EXPECT_FALSE(slot.delivers("Image"));
    EXPECT_FALSE(slot.delivers(""));
}

TEST(RendererSlotTest, HasNoOutputOnlyWhereItHadNone) {
    RendererSlot slot;
    slot.outputs.clear();
    EXPECT_FALSE(slot.readFrom(parsed("{\"outputs\":[1]}")));
    EXPECT_TRUE(slot.readFrom(parsed("{\"outputs\":[\"\"]}")));
}

TEST(RendererSlotsTest, AreOneForEachDisplayWithPortsRunningUp) {
    const Slots slots = readSlots(
        "{\"renderer\":[{\"port\":50000,\"displays\":[\":0.0\",\":0.1\"],\"class\":\"ray\"}]}");
    ASSERT_EQ(slots.size(), 2u);
    EXPECT_EQ(slots[0].display, ":0.0");
    EXPECT_EQ(slots[0].port, 50000);
    EXPECT_EQ(slots[1].display, ":0.1");
    EXPECT_EQ(slots[1].port, 50001);
    RendererSlot other = slots[0];
    other.display = ":0.1";
    other.port = 50001;
    EXPECT_EQ(dumped(slots[1]), dumped(other));
    EXPECT_EQ(slots[1].className, "ray");
}

TEST(RendererSlotsTest, BeginEachEntryWithTheDefaults) {
    const Slots slots = readSlots("{\"renderer\":[{\"port\":5,\"class\":\"a\",\"outputs\":[\"x\"],"
                                  "\"displays\":[\":1\",\":2\"]},{\"displays\":[\":3\"]}]}");
    ASSERT_EQ(slots.size(), 3u);
    EXPECT_EQ(slots[1].outputs, (Texts{"framebuffer", "x"}));
    EXPECT_EQ(slots[2].port, 42000);
    EXPECT_EQ(slots[2].className, "opengl");
    EXPECT_EQ(slots[2].outputs, (Texts{"framebuffer"}));
    EXPECT_EQ(slots[2].display, ":3");
}

TEST(RendererSlotsTest, SkipDisplaysThatAreNoText) {
    const Slots slots =
        readSlots("{\"renderer\":[{\"displays\":[1,\"a\",null,{},[\"b\"],true,\"\"]}]}");
    ASSERT_EQ(slots.size(), 2u);
    EXPECT_EQ(slots[0].display, "a");
    EXPECT_EQ(slots[1].display, "");
    EXPECT_EQ(slots[1].port, 42001);
}

TEST(RendererSlotsTest, AreNoneWithoutDisplays) {
    for (const char* entry :
         {"{}", "{\"displays\":[]}", "{\"displays\":\":0\"}", "{\"displays\":{\"0\":\":0\"}}",
          "{\"displays\":null}", "{\"displays\":3}", "{\"display\":\":0\"}", "null", "7", "\":0\"",
          "[\":0\"]", "[{\"displays\":[\":0\"]}]"})
        EXPECT_TRUE(readSlots(std::string("{\"renderer\":[") + entry + "]}").empty()) << entry;
}

TEST(RendererSlotsTest, AreNoneWithoutAListOfRenderers) {
    for (const char* config :
         {"{}", "{\"renderer\":[]}", "{\"renderer\":null}",
          "{\"renderer\":{\"displays\":[\":0\"]}}", "{\"renderer\":\"x\"}", "{\"renderer\":5}",
          "{\"Renderer\":[{\"displays\":[\":0\"]}]}", "[]",
          "[{\"renderer\":[{\"displays\":[\":0\"]}]}]", "5", "null", "\"renderer\"", "true"})
        EXPECT_TRUE(readSlots(config).empty()) << config;
}

TEST(RendererSlotsTest, EntriesThatAreNoObjectsLeaveTheOthersAlone) {
    const Slots slots = readSlots("{\"renderer\":[7,{\"displays\":[\":0\"]},null,\"x\",[],"
                                  "{\"displays\":[\":1\"],\"port\":1}]}");
    ASSERT_EQ(slots.size(), 2u);
    EXPECT_EQ(slots[0].port, 42000);
    EXPECT_EQ(slots[1].port, 1);
}

TEST(RendererSlotsTest, PortsStopAtTheHighestNumber) {
    const Slots slots =
        readSlots("{\"renderer\":[{\"port\":2147483646,\"displays\":[\"a\",\"b\",\"c\",\"d\"]}]}");
    ASSERT_EQ(slots.size(), 4u);
    EXPECT_EQ(slots[0].port, highest - 1);
    EXPECT_EQ(slots[1].port, highest);
    EXPECT_EQ(slots[2].port, highest);
    EXPECT_EQ(slots[3].port, highest);
}

TEST(RendererSlotsTest, PortsRunUpFromBelowZero) {
    const Slots slots =
        readSlots("{\"renderer\":[{\"port\":-1.5,\"displays\":[\"a\",\"b\",\"c\"]}]}");
    ASSERT_EQ(slots.size(), 3u);
    EXPECT_EQ(slots[0].port, -1);
    EXPECT_EQ(slots[2].port, 1);
}

} // namespace
} // namespace OstrandService
