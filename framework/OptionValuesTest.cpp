#include "framework/OptionValues.h"

#include <boost/program_options.hpp>
#include <gtest/gtest.h>

namespace OstrandService {
namespace {

namespace po = boost::program_options;

/// Options of each kind, parsed from words as the program does.
class OptionValuesTest : public ::testing::Test {
protected:
    OptionValuesTest() {
        desc.add_options()("port", plainNumber(port))("count", plainNumber(count))(
            "workers", plainThreadNumber(workers))(
            "listen", po::value<std::int32_t>(&listen)->notifier(refuseManyThreads));
    }

    void parse(const std::vector<std::string>& words) {
        po::variables_map vm;
        po::store(po::command_line_parser(words).options(desc).run(), vm);
        po::notify(vm);
    }

    po::options_description desc;
    std::uint16_t port = 1;
    std::uint32_t count = 2;
    std::uint32_t workers = 3;
    std::int32_t listen = 4;
};

TEST_F(OptionValuesTest, LeavesTargetsAloneWithoutOptions) {
    parse({});
    EXPECT_EQ(port, 1u);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(workers, 3u);
    EXPECT_EQ(listen, 4);
}

TEST_F(OptionValuesTest, StoresNumbersUpToTheLastOfTheType) {
    parse({"--port", "65535", "--count", "4294967295"});
    EXPECT_EQ(port, 65535u);
    EXPECT_EQ(count, 4294967295u);
    parse({"--port", "0", "--count", "+5"});
    EXPECT_EQ(port, 0u);
    EXPECT_EQ(count, 5u);
}

TEST_F(OptionValuesTest, RefusesWhatIsNoPlainNumber) {
    for (const char* text : {"-1", "-0", "65536", "70000", "-70000", "", "x", "1x", " 1", "1 ",
                             "0x10", "1.0", "1e2", "--1"}) {
        EXPECT_THROW(parse({std::string("--port=") + text}), po::error) << "'" << text << "'";
    }
    EXPECT_THROW(parse({"--port", "-1"}), po::error);
    EXPECT_THROW(parse({"--count=4294967296"}), po::error);
    EXPECT_THROW(parse({"--count=-1"}), po::error);
    EXPECT_EQ(port, 1u);
    EXPECT_EQ(count, 2u);
}

TEST_F(OptionValuesTest, RefusesAnOptionGivenTwice) {
    EXPECT_THROW(parse({"--port", "1", "--port", "2"}), po::multiple_occurrences);
    EXPECT_THROW(parse({"--workers", "1", "--workers", "1"}), po::multiple_occurrences);
}

TEST_F(OptionValuesTest, BoundsThreads) {
    parse({"--workers", "4096", "--listen", "4096"});
    EXPECT_EQ(workers, 4096u);
    EXPECT_EQ(listen, 4096);
    parse({"--workers", "0"});
    EXPECT_EQ(workers, 0u);
    EXPECT_THROW(parse({"--workers", "4097"}), po::error);
    EXPECT_THROW(parse({"--workers", "-1"}), po::error);
    EXPECT_THROW(parse({"--listen", "4097"}), po::error);
    EXPECT_EQ(workers, 0u);
}

// A server serves with one thread then, and the start line shows the number as it was given.
TEST_F(OptionValuesTest, LetsListeningThreadsBelowOneThrough) {
    parse({"--listen", "0"});
    EXPECT_EQ(listen, 0);
    parse({"--listen", "-5"});
    EXPECT_EQ(listen, -5);
}

// The help text shows them like any other option with a value.
TEST_F(OptionValuesTest, TakesAnArgument) {
    EXPECT_EQ(desc.find("port", false).format_parameter(), "arg");
    EXPECT_THROW(parse({"--port"}), po::error);
}

} // namespace
} // namespace OstrandService
