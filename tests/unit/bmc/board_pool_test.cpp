#include "bmc/board_pool.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <utility>

namespace {

class OneUriBackend : public bmc::Backend {
public:
    std::vector<bmc::Uri> GetAllLocalBoardUris() const override { return {bmc::Uri("io", "2"), bmc::Uri("io", "1")}; }
    bmc::Board* GetBoard(const bmc::Uri& /*uri*/) override { return nullptr; }
    std::unique_ptr<bmc::Sweep> StartSweep(const bmc::SensorIds& sensors) override {
        m_swept = sensors;
        auto sweep = std::make_unique<bmc::Sweep>();
        m_sweep = sweep.get();
        return sweep;
    }
    void LimitAccesses(std::chrono::steady_clock::time_point deadline) override { m_deadline = deadline; }

    bmc::SensorIds m_swept;
    const bmc::Sweep* m_sweep = nullptr;
    std::optional<std::chrono::steady_clock::time_point> m_deadline;
};

TEST(BoardPool, WithoutBackend_HasNoBoards) {
    EXPECT_TRUE(bmc::BoardPool::Instance().GetAllLocalBoardUris().empty());
    EXPECT_EQ(bmc::BoardPool::Instance().GetBoard(bmc::c_localIcbUri), nullptr);
}

TEST(BoardPool, Open_PutsTheBackendBehindItAndGivesTheOldOneBack) {
    auto backend = std::make_unique<OneUriBackend>();
    const bmc::Backend* const address = backend.get();
    EXPECT_EQ(bmc::BoardPool::Instance().Open(std::move(backend)), nullptr);
    const auto uris = bmc::BoardPool::Instance().GetAllLocalBoardUris();
    ASSERT_EQ(uris.size(), 2U);
    EXPECT_EQ(uris[0].ToString(), "io/2") << "the backend's order";
    EXPECT_EQ(bmc::BoardPool::Instance().GetBoard(uris[0]), nullptr);
    EXPECT_EQ(bmc::BoardPool::Instance().Open(nullptr).get(), address);
    EXPECT_TRUE(bmc::BoardPool::Instance().GetAllLocalBoardUris().empty());
}

TEST(BoardPool, StartSweep_IsTheBackends) {
    auto owned = std::make_unique<OneUriBackend>();
    const OneUriBackend& backend = *owned;
    bmc::BoardPool::Instance().Open(std::move(owned));
    const bmc::SensorIds sensors{{bmc::Uri("io", "1"), {bmc::SensorId(7), bmc::SensorId(3)}},
                                 {bmc::Uri("io", "2"), {bmc::SensorId(7)}}};
    const auto sweep = bmc::BoardPool::Instance().StartSweep(sensors);
    EXPECT_EQ(sweep.get(), backend.m_sweep);
    EXPECT_EQ(backend.m_swept, sensors);
    bmc::BoardPool::Instance().Open(nullptr);
}

TEST(BoardPool, StartSweepWithoutBackend_IsASweepAllTheSame) {
    EXPECT_NE(bmc::BoardPool::Instance().StartSweep({{bmc::c_localIcbUri, {bmc::SensorId(1)}}}), nullptr);
}

TEST(BoardPool, LimitAccesses_GoesToTheBackendIfThereIsOne) {
    const auto deadline = std::chrono::steady_clock::now();
    bmc::BoardPool::Instance().LimitAccesses(deadline);
    auto owned = std::make_unique<OneUriBackend>();
    const OneUriBackend& backend = *owned;
    bmc::BoardPool::Instance().Open(std::move(owned));
    EXPECT_FALSE(backend.m_deadline);
    bmc::BoardPool::Instance().LimitAccesses(deadline);
    EXPECT_EQ(backend.m_deadline, deadline);
    bmc::BoardPool::Instance().Open(nullptr);
}

}  // namespace
