// Whole updates against a web server that misbehaves by name.
#include "lab/FaultServer.h"
#include "lab/LabRun.h"
#include "support/TemporaryDirectory.h"
#include "system/LabFixtures.h"
#include <algorithm>
#include <gtest/gtest.h>

namespace {

class SilentObserver : public lab::LabObserver {
  public:
    void onEvent(const lab::LabEvent&) override {}
};

std::vector<std::string> describe(const lab::LabResult& result) {
    std::vector<std::string> all;
    for (const lab::LabEvent& event : result.requests)
        all.push_back(event.request.range + " " + std::to_string(event.request.status) + " " +
                      std::to_string(event.request.bytes) +
                      (event.request.fault.empty() ? "" : " " + event.request.fault));
    return all;
}

// One fault of each group, on the body of the first part, bytes 716 to 50272.
struct Row {
    const char* fault;
    std::vector<std::string> requests; // the one with the fault, and those until the next part
};

class LabFault : public testing::TestWithParam<Row> {};

TEST_P(LabFault, IsShownAndOvercome) {
    const support::TemporaryDirectory directory;
    twoPartImage(50001, 9000).write(directory.file("image"));
    lab::LabOptions options;
    options.image = directory.file("image");
    options.timeScale = 1000;
    options.timeout = std::chrono::seconds(60);
    options.faults = {"none=2", GetParam().fault};
    SilentObserver observer;
    const lab::WorkDirectory work(directory.file("work"));
    const lab::LabResult result = lab::runLab(options, work, observer);
    ASSERT_TRUE(result.isGood()) << lab::getName(result.step) << ": " << result.failure;

    std::vector<std::string> expected = {"0-511 206 512", "204-715 206 512"};
    expected.insert(expected.end(), GetParam().requests.begin(), GetParam().requests.end());
    expected.emplace_back("50272-50783 206 512");
    std::vector<std::string> found = describe(result);
    found.resize(std::min(found.size(), expected.size()));
    EXPECT_EQ(found, expected);
}

INSTANTIATE_TEST_SUITE_P(
    Groups, LabFault,
    testing::Values(Row{"not-found=2",
                        {"716-50272 404 48 not-found", "764-50272 404 48 not-found", "812-50272 206 49461"}},
                    Row{"close-in-head", {"716-50272 0 0 close-in-head", "716-50272 206 49557"}},
                    Row{"reset-mid-body", {"716-50272 206 24778 reset-mid-body", "204-50272 206 50069"}},
                    Row{"close-mid-body", {"716-50272 206 24778 close-mid-body", "25494-50272 206 24779"}},
                    Row{"ignore-range", {"716-50272 200 59336 ignore-range"}},
                    Row{"damage", {"716-50272 206 49557 damage"}}, Row{"drip", {"716-50272 206 49557 drip"}}),
    [](const auto& row) {
        std::string name = row.param.fault;
        name.erase(std::remove_if(name.begin(), name.end(), [](char c) { return isalnum(c) == 0; }),
                   name.end());
        return name;
    });

TEST(FaultNames, AreReadWithTheirCounts) {
    EXPECT_EQ(lab::Fault::parse("stall").count, 1U);
    EXPECT_EQ(lab::Fault::parse("stall=10000").count, 10000U);
    for (const lab::Fault& fault : lab::Fault::all())
        EXPECT_EQ(lab::Fault::parse(fault.name + "=2").name, fault.name);
    for (const char* const wrong : {"", "=1", "unheard-of", "stall=", "stall=0", "stall=10001", "stall=-1",
                                    "stall=1x", "stall=99999999999"})
        EXPECT_THROW(lab::Fault::parse(wrong), std::runtime_error) << wrong;
}

} // namespace
