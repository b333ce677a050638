#include "bmc/board_pool.h"

#include <gtest/gtest.h>

#include <memory>
#include <utility>

namespace {

class OneUriBackend : public bmc::Backend {
public:
    std::vector<bmc::Uri> GetAllLocalBoardUris() const override { return {bmc::Uri("io", "2"), bmc::Uri("io", "1")}; }
    bmc::Board* GetBoard(const bmc::Uri& /*uri*/) override { return nullptr; }
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

}  // namespace
