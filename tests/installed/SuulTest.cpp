#include "installed/suul.h"

#include "installed/Records.h"
#include <gtest/gtest.h>
#include <memory>

namespace {

struct Suul : testing::Test {
    Suul() {
        EXPECT_EQ(suul_init(ctx.get()), 1);
        EXPECT_EQ(hostconfig_new(hc.get(), HostconfigMaximumSize), 1);
    }

    void import(const hostcfg::Bytes& record) {
        const std::string path = writeRecord(scratch, "record", record);
        ASSERT_EQ(hostconfig_load(hc.get(), path.c_str(), nullptr), 1);
        ASSERT_EQ(suul_hostconfig_import(ctx.get(), hc.get()), 1);
    }

    // The pools of these partitions, each as "name:member,member ".
    std::string poolsOf(const hostcfg::Description& description) {
        import(hostcfg::build(description));
        EXPECT_EQ(suul_partpool_generate(ctx.get()), 1);
        EXPECT_EQ(ctx->poolsGenerated, 1U);
        std::string text;
        for (unsigned i = 0; i < ctx->poolCount; ++i) {
            const suul_pool_t& pool = ctx->pools[i];
            text += ZempFormat::text(pool.name) + ":";
            for (unsigned member = 0; member < pool.count; ++member)
                text += (member == 0 ? "" : ",") + std::to_string(pool.members[member]);
            text += " ";
        }
        return text;
    }

    ScratchDir scratch;
    std::unique_ptr<hostconfig_t> hc = std::make_unique<hostconfig_t>();
    std::unique_ptr<suul_ctx_t> ctx = std::make_unique<suul_ctx_t>();
};

using SuulDeathTest = Suul;

TEST_F(Suul, PoolsInOrderOfFirstAppearance) {
    EXPECT_EQ(poolsOf(partitions({"A", "B", "A"})), "A:0,2 B:1 ");
    EXPECT_EQ(poolsOf(partitions({"A", "", "B", "", "B"})), "A:0 B:2,4 ");
    EXPECT_EQ(poolsOf(partitions({})), "");
    EXPECT_EQ(poolsOf(partitions({"sixteen bytes: A", "sixteen bytes: B", "sixteen bytes: A", "sixteen"})),
              "sixteen bytes: A:0,2 sixteen bytes: B:1 sixteen:3 ");
}

TEST_F(Suul, TwentyPoolsOrTwentyMembers) {
    EXPECT_EQ(poolsOf(partitions(std::vector<std::string>(20, "all"))),
              "all:0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19 ");
    std::vector<std::string> names;
    std::string expected;
    for (int i = 0; i < 20; ++i) {
        names.push_back("p" + std::to_string(i));
        expected += names.back() + ":" + std::to_string(i) + " ";
    }
    EXPECT_EQ(poolsOf(partitions(names)), expected);
}

TEST_F(SuulDeathTest, NullObjects) {
    EXPECT_DEATH(suul_hostconfig_import(nullptr, hc.get()), "\\*\\*\\* ASSERT in suul.c at 223\n");
    EXPECT_DEATH(suul_hostconfig_import(ctx.get(), nullptr), "\\*\\*\\* ASSERT in suul.c at 224\n");
    EXPECT_DEATH(suul_partpool_generate(nullptr), "\\*\\*\\* ASSERT in suul.c at 283\n");
}

TEST(UpgradeState, ByFlags) {
    EXPECT_EQ(get_upgrade_state(), 0);
    const std::pair<int, int> rows[] = {{-1, -1}, {0, 0}, {2, 0}, {1, 1}, {5, 1}, {3, 2}};
    for (const auto& [flags, state] : rows)
        EXPECT_EQ(upgrade_state_of_flags(flags), state) << flags;
}

} // namespace
